#include "vistrelle/movie/queries.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using platform::Asset;
using platform::AssetKind;
using platform::MediaTime;
using platform::MediaType;
using platform::TimeRange;
using platform::Track;

constexpr std::int32_t kRangeScale = 3;

MediaType mediaTypeOf(std::int64_t type) {
  if (type == kAudioTracks) return MediaType::audio;
  if (type == kVideoTracks) return MediaType::video;
  return MediaType::subtitle;
}

std::optional<TrackList> unlessEmpty(TrackList tracks) {
  if (tracks.empty()) return std::nullopt;
  return tracks;
}

double secondsOf(const MediaTime& time) {
  return static_cast<double>(time.value) / static_cast<double>(time.scale);
}

/// "%.0lld": precision 0 prints nothing at all for zero.
std::string withoutZero(std::int64_t value) {
  return value == 0 ? std::string() : platform::format("{}", value);
}

TimeRange rangeInThirds(std::int64_t start, std::int64_t duration) {
  return {MediaTime::make(start, kRangeScale), MediaTime::make(duration, kRangeScale)};
}

/// The range when track start `start` or duration `duration` is not a number: this one track decides, whatever the
/// tracks before it gave, and the floor of a third of a second does not apply.
TimeRange rangeFromFallback(const Movie& movie, double start, double duration) {
  log("              'nan' :-(  from:{:.2f} - duration: {:.3f}", start, duration);
  if (std::isnan(start)) start = 0.0;
  if (std::isnan(duration)) duration = movieDuration(movie);
  if (duration == 0.0) {
    log("movieTypeTra… range :-( (durationCurr=nan|0)");
    return TimeRange::invalid();
  }
  log("                    :-(( from:{:.2f} - duration: {:.3f}", start, duration);
  // A length that is still not a number makes a negative duration: such a range is not valid.
  const std::int64_t thirds =
      std::isnan(duration) ? std::numeric_limits<std::int64_t>::min() : truncatedInteger(3.0 * duration);
  return rangeInThirds(truncatedInteger(3.0 * start), thirds);
}

}  // namespace

std::string tracksDescription(const TrackList& tracks) {
  platform::List list;
  for (const auto& track : tracks) list.emplace_back(std::shared_ptr<const platform::Opaque>(track));
  return platform::description(platform::Value(std::move(list)));
}

std::optional<TrackList> movieTracks(const Movie& movie) {
  if (!movie) return std::nullopt;
  return unlessEmpty(movie->tracks());
}

std::optional<TrackList> movieTrackTypes(const Movie& movie, std::int64_t type) {
  auto tracks = movieTracks(movie);
  if (!tracks || type == kAllTracks) return tracks;
  const MediaType wanted = mediaTypeOf(type);
  std::erase_if(*tracks, [wanted](const std::shared_ptr<Track>& track) { return track->mediaType() != wanted; });
  return unlessEmpty(std::move(*tracks));
}

TrackList visualTracks(const Movie& movie) {
  TrackList tracks = movieTracks(movie).value_or(TrackList());
  std::erase_if(tracks, [](const auto& track) {
    const MediaType type = track->mediaType();
    return type != MediaType::video && type != MediaType::subtitle && type != MediaType::text &&
           type != MediaType::closedCaption;
  });
  return tracks;
}

double movieDuration(const std::shared_ptr<const platform::Opaque>& someMovie) {
  if (!someMovie) return 0.0;
  log("avUtils movieDurati…- begin");
  logVerbose("          someMovie :-{}", mood(true));
  if (isVerbose()) log("          someMovie : {}", someMovie->description());
  MediaTime duration = MediaTime::zero();
  const auto* movie = dynamic_cast<const Asset*>(someMovie.get());
  // A composition knows its exact duration at once, so its copy need not be opened in a player first.
  if (movie && movie->kind() == AssetKind::composition) {
    logVerbose("AVComposition");
  } else {
    logVerbose("!AVComposition…");
  }
  if (movie) {
    duration = movie->duration();
  } else {
    log("avUtils > movieDuration : class not yet handeled yet : {}", someMovie->description());
  }
  const double seconds = secondsOf(duration);
  if (isVerbose()) {
    log("videoDuration       : {}/{} == {:.3f}", withoutZero(duration.value), duration.scale, seconds);
  }
  // The detour over milliseconds cuts nothing, but its rounding is part of the answer.
  return seconds * 1000.0 / 1000.0;
}

TimeRange movieTracksTimeRange(const Movie& movie, std::int64_t type) {
  logVerbose("avUtils movieTypeTr…- begin");
  const auto tracks = movieTrackTypes(movie, type);
  if (!tracks) {
    log("movieTypeTra… range :-( invalid (no available track type={})", type);
    return TimeRange::invalid();
  }
  if (isVerbose()) log("movieTypeTra… tracks : {}", tracksDescription(*tracks));

  // Starting at zero is intended: the range never starts later, and its duration is an end rather than a length.
  double minStart = 0.0;
  double maxEnd = 0.0;
  for (std::size_t i = 0; i < tracks->size(); ++i) {
    const Track& track = *(*tracks)[i];
    if (isVerbose()) log("#{} currTrack        : {}", i, track.description());
    const TimeRange range = track.timeRange();
    const double start = range.start.seconds();
    const double duration = range.duration.seconds();
    logVerbose("stream#{}            : from:{:.2f} - duration: {:.3f}", i, start, duration);
    if (std::isnan(start) || std::isnan(duration)) return rangeFromFallback(movie, start, duration);
    minStart = std::min(start, minStart);
    maxEnd = std::max(start + duration, maxEnd);
  }
  logVerbose("avUtils movieVideoT…: from {:.3f} to (start+){:.3f}", minStart, maxEnd);
  const double thirds = 3.0 * maxEnd;
  return rangeInThirds(truncatedInteger(3.0 * minStart), thirds < 1.0 ? 1 : truncatedInteger(thirds));
}

float movieFramerate(const Movie& movie) {
  float rate = -1.0F;
  if (const auto tracks = movieTrackTypes(movie, kVideoTracks)) {
    for (std::size_t i = 0; i < tracks->size(); ++i) {
      rate = (*tracks)[i]->nominalFrameRate();
      log("#{} framerateFloat   = {:.3f}", i, rate);
    }
  }
  const TimeRange range = movieTracksTimeRange(movie, kVideoTracks);
  const auto seconds = static_cast<float>(secondsOf(range.duration));
  log("tracksDurationSecFl…= {:.3f}", seconds);
  // A high rate over less than a second is not trusted; a duration that is not a number passes this test.
  const bool tooSlow = static_cast<double>(rate) < 0.11;
  const bool tooShort = static_cast<double>(rate) > 30.2 && seconds < 1.0F;
  if (tooSlow || tooShort) {
    log("Framerate           :-(");
    return 0.0F;
  }
  log("Framerate           : {:f}", rate);
  return rate;
}

}  // namespace vistrelle
