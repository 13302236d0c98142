#include "vistrelle/platform/media/confined/confined_asset.h"

#include <algorithm>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/ahead_generator.h"
#include "vistrelle/platform/media/confined/confined_reader.h"
#include "vistrelle/platform/media/loading.h"

namespace vistrelle::platform {
namespace {

class ConfinedGenerator : public ImageGenerator {
 public:
  ConfinedGenerator(std::shared_ptr<ConfinedMovie> movie, std::int32_t track) : movie_(std::move(movie)) {
    wish_.generator = movie_->nextGenerator();
    wish_.track = track;
  }
  ~ConfinedGenerator() override { movie_->drop(wish_.generator); }
  ConfinedGenerator(const ConfinedGenerator&) = delete;
  ConfinedGenerator& operator=(const ConfinedGenerator&) = delete;

  void setAppliesPreferredTrackTransform(bool applies) override { wish_.appliesTransform = applies; }
  void setApertureMode(ApertureMode mode) override { wish_.apertureMode = mode; }

  void announce(std::span<const MediaTime> times) override {
    announced_.assign(times.begin(), times.end());
    movie_->announce(wish_, announced_);
  }

  FrameResult copyFrame(const MediaTime& time) override {
    FrameResult result = movie_->copyFrame(wish_, time, announced_);
    // A fresh worker is told only what is still to come.
    const auto asked = std::ranges::find(announced_, time);
    if (asked != announced_.end()) announced_.erase(asked);
    return result;
  }

 private:
  std::shared_ptr<ConfinedMovie> movie_;
  PictureWish wish_;
  std::vector<MediaTime> announced_;
};

}  // namespace

std::unique_ptr<ImageGenerator> ConfinedTrack::makeImageGenerator() const {
  return record_.hasPictures ? workingAhead(std::make_unique<ConfinedGenerator>(movie_, index_)) : nullptr;
}

/// What the asset and its loading thread share.
struct ConfinedAsset::LoadState {
  explicit LoadState(std::shared_ptr<ConfinedMovie> confined) : movie(std::move(confined)) {}

  const std::shared_ptr<ConfinedMovie> movie;
  Loading loading;
  MovieRecord record;
  bool isLoaded = false;
  std::vector<std::shared_ptr<Track>> tracks;

  void load();
  void cancel();
};

void ConfinedAsset::LoadState::load() {
  std::string error;
  std::optional<MovieRecord> loaded = movie->load(&error);
  const auto completions = loading.end([&] {
    if (!loaded) return;
    std::int32_t index = 0;
    for (TrackRecord& track : loaded->tracks) {
      tracks.push_back(std::make_shared<ConfinedTrack>(movie, index++, std::move(track)));
    }
    record = std::move(*loaded);
    isLoaded = true;
  });
  if (!completions) return;
  if (!error.empty()) log("movie open          :-( '{}': {}", movie->name(), error);
  Loading::callAll(*completions);
}

void ConfinedAsset::LoadState::cancel() {
  loading.cancel([this] { movie->stop(); });
}

ConfinedAsset::ConfinedAsset(std::shared_ptr<ConfinedMovie> movie)
    : state_(std::make_shared<LoadState>(std::move(movie))) {}

ConfinedAsset::~ConfinedAsset() {
  state_->cancel();
}

std::string ConfinedAsset::description() const {
  return format("<Asset: {}>", state_->movie->name());
}

void ConfinedAsset::loadValuesAsynchronously(std::span<const std::string>, std::function<void()> completion) {
  state_->loading.request(std::move(completion), [state = state_] { state->load(); });
}

void ConfinedAsset::cancelLoading() {
  state_->cancel();
}

std::vector<std::shared_ptr<Track>> ConfinedAsset::tracks() const {
  const std::lock_guard lock(state_->loading.mutex());
  return state_->tracks;
}

MovieRecord ConfinedAsset::record() const {
  const std::lock_guard lock(state_->loading.mutex());
  return state_->record;
}

MediaTime ConfinedAsset::duration() const {
  return record().duration;
}

MediaTime ConfinedAsset::headerDuration() const {
  return record().headerDuration;
}

bool ConfinedAsset::isLoaded() const {
  const std::lock_guard lock(state_->loading.mutex());
  return state_->isLoaded;
}

MovieMetadata ConfinedAsset::metadata() const {
  return isLoaded() ? state_->movie->metadata() : MovieMetadata{};
}

std::unique_ptr<AssetReader> ConfinedAsset::makeReader(std::string* error) {
  if (isLoaded()) return makeConfinedReader(state_->movie);
  if (error != nullptr) *error = "the movie has not been loaded";
  return nullptr;
}

bool ConfinedAsset::isPlayable() const {
  return record().isPlayable;
}

bool ConfinedAsset::hasProtectedContent() const {
  return record().isProtected;
}

Size ConfinedAsset::naturalSize() const {
  return state_->movie->naturalSize(-1);
}

std::unique_ptr<ImageGenerator> ConfinedAsset::makeImageGenerator() {
  // The worker decodes the next picture while this process scales and writes the one before.
  return record().hasPictures ? workingAhead(std::make_unique<ConfinedGenerator>(state_->movie, -1)) : nullptr;
}

const std::shared_ptr<ConfinedMovie>& ConfinedAsset::movie() const {
  return state_->movie;
}

}  // namespace vistrelle::platform
