#include "vistrelle/platform/media/confined/worker_link.h"

#include <atomic>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/confined/worker_answers.h"
#include "vistrelle/platform/media/ffmpeg/waiting_room.h"

namespace vistrelle::platform {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using wire::Kind;

// More than any movie has a use for.
constexpr int kMostLines = 5000;
constexpr int kMostReferences = 200;
constexpr int kMostWaitingRooms = 10000;

}  // namespace

WorkerLink::WorkerLink(std::shared_ptr<Nursery> nursery, Worker worker, Patience patience)
    : nursery_(std::move(nursery)), worker_(std::move(worker)), patience_(patience) {}

WorkerLink::~WorkerLink() {
  worker_.channel.shutDown();
  if (!hasEnded_) nursery_->endWorker(worker_.process);
}

bool WorkerLink::open(std::shared_ptr<InputFile> file, const std::string& name) {
  file_ = std::move(file);
  const std::string_view shortName = std::string_view(name).substr(0, kMaxTextBytes);
  return send(Message(number(Kind::open), wire::Open{file_->size()}, shortName), file_->descriptor());
}

bool WorkerLink::send(const Message& message, int descriptor) {
  if (hasFailed_) return false;
  // A worker that does not read is as silent as one that does not answer.
  switch (worker_.channel.sendWithin(static_cast<int>(patience_.silence.count()), message, descriptor)) {
    case Channel::Status::message:
      return true;
    case Channel::Status::timeout:
      fail("the decoder gave no sign of life");
      return false;
    case Channel::Status::ended:
    case Channel::Status::broken:
      break;
  }
  fail("the decoder ended: ");
  return false;
}

void WorkerLink::fail(std::string reason) {
  if (std::exchange(hasFailed_, true)) return;
  const std::string end = nursery_->endWorker(worker_.process);
  hasEnded_ = true;
  failure_ = reason.ends_with(": ") ? reason + end : std::move(reason);
}

void WorkerLink::reject(const char* what) {
  fail(format("the decoder gave no sensible answer ({})", what));
}

std::optional<Message> WorkerLink::answer() {
  startOfAnswer_ = steady_clock::now();
  linesOfAnswer_ = roomsOfAnswer_ = 0;
  return furtherAnswer();
}

std::optional<Message> WorkerLink::furtherAnswer() {
  while (!hasFailed_) {
    const auto passed = std::chrono::duration_cast<milliseconds>(steady_clock::now() - startOfAnswer_);
    const auto left = patience_.longestAnswer - passed;
    const auto wait = std::max(milliseconds(0), std::min(patience_.silence, left));
    Message message;
    switch (worker_.channel.receive(&message, static_cast<int>(wait.count()), false)) {
      case Channel::Status::message:
        break;
      case Channel::Status::ended:
        fail("the decoder ended: ");
        continue;
      case Channel::Status::timeout:
        fail(wait < patience_.silence ? "the decoder took too long" : "the decoder gave no sign of life");
        continue;
      case Channel::Status::broken:
        reject("no message");
        continue;
    }
    switch (serve(message)) {
      case Served::answer:
        return message;
      case Served::refused:
        reject("a request that is not granted");
        break;
      case Served::yes:
        break;
    }
  }
  return std::nullopt;
}

WorkerLink::Served WorkerLink::serve(Message& message) {
  const auto served = [](bool done) { return done ? Served::yes : Served::refused; };
  wire::Nothing nothing;
  switch (static_cast<Kind>(message.kind())) {
    case Kind::hello:
      return served(!std::exchange(hasGreeted_, true) && sayWalls(message));
    case Kind::log:
      return served(forwardLine(message));
    case Kind::progress:
      return served(message.read(&nothing));
    case Kind::roomWanted:
      return served(grantRoom(message));
    case Kind::referenceWanted:
      return served(grantReference(message));
    case Kind::waitingRoomWanted:
      return served(message.read(&nothing) && grantWaitingRoom());
    default:
      return Served::answer;
  }
}

bool WorkerLink::sayWalls(const Message& message) const {
  ConfinementReport report;
  if (!message.read(&report)) return false;
  static std::atomic<bool> hasSaid = false;
  const std::string missing = report.missing();
  if (!missing.empty() && !hasSaid.exchange(true)) {
    log("movie confinement   :-/ decoders run without {}", missing);
  }
  return true;
}

bool WorkerLink::forwardLine(const Message& message) {
  wire::Nothing nothing;
  std::string_view text;
  if (!message.read(&nothing, &text) || ++linesOfAnswer_ > kMostLines) return false;
  log("{}", text);  // all of it is what somebody else says, so that a terminal gets it escaped
  return true;
}

bool WorkerLink::grantRoom(const Message& message) {
  wire::PlaneShape shape;
  // Each has room for a whole picture, which a worker could fill and keep.
  if (!message.read(&shape) || ++roomsOfAnswer_ > 1) return false;
  room_ = PictureRoom::make(shape);
  const wire::Granted granted{room_ ? static_cast<std::int64_t>(room_->bytes()) : -1};
  return send(Message(number(Kind::room), granted), room_ ? room_->descriptor() : -1);
}

bool WorkerLink::grantReference(const Message& message) {
  wire::Nothing nothing;
  std::string_view path;
  if (!message.read(&nothing, &path) || ++references_ > kMostReferences || !file_) return false;
  std::string error = "not a file name";
  std::shared_ptr<InputFile> file;
  if (path.find('\0') == std::string_view::npos) {
    file = std::dynamic_pointer_cast<InputFile>(file_->openReference(std::string(path), &error));
  }
  const wire::Granted granted{file ? file->size() : -1};
  return send(Message(number(Kind::reference), granted, file ? std::string_view() : error),
              file ? file->descriptor() : -1);
}

bool WorkerLink::grantWaitingRoom() {
  if (++waitingRooms_ > kMostWaitingRooms) return false;
  const UniqueFd room = waitingRooms().get()->open();
  return send(Message(number(Kind::waitingRoom), wire::Granted{room ? 0 : -1}), room.get());
}

}  // namespace vistrelle::platform
