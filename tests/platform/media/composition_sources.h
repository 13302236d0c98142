#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/composition.h"

/// Sources whose frames are known by number, for tests of what a composition shows.
namespace vistrelle::testing {

/// No frame: what an empty stretch shows.
constexpr int kNoFrame = -1;

inline platform::MediaTime timeOf(std::int64_t value, std::int32_t scale = 1) {
  return platform::MediaTime::make(value, scale);
}
inline platform::TimeRange rangeFrom(std::int64_t start, std::int64_t duration, std::int32_t scale = 1) {
  return {timeOf(start, scale), timeOf(duration, scale)};
}

/// A picture that holds a number.
inline std::shared_ptr<const platform::Picture> numberedPicture(int number) {
  static std::map<int, std::shared_ptr<const platform::Picture>> made;
  auto& picture = made[number];
  if (!picture) {
    const auto bitmap = platform::Bitmap::make(1, 1);
    for (int i = 0; i < 3; ++i) bitmap->row(0)[i] = static_cast<std::uint8_t>(number >> (8 * i));
    picture = std::make_shared<const platform::Picture>(bitmap);
  }
  return picture;
}
inline int numberOf(const platform::FrameResult& result) {
  if (!result.picture) return kNoFrame;
  const std::uint8_t* pixel = result.picture->bitmap()->row(0);
  return pixel[0] | pixel[1] << 8 | pixel[2] << 16;
}

/// `count` frames, 1/rate seconds each, the first at `start` frames and numbered `first`. Frames start exactly where
/// they say: no clock rounds.
class NumberedTrack : public platform::Track {
 public:
  NumberedTrack(std::int32_t rate, int count, int first, int start = 0,
                platform::MediaType type = platform::MediaType::video)
      : rate_(rate), count_(count), first_(first), start_(start), type_(type) {}

  std::string description() const override { return "numbered"; }
  std::int32_t trackId() const override { return id; }
  platform::MediaType mediaType() const override { return type_; }
  platform::OptionalText mediaTypeCode() const override { return code; }
  std::vector<platform::FormatDescription> formatDescriptions() const override { return formats; }
  platform::Size naturalSize() const override { return size; }
  bool isEnabled() const override { return enabled; }
  platform::TimeRange timeRange() const override { return rangeFrom(start_, count_, rate_); }
  float nominalFrameRate() const override { return static_cast<float>(rate_); }
  bool isDecodable() const override { return true; }
  platform::TrackDetails details() const override { return told; }
  std::unique_ptr<platform::ImageGenerator> makeImageGenerator() const override;

  platform::TrackDetails told;
  std::int32_t id = 1;
  platform::OptionalText code = "vide";
  std::vector<platform::FormatDescription> formats;
  platform::Size size{64, 48};
  bool enabled = true;

 private:
  class Generator;

  std::int32_t rate_;
  int count_;
  int first_;
  int start_;
  platform::MediaType type_;
};

class NumberedTrack::Generator : public platform::ImageGenerator {
 public:
  explicit Generator(const NumberedTrack& track) : track_(track) {}
  void setAppliesPreferredTrackTransform(bool) override {}
  void setApertureMode(platform::ApertureMode) override {}
  void announce(std::span<const platform::MediaTime>) override {}
  platform::FrameResult copyFrame(const platform::MediaTime& time) override {
    // Seconds x rate, rounded down.
    __extension__ using Wide = __int128;
    const Wide dividend = Wide{time.value} * track_.rate_;
    Wide frame = dividend / time.scale;
    if (dividend < 0 && dividend % time.scale != 0) --frame;
    const int index = std::clamp(static_cast<int>(frame) - track_.start_, 0, track_.count_ - 1);
    return {numberedPicture(track_.first_ + index), timeOf(track_.start_ + index, track_.rate_), {}};
  }

 private:
  NumberedTrack track_;
};

inline std::unique_ptr<platform::ImageGenerator> NumberedTrack::makeImageGenerator() const {
  return std::make_unique<Generator>(*this);
}

/// A loaded movie of given tracks.
class MovieOfTracks : public platform::Asset {
 public:
  MovieOfTracks(std::vector<std::shared_ptr<platform::Track>> tracks, platform::MediaTime duration)
      : tracks_(std::move(tracks)), duration_(duration) {}
  std::string description() const override { return "movie of tracks"; }
  platform::AssetKind kind() const override { return platform::AssetKind::urlAsset; }
  void loadValuesAsynchronously(std::span<const std::string>, std::function<void()>) override {}
  void cancelLoading() override {}
  std::vector<std::shared_ptr<platform::Track>> tracks() const override { return tracks_; }
  platform::MediaTime duration() const override { return duration_; }
  bool isPlayable() const override { return true; }
  bool hasProtectedContent() const override { return false; }
  std::unique_ptr<platform::ImageGenerator> makeImageGenerator() override { return nullptr; }

 private:
  std::vector<std::shared_ptr<platform::Track>> tracks_;
  platform::MediaTime duration_;
};

}  // namespace vistrelle::testing
