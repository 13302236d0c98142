#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <span>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/asset_reader.h"

/// Movies whose every answer a test decides, and wrappers that pass on what a test does not override.
namespace vistrelle::testing {

/// A track that says what its fields say.
class FakeTrack : public platform::Track {
 public:
  explicit FakeTrack(platform::MediaType itsType, platform::TimeRange itsRange = {}) : type(itsType), range(itsRange) {}

  std::int32_t trackId() const override { return id; }
  platform::MediaType mediaType() const override { return type; }
  platform::OptionalText mediaTypeCode() const override { return typeCode ? *typeCode : Track::mediaTypeCode(); }
  std::vector<platform::FormatDescription> formatDescriptions() const override { return formats; }
  platform::Size naturalSize() const override { return size; }
  bool isProtected() const override { return isEncrypted; }
  bool isEnabled() const override { return enabled; }
  platform::TimeRange timeRange() const override {
    ++rangeReads;
    return range;
  }
  float nominalFrameRate() const override { return frameRate; }
  bool isDecodable() const override { return decodable; }
  std::string description() const override { return name; }

  platform::MediaType type;
  std::optional<platform::OptionalText> typeCode;  ///< that of `type` unless set
  std::vector<platform::FormatDescription> formats;
  platform::Size size;
  bool isEncrypted = false;
  platform::TimeRange range;
  std::int32_t id = 1;
  bool enabled = true;
  float frameRate = 25.0F;
  bool decodable = true;
  std::string name = "<track>";
  mutable int rangeReads = 0;
};

/// A track with one format description a code.
inline std::shared_ptr<FakeTrack> codedTrack(platform::MediaType type, const std::vector<std::string>& codes) {
  auto track = std::make_shared<FakeTrack>(type);
  for (const std::string& code : codes) track->formats.push_back({.code = code, .cleanAperture = {}});
  return track;
}

/// A time range by its seconds, to the millisecond.
inline platform::TimeRange rangeOf(double start, double duration) {
  return {platform::MediaTime::makeWithSeconds(start, 1000), platform::MediaTime::makeWithSeconds(duration, 1000)};
}

inline std::shared_ptr<FakeTrack> videoTrack(double start, double duration) {
  return std::make_shared<FakeTrack>(platform::MediaType::video, rangeOf(start, duration));
}

/// A picture of `width` x `height` whose JPEG is well over 3 kilobytes from about 64 x 64 on; `seed` tells pictures
/// apart.
inline std::shared_ptr<const platform::Picture> noisyPicture(int width, int height, std::uint32_t seed = 1) {
  auto bitmap = platform::Bitmap::make(width, height);
  std::uint32_t state = seed * 2654435761U + 1;
  for (int y = 0; y < height; ++y) {
    std::uint8_t* row = bitmap->row(y);
    for (int i = 0; i < width * 4; ++i) {
      state = state * 1664525U + 1013904223U;
      row[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(state >> 24);
    }
  }
  return std::make_shared<const platform::Picture>(bitmap);
}

/// What a fake generator was asked; outlives the generator.
struct GeneratorRecord {
  int made = 0;
  int destroyed = 0;
  bool appliesTransform = false;
  std::vector<platform::ApertureMode> modes;  ///< as they were set
  std::vector<platform::MediaTime> announced;
  std::vector<platform::MediaTime> asked;
};

/// Answers the n-th request (from 0) with `answer(n, time)`.
class FakeGenerator : public platform::ImageGenerator {
 public:
  using Answer = std::function<platform::FrameResult(int, const platform::MediaTime&)>;
  FakeGenerator(std::shared_ptr<GeneratorRecord> record, Answer answer)
      : record_(std::move(record)), answer_(std::move(answer)) {
    ++record_->made;
  }
  ~FakeGenerator() override { ++record_->destroyed; }

  void setAppliesPreferredTrackTransform(bool applies) override { record_->appliesTransform = applies; }
  void setApertureMode(platform::ApertureMode mode) override { record_->modes.push_back(mode); }
  void announce(std::span<const platform::MediaTime> times) override {
    record_->announced.assign(times.begin(), times.end());
  }
  platform::FrameResult copyFrame(const platform::MediaTime& time) override {
    record_->asked.push_back(time);
    return answer_(static_cast<int>(record_->asked.size()) - 1, time);
  }

 private:
  std::shared_ptr<GeneratorRecord> record_;
  Answer answer_;
};

/// What a fake reader gives and was asked; outlives the reader.
struct ReaderScript {
  bool accepts = true;
  bool starts = true;
  std::vector<platform::SampleBuffer> samples;
  /// After the last sample; with a status other than completed also what `error` belongs to.
  platform::ReaderStatus ending = platform::ReaderStatus::completed;
  platform::OptionalText error;
  std::vector<std::shared_ptr<platform::Track>> outputs;
  int cancellations = 0;
};

/// Gives the samples of a script.
class FakeReader : public platform::AssetReader {
 public:
  explicit FakeReader(std::shared_ptr<ReaderScript> script) : script_(std::move(script)) {}
  bool canAddOutput(const std::shared_ptr<platform::Track>& /*track*/) const override { return script_->accepts; }
  void addOutput(const std::shared_ptr<platform::Track>& track) override { script_->outputs.push_back(track); }
  bool startReading() override {
    status_ = script_->starts ? platform::ReaderStatus::reading : platform::ReaderStatus::failed;
    return script_->starts;
  }
  std::optional<platform::SampleBuffer> copyNextSampleBuffer() override {
    if (status_ != platform::ReaderStatus::reading) return std::nullopt;
    if (next_ < script_->samples.size()) return script_->samples[next_++];
    status_ = script_->ending;
    return std::nullopt;
  }
  platform::ReaderStatus status() const override { return status_; }
  platform::OptionalText error() const override {
    return status_ == platform::ReaderStatus::failed ? script_->error : std::nullopt;
  }
  void cancelReading() override {
    ++script_->cancellations;
    status_ = platform::ReaderStatus::cancelled;
  }

 private:
  std::shared_ptr<ReaderScript> script_;
  std::size_t next_ = 0;
  platform::ReaderStatus status_ = platform::ReaderStatus::unknown;
};

/// A movie that says what its fields say. Its loading ends at once or when `finishLoading` is called.
class FakeAsset : public platform::Asset {
 public:
  ~FakeAsset() override { cancelLoading(); }

  platform::AssetKind kind() const override { return assetKind; }
  void loadValuesAsynchronously(std::span<const std::string> keys, std::function<void()> completion) override {
    requestedKeys.assign(keys.begin(), keys.end());
    {
      std::lock_guard lock(mutex_);
      completion_ = std::move(completion);
    }
    if (loadsAtOnce) finishLoading();
  }
  /// Calls the completion handler on another thread, once, and returns when it has run.
  void finishLoading() {
    std::function<void()> completion;
    {
      std::lock_guard lock(mutex_);
      completion = std::exchange(completion_, nullptr);
    }
    if (completion) std::thread([&completion] { completion(); }).join();
  }
  void cancelLoading() override {
    ++cancellations;
    finishLoading();
  }
  std::vector<std::shared_ptr<platform::Track>> tracks() const override { return trackList; }
  platform::MediaTime duration() const override { return length; }
  bool isPlayable() const override { return playable; }
  bool hasProtectedContent() const override { return isProtected; }
  std::unique_ptr<platform::ImageGenerator> makeImageGenerator() override {
    if (!answer) return nullptr;
    return std::make_unique<FakeGenerator>(record, answer);
  }
  platform::Size naturalSize() const override { return size ? *size : Asset::naturalSize(); }
  platform::MovieMetadata metadata() const override { return info; }
  std::unique_ptr<platform::AssetReader> makeReader(std::string* error) override {
    if (!reader) return Asset::makeReader(error);
    return std::make_unique<FakeReader>(reader);
  }
  std::string description() const override { return "<movie>"; }

  platform::AssetKind assetKind = platform::AssetKind::urlAsset;
  bool loadsAtOnce = true;
  std::vector<std::string> requestedKeys;
  int cancellations = 0;
  std::vector<std::shared_ptr<platform::Track>> trackList;
  platform::MediaTime length = platform::MediaTime::make(10, 1);
  bool playable = true;
  bool isProtected = false;
  FakeGenerator::Answer answer;        ///< no generator without one
  std::optional<platform::Size> size;  ///< of its first video track unless set
  platform::MovieMetadata info;
  std::shared_ptr<ReaderScript> reader;  ///< no reader without one
  std::shared_ptr<GeneratorRecord> record = std::make_shared<GeneratorRecord>();

 private:
  std::mutex mutex_;
  std::function<void()> completion_;
};

/// A playable movie with one video track of `seconds` whose frames are noise, the same for the same time.
inline std::shared_ptr<FakeAsset> videoMovie(double seconds) {
  auto asset = std::make_shared<FakeAsset>();
  asset->trackList.push_back(videoTrack(0, seconds));
  asset->length = platform::MediaTime::makeWithSeconds(seconds, 1000);
  asset->answer = [](int, const platform::MediaTime& time) {
    return platform::FrameResult{noisyPicture(96, 64, static_cast<std::uint32_t>(time.value)), time, ""};
  };
  return asset;
}

/// Hands out the movies a test puts in; opens nothing else.
class FakeLibrary : public platform::MediaLibrary {
 public:
  std::shared_ptr<platform::Asset> openAsset(const std::string& path, const platform::OpenOptions& options) override {
    opened.push_back(path);
    lastOptions = options;
    const auto found = movies.find(path);
    return found == movies.end() ? nullptr : found->second;
  }
  std::map<std::string, std::shared_ptr<platform::Asset>> movies;
  std::vector<std::string> opened;
  platform::OpenOptions lastOptions;
};

/// Sleeps and waits return at once and are counted; before the n-th wait (from 1) `beforeWait(n)` is called.
class CountingClock : public platform::FakeClock {
 public:
  void sleep(std::chrono::microseconds duration) override {
    ++sleeps;
    FakeClock::sleep(duration);
  }
  bool wait(const platform::Signal& signal, std::chrono::microseconds atMost) override {
    ++waits;
    if (beforeWait) beforeWait(waits);
    waitLengths.insert(atMost);
    if (!signal.isSet()) FakeClock::sleep(atMost);
    if (afterWait) afterWait(waits);
    return signal.isSet();
  }
  int sleeps = 0;
  int waits = 0;
  std::set<std::chrono::microseconds> waitLengths;
  std::function<void(int)> beforeWait;
  std::function<void(int)> afterWait;
};

class ForwardingTrack : public platform::Track {
 public:
  explicit ForwardingTrack(std::shared_ptr<platform::Track> next) : next_(std::move(next)) {}
  std::int32_t trackId() const override { return next_->trackId(); }
  platform::MediaType mediaType() const override { return next_->mediaType(); }
  platform::OptionalText mediaTypeCode() const override { return next_->mediaTypeCode(); }
  std::vector<platform::FormatDescription> formatDescriptions() const override { return next_->formatDescriptions(); }
  platform::Size naturalSize() const override { return next_->naturalSize(); }
  bool isProtected() const override { return next_->isProtected(); }
  platform::TrackDetails details() const override { return next_->details(); }
  std::unique_ptr<platform::ImageGenerator> makeImageGenerator() const override { return next_->makeImageGenerator(); }
  bool isEnabled() const override { return next_->isEnabled(); }
  platform::TimeRange timeRange() const override { return next_->timeRange(); }
  float nominalFrameRate() const override { return next_->nominalFrameRate(); }
  bool isDecodable() const override { return next_->isDecodable(); }
  std::string description() const override { return next_->description(); }

 private:
  std::shared_ptr<platform::Track> next_;
};

class ForwardingGenerator : public platform::ImageGenerator {
 public:
  explicit ForwardingGenerator(std::unique_ptr<platform::ImageGenerator> next) : next_(std::move(next)) {}
  void setAppliesPreferredTrackTransform(bool applies) override { next_->setAppliesPreferredTrackTransform(applies); }
  void setApertureMode(platform::ApertureMode mode) override { next_->setApertureMode(mode); }
  void announce(std::span<const platform::MediaTime> times) override { next_->announce(times); }
  platform::FrameResult copyFrame(const platform::MediaTime& time) override { return next_->copyFrame(time); }

 private:
  std::unique_ptr<platform::ImageGenerator> next_;
};

class ForwardingAsset : public platform::Asset {
 public:
  explicit ForwardingAsset(std::shared_ptr<platform::Asset> next) : next_(std::move(next)) {}
  platform::AssetKind kind() const override { return next_->kind(); }
  void loadValuesAsynchronously(std::span<const std::string> keys, std::function<void()> completion) override {
    next_->loadValuesAsynchronously(keys, std::move(completion));
  }
  void cancelLoading() override { next_->cancelLoading(); }
  std::vector<std::shared_ptr<platform::Track>> tracks() const override { return next_->tracks(); }
  platform::MediaTime duration() const override { return next_->duration(); }
  bool isPlayable() const override { return next_->isPlayable(); }
  bool hasProtectedContent() const override { return next_->hasProtectedContent(); }
  std::unique_ptr<platform::ImageGenerator> makeImageGenerator() override { return next_->makeImageGenerator(); }
  platform::Size naturalSize() const override { return next_->naturalSize(); }
  platform::MediaTime headerDuration() const override { return next_->headerDuration(); }
  platform::MovieMetadata metadata() const override { return next_->metadata(); }
  std::unique_ptr<platform::AssetReader> makeReader(std::string* error) override { return next_->makeReader(error); }
  std::string description() const override { return next_->description(); }

 private:
  std::shared_ptr<platform::Asset> next_;
};

}  // namespace vistrelle::testing
