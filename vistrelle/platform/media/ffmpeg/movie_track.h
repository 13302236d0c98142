#pragma once

#include <memory>
#include <string>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::platform {

/// One stream of an opened movie. Keeps the movie's bytes and facts alive.
class MovieTrack : public Track {
 public:
  MovieTrack(std::shared_ptr<MovieSource> source, int streamIndex)
      : source_(std::move(source)), streamIndex_(streamIndex) {}

  std::string description() const override;
  std::int32_t trackId() const override { return facts().trackId; }
  MediaType mediaType() const override { return facts().type; }
  OptionalText mediaTypeCode() const override;
  std::vector<FormatDescription> formatDescriptions() const override { return facts().notes.descriptions; }
  /// The size of its pictures in the clean aperture mode before rotation. Decodes the first frame where neither the
  /// container nor libavformat's look at the stream says which shape its pixels have.
  Size naturalSize() const override;
  TrackDetails details() const override;
  bool isEnabled() const override { return facts().isEnabled; }
  TimeRange timeRange() const override { return facts().range; }
  float nominalFrameRate() const override { return facts().frameRate; }
  bool isDecodable() const override { return facts().isDecodable; }
  bool isProtected() const override { return facts().isProtected; }
  std::unique_ptr<ImageGenerator> makeImageGenerator() const override;

  const StreamFacts& facts() const { return source_->streams()[static_cast<std::size_t>(streamIndex_)]; }
  const std::shared_ptr<MovieSource>& source() const { return source_; }

 private:
  std::shared_ptr<MovieSource> source_;
  int streamIndex_;
};

}  // namespace vistrelle::platform
