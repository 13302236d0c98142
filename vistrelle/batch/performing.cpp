#include "vistrelle/batch/performing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <optional>
#include <utility>

#include "vistrelle/batch/delivery.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movie/thumbnails.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/jobs/private_folder.h"

namespace vistrelle {
namespace {

using platform::PrivateFolder;
using platform::UniqueFd;
using Texts = std::vector<std::string>;

constexpr double kSmallestOutput = 3072;  // bytes; the generator's own rule

/// What a source looks like from outside. One that changes while it is read is not whole yet.
struct SourceState {
  int error = 0;  ///< an errno value
  struct stat facts {};

  static SourceState of(const std::string& path) {
    SourceState state;
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file || ::fstat(file.get(), &state.facts) != 0) state.error = errno;
    return state;
  }
  bool isSameAs(const SourceState& other) const {
    return error == other.error && facts.st_dev == other.facts.st_dev && facts.st_ino == other.facts.st_ino &&
           facts.st_size == other.facts.st_size && facts.st_mtim.tv_sec == other.facts.st_mtim.tv_sec &&
           facts.st_mtim.tv_nsec == other.facts.st_mtim.tv_nsec;
  }
};

/// One job on its way.
class Run {
 public:
  Run(const BatchJob& job, JobRecord& record) : job_(job), record_(record), delivery_(job) {}

  Outcome perform() {
    if (job_.timecodes) times_ = *job_.timecodes;
    const auto known = job_.timecodes ? job_.timecodes->size() : static_cast<std::size_t>(job_.count);
    // Without a look at the movie where that can be.
    if (known > 0) {
      if (auto outcome = settled(known)) return *outcome;
    }
    before_ = SourceState::of(job_.source);
    if (before_.error != 0) return failureOf(before_.error, "source");
    if (!S_ISREG(before_.facts.st_mode)) return {kBadInput, "the source is no regular file", {}, 0};
    if (!job_.timecodes) {
      if (auto outcome = workOutTimes()) return *outcome;
      if (auto outcome = settled(times_.size())) return *outcome;
    }
    return make();
  }

 private:
  std::optional<Outcome> settled(std::size_t pictures) const {
    if (auto outcome = delivery_.refusal(pictures)) return outcome;
    auto outcome = delivery_.existing(pictures);
    if (outcome) PrivateFolder::removeRest(job_.privateFolder(), {});
    return outcome;
  }

  /// The times of `count` or `interval`, which depend on the movie's length.
  std::optional<Outcome> workOutTimes() {
    if (!movieLoad(job_.source)) return failure();
    const platform::TimeRange range = movieTracksTimeRange(MYMOVIEget(), kVideoTracks);
    if (!range.isValid()) {
      times_ = {"0"};  // the generator says what is wrong
      return std::nullopt;
    }
    const double end = std::floor(std::max(0.0, range.start.seconds() + range.duration.seconds()));
    const auto count = job_.count > 0 ? static_cast<double>(job_.count) : std::floor(end / job_.interval) + 1;
    if (count > static_cast<double>(kMostPictures)) {
      return Outcome{kBadInput, platform::format("more than {} pictures", kMostPictures), {}, 0};
    }
    for (int i = 0; i < static_cast<int>(count); ++i) {
      const double time = job_.count > 0 ? end * (2.0 * i + 1) / (2 * count) : i * job_.interval;
      times_.push_back(platform::format("{:.3f}", time));
    }
    return std::nullopt;
  }

  Outcome make() {
    int error = 0;
    const auto folder = PrivateFolder::make(job_.privateFolder(), &error);
    if (!folder && error == EWOULDBLOCK) return {kTemporaryFailure, "another process works on this job", {}, 0};
    if (!folder) return failureOf(error, "folder of the destination");
    if (!mirelundInFormat(job_.source, folder->content(), job_.width, job_.height, times_, delivery_.extension())) {
      return failure();
    }
    if (!areAllThere()) return failure();
    if (!SourceState::of(job_.source).isSameAs(before_)) return changed();
    std::vector<BatchFile> files;
    for (std::size_t i = 0; i < times_.size(); ++i) {
      const std::string path = platform::appendingPathComponent(folder->content(), delivery_.nameOf(i));
      const auto item = platform::fileManager().get()->attributes(path, false);
      if (!item || item->size == 0) return {kBadInput, platform::format("picture {} was not written", i + 1), {}, 0};
      const AskedFrame& frame = record_.frames()[i];
      files.push_back({path, item->size, frame.asked, frame.actual});
    }
    // What stands at its place is whole, even after a power failure.
    if ((error = folder->flushContent()) != 0) return failureOf(error, "folder of the destination");
    return delivery_.deliver(folder->content(), std::move(files));
  }

  bool areAllThere() const {
    const auto& frames = record_.frames();
    return record_.writeError() == 0 && frames.size() == times_.size() &&
           std::ranges::all_of(frames, [](const AskedFrame& frame) { return frame.hasPicture; });
  }

  static Outcome changed() { return {kTemporaryFailure, "the source changed while it was read", {}, 0}; }

  /// Why there are not all pictures.
  Outcome failure() const {
    Outcome outcome = causeOfFailure();
    const bool blamesSource = outcome.status == kBadInput || outcome.status == kCrashed;
    return blamesSource && !SourceState::of(job_.source).isSameAs(before_) ? changed() : outcome;
  }

  Outcome causeOfFailure() const {
    const std::string opening = record_.openingError(job_.source);
    if (!opening.empty()) return failureOfDecoder(opening, "");
    if (record_.writeError() != 0) {
      return {isTemporary(record_.writeError()) ? kTemporaryFailure : kBadInput, record_.writeErrorText(), {}, 0};
    }
    const auto& frames = record_.frames();
    for (std::size_t i = 0; i < frames.size(); ++i) {
      if (frames[i].hasPicture) continue;
      return failureOfDecoder(frames[i].error, platform::format("picture {} of {}: ", i + 1, times_.size()));
    }
    if (!frames.empty() && static_cast<double>(record_.bytesWritten()) < kSmallestOutput) {
      return {kBadInput, "less than 3 kilobytes of pictures", {}, 0};
    }
    const std::string line = record_.firstFailure();
    return {kBadInput, line.empty() ? "the generator failed" : line, {}, 0};
  }

  const BatchJob& job_;
  JobRecord& record_;
  Delivery delivery_;
  Texts times_;
  SourceState before_;
};

}  // namespace

Outcome performJob(const BatchJob& job, JobRecord& record) {
  Outcome outcome = Run(job, record).perform();
  // The next job may find another movie under the same name.
  MYMOVIErelease();
  return outcome;
}

}  // namespace vistrelle
