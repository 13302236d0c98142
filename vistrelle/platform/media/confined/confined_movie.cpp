#include <algorithm>
#include <new>
#include <utility>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/confined/confined_asset.h"

namespace vistrelle::platform {
namespace {

using wire::Kind;

constexpr std::size_t kTimesOfMessage = 1000;

std::uint32_t flag(bool value) {
  return value ? 1 : 0;
}

FrameResult failure(std::string error) {
  return {nullptr, MediaTime::invalid(), std::move(error)};
}

}  // namespace

ConfinedMovie::ConfinedMovie(std::shared_ptr<Nursery> nursery, std::shared_ptr<InputFile> file, std::string name,
                             std::chrono::milliseconds silence, std::chrono::milliseconds longestAnswer)
    : nursery_(std::move(nursery)), file_(std::move(file)), name_(std::move(name)), patience_{silence, longestAnswer} {}

void ConfinedMovie::stop() {
  const std::lock_guard lock(linkMutex_);
  isStopped_ = true;
  if (link_) link_->stop();
}

pid_t ConfinedMovie::workerProcess() {
  const std::lock_guard lock(linkMutex_);
  return link_ && link_->isUsable() ? link_->process() : -1;
}

std::optional<MovieRecord> ConfinedMovie::load(std::string* error) {
  const std::lock_guard lock(mutex_);
  try {
    if (!ensureWorker(error)) return std::nullopt;
    return record_;
  } catch (const std::bad_alloc&) {
    stopTalk();
    *error = "out of memory";
    return std::nullopt;
  }
}

/// A worker that has the movie open: the one in use, or a fresh one when that has failed.
bool ConfinedMovie::ensureWorker(std::string* error) {
  if (link_ && link_->isUsable()) return true;
  informed_.clear();
  {
    const std::lock_guard lock(linkMutex_);
    link_.reset();
  }
  std::optional<Worker> worker = nursery_->makeWorker(error);
  if (!worker) return false;
  const auto link = std::make_shared<WorkerLink>(nursery_, std::move(*worker), patience_);
  {
    const std::lock_guard lock(linkMutex_);
    if (isStopped_) {
      *error = "loading was called off";
      return false;
    }
    link_ = link;
  }
  if (link->open(file_, name_)) record_ = readRecord(*link);
  if (link->isUsable() && record_) return true;
  *error = link->failure();
  return false;
}

std::optional<MovieRecord> ConfinedMovie::readRecord(WorkerLink& link) {
  MovieRecordReader reader;
  std::optional<Message> message = link.answer();
  while (message && reader.take(*message)) {
    if (reader.isComplete()) return reader.record();
    message = link.furtherAnswer();
  }
  if (message) link.reject("facts of a movie that cannot be");
  return std::nullopt;
}

bool ConfinedMovie::tellTimes(const PictureWish& wish, const std::vector<MediaTime>& times) {
  std::size_t told = 0;
  do {
    const std::size_t count = std::min(times.size() - told, kTimesOfMessage);
    std::string tail;
    for (std::size_t i = 0; i < count; ++i) {
      const wire::Time time = toWire(times[told + i]);
      tail.append(reinterpret_cast<const char*>(&time), sizeof time);
    }
    const wire::Announce announce{wish.generator, wish.track, flag(told == 0), flag(told + count == times.size())};
    if (!link_->send(Message(static_cast<std::uint32_t>(Kind::announce), announce, tail))) return false;
    told += count;
  } while (told < times.size());
  informed_.push_back(wish.generator);
  return true;
}

void ConfinedMovie::announce(const PictureWish& wish, const std::vector<MediaTime>& times) {
  const std::lock_guard lock(mutex_);
  // Otherwise it is told with the first request.
  if (link_ && link_->isUsable()) tellTimes(wish, times);
}

void ConfinedMovie::drop(std::uint32_t generator) {
  const std::lock_guard lock(mutex_);
  std::erase(informed_, generator);
  if (link_ && link_->isUsable()) {
    link_->send(Message(static_cast<std::uint32_t>(Kind::drop), wire::Drop{generator}));
  }
}

FrameResult ConfinedMovie::copyFrame(const PictureWish& wish, const MediaTime& time,
                                     const std::vector<MediaTime>& announced) {
  const std::lock_guard lock(mutex_);
  try {
    return copyFrameNow(wish, time, announced);
  } catch (const std::bad_alloc&) {
    stopTalk();
    return failure("out of memory");
  }
}

Size ConfinedMovie::naturalSize(std::int32_t track) {
  const std::lock_guard lock(mutex_);
  try {
    return measure(track).value_or(Size{});
  } catch (const std::bad_alloc&) {
    stopTalk();
    return {};
  }
}

std::optional<Size> ConfinedMovie::measure(std::int32_t track) {
  std::string error;
  if (!ensureWorker(&error) || !link_->send(Message(static_cast<std::uint32_t>(Kind::measure), wire::Measure{track}))) {
    return std::nullopt;
  }
  const std::optional<Message> message = link_->answer();
  const std::optional<Size> size = message ? sizeOf(*message) : std::nullopt;
  if (message && !size) link_->reject("not a size");
  return size;
}

/// The worker may be in the middle of an answer that nobody is going to read: a fresh one serves what is to come.
void ConfinedMovie::stopTalk() {
  if (link_) link_->stop();
}

FrameResult ConfinedMovie::copyFrameNow(const PictureWish& wish, const MediaTime& time,
                                        const std::vector<MediaTime>& announced) {
  std::string error;
  if (!ensureWorker(&error)) return failure(std::move(error));
  const bool isInformed = std::ranges::find(informed_, wish.generator) != informed_.end();
  const wire::FrameRequest request{toWire(time), wish.generator, wish.track, flag(wish.appliesTransform),
                                   static_cast<std::uint32_t>(wish.apertureMode)};
  if ((isInformed || announced.empty() || tellTimes(wish, announced)) &&
      link_->send(Message(static_cast<std::uint32_t>(Kind::copyFrame), request))) {
    return readFrame(*link_);
  }
  return failure(link_->failure());
}

FrameResult ConfinedMovie::readFrame(WorkerLink& link) {
  const std::optional<Message> message = link.answer();
  if (!message) return failure(link.failure());
  wire::Frame frame;
  std::string_view error;
  const std::unique_ptr<PictureRoom> room = link.takeRoom();
  if (message->kind() != static_cast<std::uint32_t>(Kind::frame) || !message->read(&frame, &error)) {
    link.reject("not a picture");
    return failure(link.failure());
  }
  if (frame.hasPicture == 0) return failure(std::string(error));
  const std::optional<MediaTime> time = fromWire(frame.time);
  std::optional<PlanarImage> image = room ? room->seal() : std::nullopt;
  if (!time || !image || !applyDescription(frame, &*image)) {
    link.reject("a picture that cannot be");
    return failure(link.failure());
  }
  return {std::make_shared<const Picture>(std::move(*image)), *time, {}};
}

}  // namespace vistrelle::platform
