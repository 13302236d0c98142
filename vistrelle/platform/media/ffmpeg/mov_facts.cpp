#include "vistrelle/platform/media/ffmpeg/mov_facts.h"

#include <algorithm>
#include <limits>

namespace vistrelle::platform {
namespace {

MediaTime timeOf(std::uint64_t value, std::uint32_t scale) {
  const auto limited = std::min<std::uint64_t>(value, std::numeric_limits<std::int64_t>::max());
  const auto time = static_cast<std::int64_t>(limited);
  // Scales beyond 31 bits are legal and absurd; half the scale is still finer than a nanosecond.
  if (scale > 0x7fffffff) return MediaTime::make(time / 2, static_cast<std::int32_t>(scale / 2));
  return MediaTime::make(time, static_cast<std::int32_t>(scale));
}

MediaTime signedTimeOf(std::int64_t value, std::uint32_t scale) {
  // Negated as an unsigned number: the lowest value has no positive counterpart.
  const auto magnitude = static_cast<std::uint64_t>(value);
  return value >= 0 ? timeOf(magnitude, scale) : MediaTime::zero() - timeOf(0 - magnitude, scale);
}

TimeRange between(const MediaTime& start, const MediaTime& end) {
  return {start, end - start};
}

/// The stretch of the movie that the edits fill with samples: [start, end).
struct Covered {
  MediaTime start;
  MediaTime end;
};

/// Walks the edits along the movie's timeline. Rates are taken as 1, as libavformat takes them, so that these facts
/// and the times of packets agree.
Covered coveredByEdits(const mov::Track& track, const mov::MovieHeader& movie) {
  const MediaTime mediaStart = signedTimeOf(track.samples.firstPresentation, track.timeScale);
  const MediaTime mediaEnd = signedTimeOf(track.samples.endOfPresentation, track.timeScale);
  Covered covered;
  MediaTime position = MediaTime::zero();
  for (const mov::Edit& edit : track.edits) {
    const MediaTime length = timeOf(edit.duration, movie.timeScale);
    if (edit.mediaTime >= 0) {
      const MediaTime from = signedTimeOf(edit.mediaTime, track.timeScale);
      // In fragmented movies the edit list was written before its samples: it says where they start, not how many.
      const bool isOpen = movie.fragmentCount > 0 || edit.duration == 0;
      const MediaTime available = mediaEnd - from;
      const MediaTime shown = isOpen ? available : std::min(length, available);
      if (shown > MediaTime::zero()) {
        const MediaTime late = mediaStart > from && !covered.start.isValid() ? mediaStart - from : MediaTime::zero();
        if (!covered.start.isValid()) covered.start = position + std::min(late, shown);
        covered.end = position + shown;
      }
      if (isOpen) return covered;
    }
    position = position + length;
  }
  return covered;
}

}  // namespace

TimeRange rangeOf(const mov::Track& track, const mov::MovieHeader& movie) {
  if (track.samples.count == 0 || track.timeScale == 0) return TimeRange::invalid();
  if (!track.edits.empty() && movie.timeScale > 0) {
    const Covered covered = coveredByEdits(track, movie);
    if (covered.start.isValid()) return between(covered.start, covered.end);
  }
  return between(signedTimeOf(track.samples.firstPresentation, track.timeScale),
                 signedTimeOf(track.samples.endOfPresentation, track.timeScale));
}

float frameRateOf(const mov::Track& track) {
  if (track.samples.duration == 0) return 0;
  return static_cast<float>(static_cast<double>(track.samples.count) * track.timeScale /
                            static_cast<double>(track.samples.duration));
}

MediaType mediaTypeOf(mov::FourCc handler) {
  switch (handler) {
    case mov::fourCc("vide"):
      return MediaType::video;
    case mov::fourCc("soun"):
      return MediaType::audio;
    case mov::fourCc("sbtl"):
    case mov::fourCc("subt"):
    case mov::fourCc("subp"):
      return MediaType::subtitle;
    case mov::fourCc("text"):
      return MediaType::text;
    case mov::fourCc("clcp"):
      return MediaType::closedCaption;
    case mov::fourCc("tmcd"):
      return MediaType::timecode;
    case mov::fourCc("meta"):
      return MediaType::metadata;
    default:
      return MediaType::other;
  }
}

bool hasUnreachableData(const mov::Track& track) {
  const std::size_t index = track.dataReferenceIndex;
  if (index == 0 || index > track.dataReferences.size()) return false;
  const mov::DataReference& reference = track.dataReferences[index - 1];
  return !reference.isSelfContained && reference.type != mov::fourCc("alis");
}

}  // namespace vistrelle::platform
