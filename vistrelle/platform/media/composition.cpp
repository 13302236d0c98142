#include "vistrelle/platform/media/composition.h"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/composition_generator.h"

namespace vistrelle::platform {
namespace {

bool fail(std::string* error, const char* text) {
  if (error != nullptr) *error = text;
  return false;
}

Segment emptySegment(const MediaTime& start, const MediaTime& end) {
  const TimeRange stretch{start, end - start};
  return {nullptr, stretch, stretch};
}

class TrackInComposition : public CompositionTrack {
 public:
  TrackInComposition(std::int32_t id, MediaType type) : id_(id), type_(type) {}
  TrackInComposition(std::int32_t id, MediaType type, std::vector<Segment> segments)
      : id_(id), type_(type), segments_(std::move(segments)) {}

  std::string description() const override {
    return format("<CompositionTrack: {}, {} segments>", id_, segments().size());
  }
  std::int32_t trackId() const override { return id_; }
  MediaType mediaType() const override { return type_; }
  bool isEnabled() const override { return true; }
  TimeRange timeRange() const override;
  float nominalFrameRate() const override;
  bool isDecodable() const override;
  bool isProtected() const override;
  std::unique_ptr<ImageGenerator> makeImageGenerator() const override;
  bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Track>& track, const MediaTime& at,
                       std::string* error) override;
  std::vector<Segment> segments() const override {
    const std::lock_guard lock(mutex_);
    return segments_;
  }

 private:
  std::size_t openGapAt(const MediaTime& at);

  const std::int32_t id_;
  const MediaType type_;
  mutable std::mutex mutex_;
  std::vector<Segment> segments_;  // each begins where the one before ends; the first at zero
};

TimeRange TrackInComposition::timeRange() const {
  const std::vector<Segment> all = segments();
  const auto filled = [](const Segment& segment) { return segment.track != nullptr; };
  const auto first = std::ranges::find_if(all, filled);
  if (first == all.end()) return TimeRange::invalid();
  const auto last = std::find_if(all.rbegin(), all.rend(), filled);
  return {first->target.start, last->target.end() - first->target.start};
}

/// The rates of the pieces, each weighted by its length.
float TrackInComposition::nominalFrameRate() const {
  double frames = 0;
  double seconds = 0;
  for (const Segment& segment : segments()) {
    if (!segment.track) continue;
    const double length = segment.target.duration.seconds();
    frames += segment.track->nominalFrameRate() * length;
    seconds += length;
  }
  return seconds > 0 ? static_cast<float>(frames / seconds) : 0.0F;
}

bool TrackInComposition::isDecodable() const {
  const std::vector<Segment> all = segments();
  return std::ranges::all_of(all,
                             [](const Segment& segment) { return !segment.track || segment.track->isDecodable(); });
}

bool TrackInComposition::isProtected() const {
  const std::vector<Segment> all = segments();
  return std::ranges::any_of(all, [](const Segment& segment) { return segment.track && segment.track->isProtected(); });
}

std::unique_ptr<ImageGenerator> TrackInComposition::makeImageGenerator() const {
  return type_ == MediaType::video ? makeCompositionGenerator(segments()) : nullptr;
}

/// The place in the list where a segment that begins at `at` belongs: a segment that runs over it is cut in two, and
/// an end that lies before it is moved there by an empty stretch.
std::size_t TrackInComposition::openGapAt(const MediaTime& at) {
  const MediaTime end = segments_.empty() ? MediaTime::zero() : segments_.back().target.end();
  if (at > end) segments_.push_back(emptySegment(end, at));
  for (std::size_t i = 0; i < segments_.size(); ++i) {
    Segment& segment = segments_[i];
    if (segment.target.start == at) return i;
    if (!segment.target.contains(at)) continue;
    const MediaTime head = at - segment.target.start;
    Segment tail = segment;
    tail.source = {segment.source.start + head, segment.source.duration - head};
    tail.target = {at, segment.target.duration - head};
    segment.source.duration = head;
    segment.target.duration = head;
    segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(i) + 1, std::move(tail));
    return i + 1;
  }
  return segments_.size();
}

