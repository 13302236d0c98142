#include "vistrelle/movie/thumbnails.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>
#include <set>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/image/rescale.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movie/timecode.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using platform::ImageGenerator;
using platform::MediaTime;
using platform::OptionalText;
using platform::TimeRange;

constexpr std::int64_t kStretch = 0;
constexpr double kDpi = 72.0;
constexpr float kQuality = 0.6F;
constexpr std::int32_t kRequestScale = 2;
constexpr double kSmallestOutput = 3.0;  // kilobytes
constexpr double kDefaultPosition = 0.02;

/// What one run was asked for.
struct Job {
  OptionalText destination;
  std::int64_t width;
  std::int64_t height;
  std::string extension;  ///< of the pictures in a folder
};

/// Times that may be asked for, both ends included.
struct Span {
  MediaTime start;
  MediaTime end;
  bool contains(const MediaTime& time) const { return time >= start && time <= end; }
};

bool hasMpegName(const std::string& path) {
  std::string extension = platform::pathExtension(path);
  std::ranges::transform(extension, extension.begin(),
                         [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  constexpr std::array<std::string_view, 3> kRefused{"mpg", "mpeg", "mod"};
  return std::ranges::find(kRefused, extension) != kRefused.end();
}

std::size_t countOf(const std::optional<TrackList>& tracks) {
  return tracks ? tracks->size() : 0;
}

/// The refusals that need no look at the time range.
bool accepts(const Movie& movie, const std::string& source) {
  const std::size_t all = countOf(movieTrackTypes(movie, kAllTracks));
  const std::size_t video = countOf(movieTrackTypes(movie, kVideoTracks));
  if (all == 0 || video == 0) {
    log("Mirelund            :-(  no usable track (v tracks={}/{}) ", video, all);
    return false;
  }
  if (hasMpegName(source)) {
    log("Mirelund            :-( mpeg!");
    return false;
  }
  if (isVerbose()) log("tracksWithMediaCharacteristic : {}", tracksDescription(visualTracks(movie)));
  if (movie->hasProtectedContent()) {
    log("Mirelund            :-(  protected file (DRM={})", true);
    return false;
  }
  if (!movie->isPlayable()) log("Mirelund            :-/ isPlayable={}", false);
  return true;
}

std::int64_t saturatingSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return a < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
}

/// The span of the video tracks, its end cut to whole seconds; nothing when it is not valid.
std::optional<Span> usableSpan(const Movie& movie) {
  const TimeRange range = movieTracksTimeRange(movie, kVideoTracks);
  logVerbose("Mirelund isSuccess     = {}", range.isValid());
  if (!range.isValid()) {
    log("Mirelund      :-( end (invalid range)");
    return std::nullopt;
  }
  // Start and duration share a scale.
  const std::int64_t seconds = saturatingSum(range.start.value, range.duration.value) / range.start.scale;
  const MediaTime end = MediaTime::makeWithSeconds(static_cast<double>(seconds), 1);
  logVerbose("Mirelund vRange     : from {}/{} -> to {}/{}", range.start.value, range.start.scale, end.value,
             end.scale);
  return Span{range.start, end};
}

std::unique_ptr<ImageGenerator> makeGenerator(const Movie& movie, const std::string& source) {
  auto generator = movie->makeImageGenerator();
  if (!generator) {
    log("AVAssetImageGenerato:-( failed to create ({})", platform::lastPathComponent(source));
    return nullptr;
  }
  generator->setAppliesPreferredTrackTransform(true);
  return generator;
}

/// One picture at 2 % of the movie's whole seconds.
std::string defaultTimecode(const MediaTime& end) {
  const std::int64_t seconds = end.scale > 0 ? end.value / end.scale : end.value;
  const auto increment = static_cast<float>(static_cast<double>(seconds) * kDefaultPosition);
  logVerbose("Mirelund incrementF…: {:.3f}", increment);
  return end.value == 1 ? "0.0" : platform::format("{:.3f}", increment);
}

/// Requested times fall on half seconds, cut toward zero.
MediaTime halfSeconds(float seconds) {
  return MediaTime::make(truncatedInteger(seconds + seconds), kRequestScale);
}

/// All times that the loop is going to ask for. Silent: the loop writes the lines.
std::vector<MediaTime> requestedTimes(const std::vector<std::string>& timecodes, const Span& span) {
  std::vector<MediaTime> times;
  times.reserve(timecodes.size());
  for (const std::string& timecode : timecodes) {
    const MediaTime time = halfSeconds(timecodeSeconds(timecode));
    times.push_back(span.contains(time) ? time : span.start);
  }
  return times;
}

OptionalText outputPath(const Job& job, std::size_t index) {
  if (!job.destination || !isDirCocoa(job.destination)) return job.destination;
  return platform::format("{}/img{:02}.{}", *job.destination, index, job.extension);
}

/// The time to ask for: what `timecode` says, or the span's start when that lies outside.
MediaTime currentTime(const std::string& timecode, const Span& span) {
  const float seconds = timecodeStr2Float(timecode);
  const MediaTime time = halfSeconds(seconds);
  logVerbose("Mirelund currTime   = {}/{} ({:.3f})", time.value, time.scale, seconds);
  const bool inRange = span.contains(time);
  logVerbose("av…isCurrTimeInRange:-{}", mood(inRange));
  return inRange ? time : span.start;
}

bool isPresent(const OptionalText& path) {
  return path && testPresenceCocoa(platform::Value(*path));
}

/// What the pictures of a run came to.
struct Results {
  bool isSuccess = true;
  std::set<std::string> kept;  ///< files of an earlier run that stand where a frame could not be had
};

/// Takes the picture at `index` and writes it. `isSuccess` becomes the writing's answer; a frame that cannot be had
/// leaves it as it is.
void takePicture(ImageGenerator& generator, const std::string& timecode, std::size_t index, const Span& span,
                 const Job& job, Results& results) {
  const OptionalText output = outputPath(job, index);
  const std::string outputText = output.value_or("(null)");
  logVerbose("Mirelund currentDst…: {} ({})", outputText, job.destination.value_or("(null)"));
  platform::FrameResult frame = generator.copyFrame(currentTime(timecode, span));
  if (!frame.picture) {
    const std::string error = frame.error.empty() ? "nil" : frame.error;
    log("Mirelund error      : (actualTime time={:.3f}) {}", frame.actualTime.seconds(), error);
    if (isPresent(output)) results.kept.insert(outputText);
    return;
  }
  logVerbose("Mirelund actualTime = {:.3f}", frame.actualTime.seconds());
  if (isVerbose()) log("Mirelund img        : {}", frame.picture->description());
  const platform::Value picture{std::shared_ptr<const platform::Opaque>(std::move(frame.picture))};
  results.isSuccess = imgRescale(picture, output, job.width, job.height, kStretch, kDpi, kQuality);
  results.kept.erase(outputText);
  logVerbose("#{}{} isSuccess       :-{} {}", index < 10 ? " " : "", index, mood(results.isSuccess), outputText);
}

/// Hands the destination of a failed run to the guarded removal and says what went.
void removeOutput(const OptionalText& destination) {
  const bool wasThere = isPresent(destination);
  const bool wasFolder = wasThere && isDirCocoa(destination);
  rmCocoa(destination);
  if (!wasThere || isPresent(destination)) return;
  if (wasFolder) {
    log("Mirelund            :-( failed run, folder removed with all it held : {}", *destination);
  } else {
    log("Mirelund            :-( failed run, file removed : {}", *destination);
  }
}

/// The last word: a run whose destination holds next to nothing has failed too.
bool finalDecision(bool isSuccess, const OptionalText& destination) {
  if (isSuccess && poidsFile(destination, "k") < kSmallestOutput) {
    if (isVerbose() && destination) mv(destination, platform::appendingPathExtension(*destination, "jpg"), "y");
    isSuccess = false;
  }
  log("Mirelund            :-{} end", mood(isSuccess));
  if (!isSuccess) removeOutput(destination);
  return isSuccess;
}

}  // namespace

