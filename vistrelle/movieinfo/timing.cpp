#include "vistrelle/movieinfo/timing.h"

#include <memory>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/text/unicode.h"

namespace vistrelle {
namespace {

using platform::AssetReader;
using platform::MediaType;
using platform::OptionalText;
using platform::ReaderStatus;
using platform::Track;

constexpr std::int64_t kNothingToCount = -12345;
constexpr double kBigMegabytes = 100.0;
constexpr const char* kListedExtension = "???";

OptionalText expanded(const OptionalText& path) {
  return path ? OptionalText(platform::expandingTilde(*path)) : std::nullopt;
}

std::string textOf(const OptionalText& text) {
  return text.value_or("(null)");
}

std::string describe(const platform::List& list) {
  return platform::description(platform::Value(list));
}

/// The first timecode track; empty when there is none.
std::shared_ptr<Track> timecodeTrack(const Movie& movie) {
  const TrackList tracks = movie->tracks();
  log("tracks : {}", tracksDescription(tracks));
  for (const auto& track : tracks) {
    log("track : {}", track->description());
    if (track->mediaType() == MediaType::timecode) {
      log("AVMediaTypeTimecode…");
      return track;
    }
  }
  return nullptr;
}

/// Reads the samples of `track` to the end and counts them; their bytes are not looked at.
std::int64_t countSamples(const Movie& movie, const std::shared_ptr<Track>& track) {
  std::string failure;
  const std::unique_ptr<AssetReader> reader = movie->makeReader(&failure);
  std::int64_t count = 0;
  if (reader && reader->canAddOutput(track)) {
    reader->addOutput(track);
    if (reader->startReading()) {
      // A reader without a further sample has completed or failed.
      while (reader->status() == ReaderStatus::reading && reader->copyNextSampleBuffer()) ++count;
    }
  }
  if (count == 0) {
    const OptionalText error = reader ? reader->error() : OptionalText(failure);
    log("No sample in the timecode track: {}", textOf(error));
  }
  log("Processed {} sample", count);
  if (reader && reader->status() != ReaderStatus::completed) reader->cancelReading();
  return count;
}

}  // namespace

float dureeMovie(const OptionalText& path) {
  log("----------");
  log("qt dureeMovie       - begin");
  const OptionalText source = expanded(path);
  // One blank fewer before the colon than in the other operations: intended.
  logVerbose("srcPathStr         : {}", textOf(source));
  if (MYMOVIEinstantiate(source, false, false)) {
    const double seconds = movieDuration(MYMOVIEget());
    log("qt dureeMovie       - end : {:.2f}", seconds);
    log("----------");
    return static_cast<float>(seconds);
  }
  MYMOVIErelease();
  log("Error               : non-readable movie");
  log("qt dureeMovie       - end");
  log("----------");
  return 0.0F;
}

std::optional<platform::Dictionary> qtOffsetMs(const OptionalText& path) {
  log("qt qtOffsetMs       - begin");
  const OptionalText source = expanded(path);
  logVerbose("srcPathStr          : {}", textOf(source));
  // A movie that can be read has no offsets and no last line either: intended.
  if (MYMOVIEinstantiate(source, false, false)) return std::nullopt;
  log("Error               : non-readable movie");
  log("qt qtOffsetMs       - end \n----------");
  return std::nullopt;
}

std::int64_t timecodeTrackSampleCount(const OptionalText& path) {
  const OptionalText source = expanded(path);
  if (!source || !testPresenceCocoa(platform::Value(*source))) return kNothingToCount;
  if (!MYMOVIEinstantiate(source, false, false)) return kNothingToCount;
  const Movie movie = MYMOVIEget();
  const auto track = timecodeTrack(movie);
  if (!track) return kNothingToCount;
  const std::int64_t count = countSamples(movie, track);
  return count == 0 ? kNothingToCount : count;
}

bool movieInfosLog(const OptionalText& path) {
  log("----------");
  log("qt movieInfosLog    - begin");
  const OptionalText source = expanded(path);
  logVerbose("srcPathStr          : {}", textOf(source));
  const bool isLoaded = MYMOVIEinstantiate(source, false, false);
  if (isLoaded) {
    const platform::MovieMetadata metadata = MYMOVIEget()->metadata();
    log("commonMetadata           : {}", describe(metadata.common));
    log("availableMetadataFormats : {}", describe(metadata.formats));
    log("availableChapterLocales  : {}", describe(metadata.chapterLocales));
    log("lyrics                   : {}", textOf(metadata.lyrics));
  } else {
    MYMOVIErelease();
    log("Error               : non-readable movie");
  }
  log("qt movieInfosLog    - end");
  log("----------");
  return isLoaded;
}

bool isBigFileOfListedType(const OptionalText& path) {
  if (!path || platform::lowercased(platform::pathExtension(*path)) != kListedExtension) return false;
  return poidsFile(path, "m") > kBigMegabytes;
}

}  // namespace vistrelle
