#include "vistrelle/platform/media/confined/worker.h"

#include <malloc.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/confined/movie_facts.h"
#include "vistrelle/platform/media/confined/picture_transfer.h"
#include "vistrelle/platform/media/confined/pieces.h"
#include "vistrelle/platform/media/confined/refused_memory.h"
#include "vistrelle/platform/media/confined/sample_server.h"
#include "vistrelle/platform/media/confined/worker_answers.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"
#include "vistrelle/platform/media/ffmpeg/waiting_room.h"

namespace vistrelle::platform {
namespace {

using wire::Kind;

std::int64_t monotonicMilliseconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

/// The worker's end of its channel. What it asks its user for is asked from one thread at a time; lines and signs of
/// life go out from any.
class Line {
 public:
  explicit Line(const Channel& channel) : channel_(channel) {}

  /// The next request; false when there will be none.
  bool next(Message* message) {
    const std::lock_guard lock(mutex_);
    return channel_.receive(message, -1, true) == Channel::Status::message;
  }

  void send(const Message& message) const {
    if (!channel_.send(message)) ::_exit(0);  // nobody listens any more
  }

  /// Asks and waits for the answer, which is of kind `wanted`.
  Message ask(const Message& question, Kind wanted) {
    const std::lock_guard lock(mutex_);
    send(question);
    Message answer;
    if (channel_.receive(&answer, -1, true) != Channel::Status::message || answer.kind() != number(wanted)) ::_exit(0);
    return answer;
  }

  void log(std::string_view text) const {
    send(Message(number(Kind::log), wire::Nothing{}, text.substr(0, kMaxTextBytes)));
  }

  void showProgress() {
    constexpr std::int64_t kPause = 500;
    const std::int64_t now = monotonicMilliseconds();
    std::int64_t last = lastSign_;
    if (now - last >= kPause && lastSign_.compare_exchange_strong(last, now)) {
      send(Message(number(Kind::progress), wire::Nothing{}));
    }
  }

 private:
  const Channel& channel_;
  std::mutex mutex_;
  std::atomic<std::int64_t> lastSign_ = 0;
};

class ForwardedLog : public LogSink {
 public:
  explicit ForwardedLog(std::shared_ptr<Line> line) : line_(std::move(line)) {}
  void message(std::string_view text) override { line_->log(text); }
  void plain(std::string_view text) override { line_->log(text); }

 private:
  std::shared_ptr<Line> line_;
};

/// A file that was opened elsewhere.
class PassedFile : public InputBytes {
 public:
  PassedFile(UniqueFd file, std::int64_t size, std::shared_ptr<Line> line, bool refers)
      : file_(std::move(file)), size_(size), line_(std::move(line)), refers_(refers) {}

  std::int64_t size() const override { return size_; }

  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    line_->showProgress();
    if (offset < 0) return -EINVAL;
    if (offset >= size_ || buffer.empty()) return 0;
    const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size_ - offset, std::ssize(buffer)));
    for (;;) {
      const ssize_t count = ::pread(file_.get(), buffer.data(), wanted, offset);
      if (count >= 0) return count;
      if (errno != EINTR) return -errno;
    }
  }

  std::shared_ptr<InputBytes> openReference(const std::string& relativePath, std::string* error) override {
    if (!refers_) return InputBytes::openReference(relativePath, error);
    Message answer = line_->ask(Message(number(Kind::referenceWanted), wire::Nothing{},
                                        std::string_view(relativePath).substr(0, kMaxTextBytes)),
                                Kind::reference);
    wire::Granted granted;
    std::string_view cause;
    UniqueFd file = answer.takeDescriptor();
    if (!answer.read(&granted, &cause) || !file || granted.size < 0) {
      if (error != nullptr) *error = cause;
      return nullptr;
    }
    return std::make_shared<PassedFile>(std::move(file), granted.size, line_, false);
  }

 private:
  UniqueFd file_;
  std::int64_t size_;
  std::shared_ptr<Line> line_;
  bool refers_;
};

class PassedRooms : public WaitingRooms {
 public:
  explicit PassedRooms(std::shared_ptr<Line> line) : line_(std::move(line)) {}
  UniqueFd open() override {
    return line_->ask(Message(number(Kind::waitingRoomWanted), wire::Nothing{}), Kind::waitingRoom).takeDescriptor();
  }

 private:
  std::shared_ptr<Line> line_;
};

/// Answers requests about one movie.
class Server {
 public:
  explicit Server(std::shared_ptr<Line> line)
      : line_(std::move(line)), samples_([this](const Message& message) { line_->send(message); }) {}

  void run() {
    Message request;
    while (line_->next(&request) && answer(request)) {
    }
  }

 private:
  struct Pictures {
    std::unique_ptr<ImageGenerator> generator;
    std::vector<MediaTime> announced;
  };

  /// False for a request that this side does not know.
  bool answer(Message& request) {
    switch (static_cast<Kind>(request.kind())) {
      case Kind::open:
        return open(request);
      case Kind::announce:
        return announce(request);
      case Kind::copyFrame:
        return copyFrame(request);
      case Kind::measure:
        return measure(request);
      case Kind::describeMovie:
        return describeMovie(request);
      case Kind::describeTrack:
        return describeTrack(request);
      case Kind::startReading:
        return samples_.startReading(request, movie_.get());
      case Kind::nextSample:
        return samples_.nextSample(request);
      case Kind::endReading:
        return samples_.endReading(request);
      case Kind::drop: {
        wire::Drop drop;
        return request.read(&drop) && (pictures_.erase(drop.generator), true);
      }
      default:
        return false;
    }
  }