bool Mirelund(const OptionalText& source, const OptionalText& destination, std::int64_t width, std::int64_t height,
              const std::optional<std::vector<std::string>>& timecodes) {
  return mirelundInFormat(source, destination, width, height, timecodes, "jpg");
}

bool mirelundInFormat(const OptionalText& source, const OptionalText& destination, std::int64_t width,
                      std::int64_t height, const std::optional<std::vector<std::string>>& timecodes,
                      const std::string& extension) {
  log("Mirelund            - begin");
  if (!movieLoad(source)) return false;
  const Movie movie = MYMOVIEget();
  if (!accepts(movie, *source)) return false;
  const auto span = usableSpan(movie);
  if (!span) return false;
  auto generator = makeGenerator(movie, *source);
  if (!generator) return false;

  std::vector<std::string> list = timecodes.value_or(std::vector<std::string>());
  if (list.empty()) list.push_back(defaultTimecode(span->end));
  if (isVerbose()) log("Mirelund dstTimeDou…: {}", platform::description(list));

  generator->announce(requestedTimes(list, *span));
  const Job job{destination, width, height, extension};
  Results results;
  try {
    for (std::size_t i = 0; i < list.size(); ++i) {
      takePicture(*generator, list[i], i, *span, job, results);
      platform::plain("steps          : {}\n", i + 1);
    }
    generator.reset();
  } catch (const std::bad_alloc&) {
    log("Mirelund            :-( out of memory : {}", *source);
    results.isSuccess = false;
  }
  const bool isSuccess = finalDecision(results.isSuccess, destination);
  // The rules call a run a success whose last written picture is one; nobody should take an older picture for it.
  for (const std::string& path : isSuccess ? results.kept : std::set<std::string>()) {
    log("Mirelund            :-/ no new picture, an older one stays : {}", path);
  }
  return isSuccess;
}

}  // namespace vistrelle
