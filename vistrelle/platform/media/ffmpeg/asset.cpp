#include "vistrelle/platform/media/ffmpeg/asset.h"

#include <mutex>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/ffmpeg/movie_sample_reader.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"
#include "vistrelle/platform/media/loading.h"

namespace vistrelle::platform {
/// What the asset and its loading thread share.
struct UrlAsset::LoadState {
  Loading loading;
  std::shared_ptr<InputBytes> bytes;
  std::shared_ptr<Interrupt> interrupt;
  std::shared_ptr<MovieSource> source;
  std::vector<std::shared_ptr<Track>> tracks;

  void load(const std::string& name);
  void cancel();
};

void UrlAsset::LoadState::load(const std::string& name) {
  std::string error;
  interrupt->deadline = Interrupt::Clock::now() + interrupt->limits.opening;
  std::shared_ptr<MovieSource> opened = MovieSource::open(bytes, interrupt, &error);
  interrupt->deadline = Interrupt::Clock::time_point::max();
  const auto completions = loading.end([&] {
    source = std::move(opened);
    for (std::size_t i = 0; source && i < source->streams().size(); ++i) {
      if (source->streams()[i].isTrack) tracks.push_back(std::make_shared<MovieTrack>(source, static_cast<int>(i)));
    }
    bytes.reset();
  });
  if (!completions) return;
  if (!error.empty()) log("movie open          :-( '{}': {}", name, error);
  Loading::callAll(*completions);
}

void UrlAsset::LoadState::cancel() {
  loading.cancel([this] { interrupt->requested = true; });
}

UrlAsset::UrlAsset(std::shared_ptr<InputBytes> bytes, std::string name, const MediaLimits& limits)
    : state_(std::make_shared<LoadState>()), name_(std::move(name)) {
  state_->bytes = std::move(bytes);
  state_->interrupt = std::make_shared<Interrupt>(limits);
}

UrlAsset::~UrlAsset() {
  state_->cancel();
}

std::string UrlAsset::description() const {
  return format("<Asset: {}>", name_);
}

void UrlAsset::loadValuesAsynchronously(std::span<const std::string>, std::function<void()> completion) {
  // All facts come from one look at the movie, whichever are asked for.
  state_->loading.request(std::move(completion), [state = state_, name = name_] { state->load(name); });
}

void UrlAsset::loadNow() {
  if (state_->loading.begin()) state_->load(name_);
}

void UrlAsset::cancelLoading() {
  state_->cancel();
}

std::vector<std::shared_ptr<Track>> UrlAsset::tracks() const {
  const std::lock_guard lock(state_->loading.mutex());
  return state_->tracks;
}

MediaTime UrlAsset::duration() const {
  const std::lock_guard lock(state_->loading.mutex());
  return state_->source ? state_->source->duration() : MediaTime::zero();
}

bool UrlAsset::isPlayable() const {
  bool any = false;
  for (const std::shared_ptr<Track>& track : tracks()) {
    if (track->mediaType() != MediaType::video && track->mediaType() != MediaType::audio) continue;
    if (!track->isDecodable()) return false;
    any = true;
  }
  return any;
}

bool UrlAsset::hasProtectedContent() const {
  for (const std::shared_ptr<Track>& track : tracks()) {
    if (track->isProtected()) return true;
  }
  return false;
}

std::shared_ptr<MovieSource> UrlAsset::source() const {
  const std::lock_guard lock(state_->loading.mutex());
  return state_->source;
}

std::unique_ptr<ImageGenerator> UrlAsset::makeImageGenerator() {
  const std::shared_ptr<MovieSource> movie = source();
  const int stream = movie ? movie->pictureStream() : -1;
  return stream < 0 ? nullptr : MovieTrack(movie, stream).makeImageGenerator();
}

Size UrlAsset::naturalSize() const {
  const std::shared_ptr<MovieSource> movie = source();
  const int stream = movie ? movie->pictureStream() : -1;
  return stream < 0 ? Size{} : MovieTrack(movie, stream).naturalSize();
}

MovieMetadata UrlAsset::metadata() const {
  const std::shared_ptr<MovieSource> movie = source();
  return movie ? movie->metadata() : MovieMetadata{};
}

MediaTime UrlAsset::headerDuration() const {
  const std::shared_ptr<MovieSource> movie = source();
  return movie ? movie->headerDuration() : MediaTime::invalid();
}

std::unique_ptr<AssetReader> UrlAsset::makeReader(std::string* error) {
  std::shared_ptr<MovieSource> movie = source();
  if (movie) return makeSampleReader(std::move(movie));
  if (error != nullptr) *error = "the movie has not been loaded";
  return nullptr;
}

std::shared_ptr<Asset> FfmpegMediaLibrary::openAsset(const std::string& path, const OpenOptions&) {
  std::string error;
  std::shared_ptr<InputFile> file = InputFile::open(path, &error);
  if (!file) {
    log("movie open          :-( '{}': {}", path, error);
    return nullptr;
  }
  return std::make_shared<UrlAsset>(std::move(file), path, limits_);
}

Seam<MediaLibrary>& mediaLibrary() {
  static Seam<MediaLibrary> seam(
      []() -> std::shared_ptr<MediaLibrary> { return std::make_shared<FfmpegMediaLibrary>(); });
  return seam;
}

}  // namespace vistrelle::platform