  bool open(Message& request) {
    wire::Open open;
    std::string_view name;
    UniqueFd file = request.takeDescriptor();
    if (!request.read(&open, &name) || !file || movie_) return false;
    movie_ = std::make_shared<UrlAsset>(std::make_shared<PassedFile>(std::move(file), open.size, line_, true),
                                        std::string(name));
    movie_->loadNow();
    for (const Message& message : answersAbout(*movie_)) line_->send(message);
    return true;
  }

  bool measure(const Message& request) {
    wire::Measure wanted;
    if (!request.read(&wanted)) return false;
    Size size;
    if (movie_) {
      const auto tracks = movie_->tracks();
      const auto index = static_cast<std::size_t>(wanted.track);
      if (wanted.track < 0) {
        size = movie_->naturalSize();
      } else if (index < tracks.size()) {
        size = tracks[index]->naturalSize();
      }
    }
    line_->send(Message(number(Kind::size), wire::Size{size.width, size.height}));
    return true;
  }

  bool describeMovie(const Message& request) {
    wire::Nothing nothing;
    if (!request.read(&nothing)) return false;
    sendFacts(bytesOf(movie_ ? movie_->metadata() : MovieMetadata{}, kMostMetadataBytes));
    return true;
  }

  bool describeTrack(const Message& request) {
    wire::Describe wanted;
    if (!request.read(&wanted)) return false;
    const auto tracks = movie_ ? movie_->tracks() : std::vector<std::shared_ptr<Track>>{};
    const auto index = static_cast<std::size_t>(wanted.track);
    const bool isThere = wanted.track >= 0 && index < tracks.size();
    sendFacts(bytesOf(isThere ? tracks[index]->details() : TrackDetails{}));
    return true;
  }

  void sendFacts(const Data& facts) const {
    sendInPieces(facts, [this](const Message& message) { line_->send(message); });
  }

  Pictures& picturesOf(std::uint32_t number, std::int32_t track) {
    Pictures& pictures = pictures_[number];
    if (pictures.generator || !movie_) return pictures;
    const auto tracks = movie_->tracks();
    if (track < 0) {
      pictures.generator = movie_->makeImageGenerator();
    } else if (static_cast<std::size_t>(track) < tracks.size()) {
      pictures.generator = tracks[static_cast<std::size_t>(track)]->makeImageGenerator();
    }
    return pictures;
  }

  bool announce(const Message& request) {
    wire::Announce announce;
    std::string_view times;
    if (!request.read(&announce, &times)) return false;
    Pictures& pictures = picturesOf(announce.generator, announce.track);
    if (announce.isFirst != 0) pictures.announced.clear();
    for (; times.size() >= sizeof(wire::Time); times.remove_prefix(sizeof(wire::Time))) {
      wire::Time time;
      std::memcpy(&time, times.data(), sizeof time);
      pictures.announced.push_back(fromWire(time).value_or(MediaTime::invalid()));
    }
    if (announce.isLast != 0 && pictures.generator) pictures.generator->announce(pictures.announced);
    return true;
  }

  bool copyFrame(const Message& request) {
    wire::FrameRequest wanted;
    if (!request.read(&wanted)) return false;
    ImageGenerator* generator = picturesOf(wanted.generator, wanted.track).generator.get();
    FrameResult result;
    if (generator == nullptr) {
      result.error = "no pictures can come from this track";
    } else {
      generator->setAppliesPreferredTrackTransform(wanted.appliesTransform != 0);
      generator->setApertureMode(static_cast<ApertureMode>(wanted.apertureMode));
      result = generator->copyFrame(fromWire(wanted.time).value_or(MediaTime::invalid()));
    }
    deliver(result);
    return true;
  }

  void deliver(FrameResult& result) {
    wire::Frame frame;
    frame.time = toWire(result.actualTime);
    const PlanarImage* image = result.picture ? result.picture->planar() : nullptr;
    if (image != nullptr && placeInRoom(*image)) {
      describe(*image, &frame);
    } else if (result.picture) {
      frame.time = toWire(MediaTime::invalid());
      result.error = "there is no room for the picture";
    }
    line_->send(Message(number(Kind::frame), frame, std::string_view(result.error).substr(0, kMaxTextBytes)));
  }

  bool placeInRoom(const PlanarImage& image) {
    const auto places = planePlaces(image.layout, image.width, image.height);
    if (!places) return false;
    const UniqueFd room = line_->ask(Message(number(Kind::roomWanted), shapeOf(image)), Kind::room).takeDescriptor();
    if (!room) return false;
    return writePlanes(image, *places, room.get());
  }

  std::shared_ptr<Line> line_;
  std::shared_ptr<UrlAsset> movie_;
  std::map<std::uint32_t, Pictures> pictures_;
  SampleServer samples_;
};

}  // namespace

void runWorker(const Channel& channel, const WorkerOptions& options) {
  std::set_new_handler([] { ::_exit(kOutOfMemoryStatus); });
  // The C library's further arenas read a file of the kernel's when they shrink.
  ::mallopt(M_ARENA_MAX, 1);
  const ConfinementReport report = confineProcess(options.limits, options.refusal);
  const auto line = std::make_shared<Line>(channel);
  line->send(Message(number(Kind::hello), report));
  // The former ones own descriptors that are not theirs any more, so they are kept, not destroyed.
  static const auto formerLog = logSink().install(std::make_shared<ForwardedLog>(line));
  static const auto formerRooms = waitingRooms().install(std::make_shared<PassedRooms>(line));
  Server(line).run();
  ::_exit(0);
}

}  // namespace vistrelle::platform
