#include "vistrelle/platform/media/composition_generator.h"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

namespace vistrelle::platform {
namespace {

bool isScaled(const Segment& segment) {
  return segment.source.duration != segment.target.duration;
}

class CompositionGenerator : public ImageGenerator {
 public:
  explicit CompositionGenerator(std::vector<Segment> segments) : segments_(std::move(segments)) {}

  void setAppliesPreferredTrackTransform(bool applies) override {
    appliesTransform_ = applies;
    for (const auto& [track, generator] : generators_) generator->setAppliesPreferredTrackTransform(applies);
  }
  void setApertureMode(ApertureMode mode) override {
    mode_ = mode;
    for (const auto& [track, generator] : generators_) generator->setApertureMode(mode);
  }
  void announce(std::span<const MediaTime> times) override;
  FrameResult copyFrame(const MediaTime& time) override;

  /// Makes the generators of all sources; false when there is none or one has no pictures.
  bool prepare();

 private:
  struct Place {
    const Segment* segment = nullptr;
    MediaTime source;
  };
  std::optional<Place> placeOf(const MediaTime& time) const;
  FrameResult lastFrameBefore(ImageGenerator& generator, const MediaTime& end) const;

  std::vector<Segment> segments_;
  std::map<const Track*, std::unique_ptr<ImageGenerator>> generators_;
  bool appliesTransform_ = false;
  ApertureMode mode_ = ApertureMode::cleanAperture;
};

bool CompositionGenerator::prepare() {
  for (const Segment& segment : segments_) {
    if (!segment.track || generators_.contains(segment.track.get())) continue;
    std::unique_ptr<ImageGenerator> generator = segment.track->makeImageGenerator();
    if (!generator) return false;
    generators_.emplace(segment.track.get(), std::move(generator));
  }
  return !generators_.empty();
}

std::optional<CompositionGenerator::Place> CompositionGenerator::placeOf(const MediaTime& time) const {
  if (!time.isValid() || (time.flags & MediaTime::kIndefinite) != 0) return std::nullopt;
  const Segment* first = nullptr;
  const Segment* last = nullptr;
  for (const Segment& segment : segments_) {
    if (!segment.track) {
      const bool isBetweenPieces = first != nullptr && &segment != &segments_.back();
      if (isBetweenPieces && segment.target.contains(time)) return std::nullopt;
      continue;
    }
    if (segment.target.contains(time)) {
      const MediaTime within = scaled(time - segment.target.start, segment.source.duration, segment.target.duration);
      return Place{&segment, segment.source.start + within};
    }
    if (first == nullptr) first = &segment;
    last = &segment;
  }
  if (first == nullptr) return std::nullopt;
  if (time < first->target.start) return Place{first, first->source.start};
  return Place{last, last->source.end()};
}

void CompositionGenerator::announce(std::span<const MediaTime> times) {
  std::map<const Track*, std::vector<MediaTime>> perTrack;
  for (const MediaTime& time : times) {
    if (const std::optional<Place> place = placeOf(time))
      perTrack[place->segment->track.get()].push_back(place->source);
  }
  for (const auto& [track, generator] : generators_) generator->announce(perTrack[track]);
}

/// A generator takes the tick nearest to a time, so a step back of less than half a tick changes nothing and one of
/// up to a whole tick goes back exactly one: doubling the step finds the last frame before `end` and no earlier one.
FrameResult CompositionGenerator::lastFrameBefore(ImageGenerator& generator, const MediaTime& end) const {
  constexpr std::int32_t kFinest = 1 << 20;
  constexpr std::int32_t kCoarsest = 4;
  FrameResult result = generator.copyFrame(end);
  for (std::int32_t scale = kFinest; scale >= kCoarsest && result.picture && result.actualTime >= end; scale /= 2) {
    result = generator.copyFrame(end - MediaTime::make(1, scale));
  }
  if (!result.picture || result.actualTime < end) return result;
  return {nullptr, MediaTime::invalid(), "no frame begins before the end of the piece"};
}

FrameResult CompositionGenerator::copyFrame(const MediaTime& time) {
  const std::optional<Place> place = placeOf(time);
  if (!place) return {nullptr, MediaTime::invalid(), "no picture at this time of the composition"};
  const Segment& segment = *place->segment;
  ImageGenerator& generator = *generators_.at(segment.track.get());
  const MediaTime end = segment.source.end();
  FrameResult result;
  if (place->source < end) result = generator.copyFrame(place->source);
  // At the end of a piece the source may show a frame that no longer belongs to it.
  if (place->source >= end || (result.picture && result.actualTime >= end)) {
    result = lastFrameBefore(generator, end);
  } else if (isScaled(segment) && result.picture && result.actualTime > place->source) {
    // Half a tick of the source may be many of the composition: here the frame that begins there is still to come.
    const FrameResult before = lastFrameBefore(generator, result.actualTime);
    if (before.picture) result = before;
  }
  if (!result.picture) return result;
  const MediaTime within = result.actualTime - segment.source.start;
  const MediaTime shown = segment.target.start + scaled(within, segment.target.duration, segment.source.duration);
  result.actualTime = std::max(shown, segment.target.start);
  return result;
}

}  // namespace

std::unique_ptr<ImageGenerator> makeCompositionGenerator(std::vector<Segment> segments) {
  auto generator = std::make_unique<CompositionGenerator>(std::move(segments));
  return generator->prepare() ? std::move(generator) : nullptr;
}

}  // namespace vistrelle::platform
