#include "vistrelle/platform/media/composition.h"

#include <algorithm>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/media/composition_track.h"

namespace vistrelle::platform {
namespace {

bool fail(std::string* error, const char* text) {
  if (error != nullptr) *error = text;
  return false;
}

/// Whether `source` can lie behind what the track holds.
bool suits(const SegmentTrack& track, const Track& source) {
  if (track.mediaType() != source.mediaType()) return false;
  return track.isEmpty() || track.mediaTypeCode() == source.mediaTypeCode();
}

class TracksTogether : public Composition {
 public:
  std::string description() const override { return format("<Composition: {} tracks>", allTracks().size()); }
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
    const auto all = allTracks();
    return {all.begin(), all.end()};
  }
  std::vector<std::shared_ptr<CompositionTrack>> mutableTracks() const override {
    const auto all = allTracks();
    return {all.begin(), all.end()};
  }
  MediaTime duration() const override;
  bool isPlayable() const override;
  bool hasProtectedContent() const override;
  std::unique_ptr<ImageGenerator> makeImageGenerator() override;
  std::shared_ptr<CompositionTrack> addMutableTrack(MediaType type, std::int32_t preferredId) override {
    return add(type, preferredId);
  }
  bool insertTimeRange(const TimeRange& range, const std::shared_ptr<Asset>& asset, const MediaTime& at,
                       std::string* error) override;
  void removeTimeRange(const TimeRange& range) override;
  void scaleTimeRange(const TimeRange& range, const MediaTime& duration) override;
  std::shared_ptr<Composition> copy() const override;

 private:
  using TrackOfSegments = std::shared_ptr<SegmentTrack>;

  std::vector<TrackOfSegments> allTracks() const {
    const std::lock_guard lock(mutex_);
    return tracks_;
  }
  bool hasTrack(std::int32_t id) const {
    return std::ranges::any_of(tracks_, [id](const auto& track) { return track->trackId() == id; });
  }
  TrackOfSegments add(MediaType type, std::int32_t preferredId);
  TrackOfSegments targetFor(const Track& source, std::vector<TrackOfSegments>& isFree);
  bool insertPieces(const std::vector<std::pair<std::shared_ptr<Track>, SegmentList>>& sources, const MediaTime& at,
                    const MediaTime& length);

  mutable std::mutex mutex_;
  std::vector<TrackOfSegments> tracks_;
};

MediaTime TracksTogether::duration() const {
  MediaTime end = MediaTime::zero();
  for (const auto& track : allTracks()) end = std::max(end, track->end());
  return end;
}

/// Every source has a decoder, and there is at least one sound or picture source.
bool TracksTogether::isPlayable() const {
  bool any = false;
  for (const auto& track : allTracks()) {
    if (track->mediaType() != MediaType::video && track->mediaType() != MediaType::audio) continue;
    if (!track->isDecodable()) return false;
    any = any || track->timeRange().isValid();
  }
  return any;
}

bool TracksTogether::hasProtectedContent() const {
  return std::ranges::any_of(allTracks(), [](const auto& track) { return track->isProtected(); });
}

std::unique_ptr<ImageGenerator> TracksTogether::makeImageGenerator() {
  TrackOfSegments chosen;
  for (const auto& track : allTracks()) {
    // Of a track without a source there is nothing to show.
    if (track->mediaType() != MediaType::video || !track->timeRange().isValid()) continue;
    if (track->isEnabled()) return track->makeImageGenerator();
    if (!chosen) chosen = track;
  }
  return chosen ? chosen->makeImageGenerator() : nullptr;
}

TracksTogether::TrackOfSegments TracksTogether::add(MediaType type, std::int32_t preferredId) {
  const std::lock_guard lock(mutex_);
  std::int32_t id = preferredId > 0 && !hasTrack(preferredId) ? preferredId : 1;
  while (hasTrack(id)) ++id;
  tracks_.push_back(std::make_shared<SegmentTrack>(id, type));
  return tracks_.back();
}

// ---- edits ------------------------------------------------------------------------------------------

bool TracksTogether::insertTimeRange(const TimeRange& range, const std::shared_ptr<Asset>& asset, const MediaTime& at,
                                     std::string* error) {
  if (!asset) return fail(error, "no movie to insert");
  if (!range.isValid() || !range.start.isNumeric() || !range.duration.isNumeric()) {
    return fail(error, "the time range is invalid");
  }
  if (!at.isNumeric() || at < MediaTime::zero()) return fail(error, "the insertion time is invalid");
  const std::vector<std::shared_ptr<Track>> sources = asset->tracks();
  if (sources.empty()) return fail(error, "the movie has no track");
  const MediaTime length = asset->duration();
  const MediaTime first = std::max(range.start, MediaTime::zero());
  const MediaTime last = length.isNumeric() ? std::min(range.end(), length) : range.end();
  if (!first.isNumeric() || !last.isNumeric() || first >= last) return true;
  const TimeRange clipped{first, last - first};
  // All pieces are taken before the first is laid down: the movie may be this one.
  std::vector<std::pair<std::shared_ptr<Track>, SegmentList>> pieces;
  for (const auto& source : sources) pieces.emplace_back(source, piecesOf(source, clipped));
  return insertPieces(pieces, at, clipped.duration) || fail(error, "the movie would be too long");
}

/// The first free track that suits the source, no longer free; else a new one.
TracksTogether::TrackOfSegments TracksTogether::targetFor(const Track& source, std::vector<TrackOfSegments>& isFree) {
  const auto found = std::ranges::find_if(isFree, [&source](const auto& track) { return suits(*track, source); });
  if (found == isFree.end()) return add(source.mediaType(), source.trackId());
  TrackOfSegments target = *found;
  isFree.erase(found);
  return target;
}

/// Lays the pieces of each source into its track and moves what follows in every track by `length`.
bool TracksTogether::insertPieces(const std::vector<std::pair<std::shared_ptr<Track>, SegmentList>>& sources,
                                  const MediaTime& at, const MediaTime& length) {
  const MediaTime end = at + length;
  if (!(std::max(duration(), at) + length).isNumeric()) return false;
  std::vector<TrackOfSegments> isFree = allTracks();
  for (const auto& [source, pieces] : sources) targetFor(*source, isFree)->lay(pieces, at, length);
  for (const auto& track : isFree) track->lay({}, at, length);
  if (duration() < end) allTracks().front()->extendTo(end);
  return true;
}

void TracksTogether::removeTimeRange(const TimeRange& range) {
  for (const auto& track : allTracks()) track->removeTimeRange(range);
}

void TracksTogether::scaleTimeRange(const TimeRange& range, const MediaTime& duration) {
  for (const auto& track : allTracks()) track->scaleTimeRange(range, duration);
}

std::shared_ptr<Composition> TracksTogether::copy() const {
  auto copied = std::make_shared<TracksTogether>();
  for (const auto& track : allTracks()) {
    copied->tracks_.push_back(std::make_shared<SegmentTrack>(track->trackId(), track->mediaType(), track->pieces()));
  }
  return copied;
}

}  // namespace

std::shared_ptr<Composition> Composition::make() {
  return std::make_shared<TracksTogether>();
}

}  // namespace vistrelle::platform
