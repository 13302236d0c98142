// One read of a movie fails, as on a disk with a bad sector or a server that is gone for a moment: the movie is
// unreadable or the picture could not be made, never another picture.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <optional>

#include "tests/platform/media/movie_loading.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/imaging/drawing.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/asset_reader.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"
#include "vistrelle/platform/media/ffmpeg/duration_by_decoding.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::testing {
namespace {

using platform::FrameResult;
using platform::InputFile;
using platform::MediaTime;
using platform::UrlAsset;

/// Bytes of which one read fails: with a negative errno, or with nothing as if the file had been cut.
class OnceFailingBytes : public platform::InputBytes {
 public:
  OnceFailingBytes(const std::string& path, int failsAt, std::int64_t answer)
      : inner_(InputFile::open(path, nullptr)), failsAt_(failsAt), answer_(answer) {}
  std::int64_t size() const override { return inner_->size(); }
  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    if (offset >= size()) return 0;
    if (++reads_ == failsAt_) return answer_;
    return inner_->readAt(offset, buffer.first(std::min<std::size_t>(buffer.size(), 8192)));
  }
  int reads() const { return reads_; }
  /// The read after so many further ones fails.
  void failAfter(int reads) { failsAt_ = reads_ + reads + 1; }

 private:
  std::shared_ptr<platform::InputBytes> inner_;
  std::atomic<int> failsAt_;
  const std::int64_t answer_;
  std::atomic<int> reads_ = 0;
};

struct Shown {
  std::string time;
  std::string pixels;
  bool operator==(const Shown&) const = default;
};

Shown shown(const FrameResult& result) {
  constexpr int kSide = 64;
  const auto raster = platform::Bitmap::make(kSide, kSide);
  platform::DrawingContext(*raster).draw(*result.picture, {0, 0, kSide, kSide}, {},
                                         platform::CompositeOperation::sourceOver, 1);
  return {result.actualTime.description(),
          std::string(reinterpret_cast<const char*>(raster->row(0)), raster->rowBytes() * kSide)};
}

class FailedReads : public ::testing::TestWithParam<const char*> {
 protected:
  /// What one run gives: the picture at 60 percent of the movie, nothing when that could not be had.
  struct Run {
    std::optional<Shown> picture;
    std::optional<Shown> second;  ///< the same asked for again, where the first could not be had
    std::string words;
    int reads = 0;
  };

  Run run(int failsAt, std::int64_t answer) {
    const RecordingLog log;
    Run run;
    const auto bytes = std::make_shared<OnceFailingBytes>(dataFile(GetParam()), failsAt, answer);
    UrlAsset asset(bytes, GetParam());
    EXPECT_TRUE(load(asset));
    if (const auto generator = asset.makeImageGenerator()) {
      const MediaTime whole = asset.duration();
      const MediaTime time = MediaTime::make(whole.value * 6 / 10, whole.scale);
      const FrameResult result = generator->copyFrame(time);
      run.words = result.error;
      if (result.picture) {
        run.picture = shown(result);
      } else if (const FrameResult again = generator->copyFrame(time); again.picture) {
        run.second = shown(again);
      }
    } else if (!log.lines().empty()) {
      run.words = log.lines().back();
    }
    run.reads = bytes->reads();
    return run;
  }
};

TEST_P(FailedReads, GiveTheSamePictureOrNone) {
  const Run whole = run(0, 0);
  ASSERT_TRUE(whole.picture) << whole.words;
  int refused = 0;
  for (const std::int64_t answer : {std::int64_t{-EIO}, std::int64_t{0}}) {
    const int step = std::max(1, whole.reads / 12);
    for (int n = 1; n <= whole.reads; n += step) {
      SCOPED_TRACE("read " + std::to_string(n) + " of " + std::to_string(whole.reads) + " answers " +
                   std::to_string(answer));
      const Run failed = run(n, answer);
      if (failed.picture) {
        EXPECT_TRUE(*failed.picture == *whole.picture) << "another picture, of " << failed.picture->time;
        continue;
      }
      ++refused;
      EXPECT_FALSE(failed.words.empty());
      if (failed.second) {
        EXPECT_TRUE(*failed.second == *whole.picture) << "another picture then";
      }
    }
  }
  EXPECT_GT(refused, 0);
}

INSTANTIATE_TEST_SUITE_P(Movies, FailedReads,
                         ::testing::Values("sample_h264.ts", "sample_h262_mpeg_audio.ts", "sample.avi", "sample.flv",
                                           "sample_with_chapters.mkv", "sample_fragmented.mp4", "testWMV.wmv",
                                           "fixture.mxf", "weird_aspect.small.mpg", "metadata.mp4", "v1.mp4"),
                         [](const auto& each) {
                           std::string name = each.param;
                           std::ranges::replace_if(
                               name, [](char c) { return c == '.' || c == '_'; }, '0');
                           return name;
                         });

class FailedReadLater : public ::testing::Test {
 protected:
  void SetUp() override {
    bytes_ = std::make_shared<OnceFailingBytes>(dataFile("sample_h264.ts"), 0, -EIO);
    std::string error;
    source_ = platform::MovieSource::open(bytes_, std::make_shared<platform::Interrupt>(), &error);
    ASSERT_TRUE(source_) << error;
    stream_ = source_->pictureStream();
    ASSERT_GE(stream_, 0);
  }
  std::shared_ptr<OnceFailingBytes> bytes_;
  std::shared_ptr<platform::MovieSource> source_;
  int stream_ = -1;
};

TEST_F(FailedReadLater, LeavesADurationByDecodingUnknown) {
  EXPECT_TRUE(platform::decodedDuration(*source_, stream_).isValid());
  bytes_->failAfter(4);
  EXPECT_FALSE(platform::decodedDuration(*source_, stream_).isValid());
}

TEST_F(FailedReadLater, IsNotRememberedAsAMovieWithoutFrames) {
  bytes_->failAfter(1);
  EXPECT_FALSE(source_->firstFrame(stream_));
  EXPECT_TRUE(source_->firstFrame(stream_));
}

TEST_F(FailedReadLater, EndsTheReadingOfSamples) {
  UrlAsset asset(bytes_, "samples");
  ASSERT_TRUE(load(asset));
  const auto reader = asset.makeReader(nullptr);
  ASSERT_TRUE(reader);
  ASSERT_FALSE(asset.tracks().empty());
  reader->addOutput(asset.tracks().front());
  ASSERT_TRUE(reader->startReading());
  bytes_->failAfter(1);
  while (reader->copyNextSampleBuffer()) {
  }
  EXPECT_EQ(reader->status(), platform::ReaderStatus::failed);
  EXPECT_EQ(reader->error(), "Input/output error");
}

}  // namespace
}  // namespace vistrelle::testing
