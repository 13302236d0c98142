#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

class MovieSource;

/// A movie in a file. Loads on a thread of its own, which shares nothing but LoadState with the asset: an asset may
/// be dropped, also from its own completion, while a read is stalled.
class UrlAsset : public Asset {
 public:
  /// `name` serves for descriptions only.
  UrlAsset(std::shared_ptr<InputBytes> bytes, std::string name, const MediaLimits& limits = {});
  /// Ends loading.
  ~UrlAsset() override;

  std::string description() const override;
  /// Loads on the calling thread; at once when that has been done or is going on elsewhere.
  void loadNow();
  AssetKind kind() const override { return AssetKind::urlAsset; }
  void loadValuesAsynchronously(std::span<const std::string> keys, std::function<void()> completion) override;
  void cancelLoading() override;
  std::vector<std::shared_ptr<Track>> tracks() const override;
  MediaTime duration() const override;
  bool isPlayable() const override;
  bool hasProtectedContent() const override;
  std::unique_ptr<ImageGenerator> makeImageGenerator() override;
  /// Of the track that pictures come from.
  Size naturalSize() const override;
  MovieMetadata metadata() const override;
  MediaTime headerDuration() const override;
  std::unique_ptr<AssetReader> makeReader(std::string* error) override;

 private:
  struct LoadState;
  std::shared_ptr<MovieSource> source() const;

  std::shared_ptr<LoadState> state_;
  std::string name_;
};

/// Opens movies with libavformat, in this process.
class FfmpegMediaLibrary : public MediaLibrary {
 public:
  explicit FfmpegMediaLibrary(const MediaLimits& limits = {}) : limits_(limits) {}
  std::shared_ptr<Asset> openAsset(const std::string& path, const OpenOptions& options) override;

 private:
  MediaLimits limits_;
};

}  // namespace vistrelle::platform
