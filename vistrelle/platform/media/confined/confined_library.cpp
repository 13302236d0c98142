#include "vistrelle/platform/media/confined/confined_library.h"

#include <utility>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/confined/confined_asset.h"
#include "vistrelle/platform/media/confined/decoding_libraries.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"

namespace vistrelle::platform {

ConfinedMediaLibrary::ConfinedMediaLibrary(ConfinedOptions options) : options_(std::move(options)) {}

ConfinedMediaLibrary::~ConfinedMediaLibrary() = default;

bool ConfinedMediaLibrary::prepare() {
  const std::lock_guard lock(mutex_);
  if (std::exchange(isPrepared_, true)) return nursery_ != nullptr;
  WorkerBody body = options_.body;
  if (!body) body = [worker = options_.worker](const Channel& channel) { runWorker(channel, worker); };
  std::string error;
  nursery_ = Nursery::start(std::move(body), &loadDecodingLibraries, &error);
  if (nursery_) {
    if (options_.whenStarted) options_.whenStarted();
    return true;
  }
  log("movie confinement   :-/ none, movies are read in this process ({})", error);
  fallback_ = std::make_shared<FfmpegMediaLibrary>();
  return false;
}

std::shared_ptr<Nursery> ConfinedMediaLibrary::nursery() const {
  const std::lock_guard lock(mutex_);
  return nursery_;
}

std::shared_ptr<Asset> ConfinedMediaLibrary::openAsset(const std::string& path, const OpenOptions& options) {
  if (!prepare()) return fallback_->openAsset(path, options);
  std::string error;
  std::shared_ptr<InputFile> file = InputFile::open(path, &error);
  if (!file) {
    log("movie open          :-( '{}': {}", path, error);
    return nullptr;
  }
  return std::make_shared<ConfinedAsset>(
      std::make_shared<ConfinedMovie>(nursery(), std::move(file), path, options_.silence, options_.longestAnswer));
}

}  // namespace vistrelle::platform