bool TrackInComposition::insertTimeRange(const TimeRange& range, const std::shared_ptr<Track>& track,
                                         const MediaTime& at, std::string* error) {
  if (!track) return fail(error, "no track to insert");
  if (track->mediaType() != type_) return fail(error, "the media types differ");
  if (!range.isValid() || !range.start.isNumeric() || !range.duration.isNumeric()) {
    return fail(error, "the time range is invalid");
  }
  if (!at.isNumeric() || at < MediaTime::zero()) return fail(error, "the insertion time is invalid");
  if (range.duration == MediaTime::zero()) return true;
  const std::lock_guard lock(mutex_);
  const std::size_t index = openGapAt(at);
  for (std::size_t i = index; i < segments_.size(); ++i) {
    segments_[i].target.start = segments_[i].target.start + range.duration;
    if (!segments_[i].track) segments_[i].source.start = segments_[i].target.start;
  }
  segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(index), Segment{track, range, {at, range.duration}});
  return true;
}

class TracksTogether : public Composition {
 public:
  std::string description() const override { return format("<Composition: {} tracks>", mutableTracks().size()); }
  AssetKind kind() const override { return AssetKind::composition; }
  void loadValuesAsynchronously(std::span<const std::string>, std::function<void()> completion) override {
    // There is nothing to load; the completion still comes from another thread, as callers are used to.
    if (!completion) return;
    try {
      std::thread(completion).detach();
    } catch (const std::system_error&) {
      completion();
    }
  }
  void cancelLoading() override {}
  std::vector<std::shared_ptr<Track>> tracks() const override {
    const auto all = mutableTracks();
    return {all.begin(), all.end()};
  }
  MediaTime duration() const override;
  bool isPlayable() const override;
  bool hasProtectedContent() const override;
  std::unique_ptr<ImageGenerator> makeImageGenerator() override;
  std::shared_ptr<CompositionTrack> addMutableTrack(MediaType type, std::int32_t preferredId) override;
  std::shared_ptr<Composition> copy() const override;

 private:
  std::vector<std::shared_ptr<TrackInComposition>> mutableTracks() const {
    const std::lock_guard lock(mutex_);
    return tracks_;
  }
  bool hasTrack(std::int32_t id) const {
    return std::ranges::any_of(tracks_, [id](const auto& track) { return track->trackId() == id; });
  }

  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<TrackInComposition>> tracks_;
};

MediaTime TracksTogether::duration() const {
  MediaTime end = MediaTime::zero();
  for (const auto& track : mutableTracks()) {
    const std::vector<Segment> segments = track->segments();
    if (!segments.empty()) end = std::max(end, segments.back().target.end());
  }
  return end;
}

/// Every source has a decoder, and there is at least one sound or picture source.
bool TracksTogether::isPlayable() const {
  bool any = false;
  for (const auto& track : mutableTracks()) {
    if (track->mediaType() != MediaType::video && track->mediaType() != MediaType::audio) continue;
    if (!track->isDecodable()) return false;
    any = any || track->timeRange().isValid();
  }
  return any;
}

bool TracksTogether::hasProtectedContent() const {
  const auto all = mutableTracks();
  return std::ranges::any_of(all, [](const auto& track) { return track->isProtected(); });
}

std::unique_ptr<ImageGenerator> TracksTogether::makeImageGenerator() {
  for (const auto& track : mutableTracks()) {
    if (track->mediaType() == MediaType::video) return track->makeImageGenerator();
  }
  return nullptr;
}

std::shared_ptr<CompositionTrack> TracksTogether::addMutableTrack(MediaType type, std::int32_t preferredId) {
  const std::lock_guard lock(mutex_);
  std::int32_t id = preferredId > 0 && !hasTrack(preferredId) ? preferredId : 1;
  while (hasTrack(id)) ++id;
  tracks_.push_back(std::make_shared<TrackInComposition>(id, type));
  return tracks_.back();
}

std::shared_ptr<Composition> TracksTogether::copy() const {
  auto copied = std::make_shared<TracksTogether>();
  for (const auto& track : mutableTracks()) {
    copied->tracks_.push_back(
        std::make_shared<TrackInComposition>(track->trackId(), track->mediaType(), track->segments()));
  }
  return copied;
}

}  // namespace

std::shared_ptr<Composition> Composition::make() {
  return std::make_shared<TracksTogether>();
}

}  // namespace vistrelle::platform
