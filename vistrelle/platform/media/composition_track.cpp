#include "vistrelle/platform/media/composition_track.h"

#include <algorithm>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/composition_generator.h"

namespace vistrelle::platform {
namespace {

bool fail(std::string* error, const char* text) {
  if (error != nullptr) *error = text;
  return false;
}

SegmentList emptyList(const MediaTime& length) {
  return SegmentList({SegmentList::emptyStretch(length)});
}

bool isSame(const FormatDescription& a, const FormatDescription& b) {
  return a.code == b.code && a.width == b.width && a.height == b.height && a.cleanAperture == b.cleanAperture;
}

}  // namespace

SegmentList piecesOf(const std::shared_ptr<Track>& track, const TimeRange& range) {
  if (const auto nested = std::dynamic_pointer_cast<CompositionTrack>(track)) {
    return SegmentList(nested->segments()).within(range);
  }
  const TimeRange samples = track->timeRange();
  if (!samples.start.isNumeric() || !samples.duration.isNumeric()) return {};
  const MediaTime first = std::max(range.start, samples.start);
  const MediaTime last = std::min(range.end(), samples.end());
  if (!last.isNumeric() || first >= last) return {};
  const TimeRange piece{first, last - first};
  return SegmentList({SegmentList::emptyStretch(first - range.start), Segment{track, piece, piece}});
}

SegmentTrack::SegmentTrack(std::int32_t id, MediaType type, SegmentList pieces)
    : id_(id), type_(type), pieces_(std::move(pieces)) {}

SegmentList SegmentTrack::pieces() const {
  const std::lock_guard lock(mutex_);
  return pieces_;
}

MediaTime SegmentTrack::end() const {
  const std::lock_guard lock(mutex_);
  return pieces_.end();
}

bool SegmentTrack::isEmpty() const {
  const std::lock_guard lock(mutex_);
  return pieces_.segments().empty();
}

void SegmentTrack::lay(SegmentList pieces, const MediaTime& at, const MediaTime& length) {
  const std::lock_guard lock(mutex_);
  if (at < pieces_.end()) pieces.insert(pieces.end(), emptyList(length - pieces.end()));
  pieces_.insert(at, pieces);
}

void SegmentTrack::extendTo(const MediaTime& end) {
  const std::lock_guard lock(mutex_);
  if (pieces_.end() < end) pieces_.insert(pieces_.end(), emptyList(end - pieces_.end()));
}

std::shared_ptr<Track> SegmentTrack::firstSource() const {
  const std::lock_guard lock(mutex_);
  const std::vector<Segment>& all = pieces_.segments();
  const auto found = std::ranges::find_if(all, [](const Segment& segment) { return segment.track != nullptr; });
  return found == all.end() ? nullptr : found->track;
}

std::vector<std::shared_ptr<Track>> SegmentTrack::sources() const {
  std::vector<std::shared_ptr<Track>> found;
  for (const Segment& segment : segments()) {
    if (segment.track) found.push_back(segment.track);
  }
  return found;
}

// ---- facts ------------------------------------------------------------------------------------------

std::string SegmentTrack::description() const {
  return format("<CompositionTrack: {}, {} segments>", id_, segments().size());
}

OptionalText SegmentTrack::mediaTypeCode() const {
  const auto source = firstSource();
  return source ? source->mediaTypeCode() : CompositionTrack::mediaTypeCode();
}

std::vector<FormatDescription> SegmentTrack::formatDescriptions() const {
  std::vector<FormatDescription> found;
  for (const auto& source : sources()) {
    for (const FormatDescription& one : source->formatDescriptions()) {
      if (std::ranges::none_of(found, [&one](const auto& other) { return isSame(one, other); })) found.push_back(one);
    }
  }
  return found;
}

Size SegmentTrack::naturalSize() const {
  const auto source = firstSource();
  return source ? source->naturalSize() : Size();
}

bool SegmentTrack::isEnabled() const {
  const auto all = sources();
  return all.empty() || std::ranges::any_of(all, [](const auto& source) { return source->isEnabled(); });
}

TimeRange SegmentTrack::timeRange() const {
  const std::vector<Segment> all = segments();
  const auto filled = [](const Segment& segment) { return segment.track != nullptr; };
  const auto first = std::ranges::find_if(all, filled);
  if (first == all.end()) return TimeRange::invalid();
  const auto last = std::find_if(all.rbegin(), all.rend(), filled);
  return {first->target.start, last->target.end() - first->target.start};
}

/// As many frames as the sources hold over the time that they are shown.
float SegmentTrack::nominalFrameRate() const {
  double frames = 0;
  double seconds = 0;
  for (const Segment& segment : segments()) {
    if (!segment.track) continue;
    frames += segment.track->nominalFrameRate() * segment.source.duration.seconds();
    seconds += segment.target.duration.seconds();
  }
  return seconds > 0 ? static_cast<float>(frames / seconds) : 0.0F;
}

bool SegmentTrack::isDecodable() const {
  return std::ranges::all_of(sources(), [](const auto& source) { return source->isDecodable(); });
}

bool SegmentTrack::isProtected() const {
  return std::ranges::any_of(sources(), [](const auto& source) { return source->isProtected(); });
}

/// Those of the first source, but for what its movie says of lengths and clocks; its rate only where it alone is shown
/// at its own speed.
TrackDetails SegmentTrack::details() const {
  std::vector<Segment> all = segments();
  std::erase_if(all, [](const Segment& segment) { return !segment.track; });
  if (all.empty()) return {};
  const std::shared_ptr<Track>& first = all.front().track;
  TrackDetails details = first->details();
  details.headerDuration = MediaTime::invalid();
  details.decodedDuration = MediaTime::invalid();
  details.startTimecode.reset();
  const bool isAlone = std::ranges::all_of(all, [&first](const Segment& segment) {
    return segment.track == first && segment.source.duration == segment.target.duration;
  });
  if (!isAlone) details.frameRate.reset();
  return details;
}

std::unique_ptr<ImageGenerator> SegmentTrack::makeImageGenerator() const {
  return type_ == MediaType::video ? makeCompositionGenerator(segments()) : nullptr;
}

// ---- edits ------------------------------------------------------------------------------------------

bool SegmentTrack::insertTimeRange(const TimeRange& range, const std::shared_ptr<Track>& track, const MediaTime& at,
                                   std::string* error) {
  if (!track) return fail(error, "no track to insert");
  if (track->mediaType() != type_) return fail(error, "the media types differ");
  if (!range.isValid() || !range.start.isNumeric() || !range.duration.isNumeric()) {
    return fail(error, "the time range is invalid");
  }
  if (!at.isNumeric() || at < MediaTime::zero()) return fail(error, "the insertion time is invalid");
  const SegmentList inserted = piecesOf(track, range);
  const std::lock_guard lock(mutex_);
  return pieces_.insert(at, inserted) || fail(error, "the track would be too long");
}

void SegmentTrack::removeTimeRange(const TimeRange& range) {
  const std::lock_guard lock(mutex_);
  pieces_.remove(range);
}

void SegmentTrack::scaleTimeRange(const TimeRange& range, const MediaTime& duration) {
  const std::lock_guard lock(mutex_);
  pieces_.scale(range, duration);
}

}  // namespace vistrelle::platform
