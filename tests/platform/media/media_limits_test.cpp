// Limits that a library hands down, and the decoders that a movie may start.

#include <gtest/gtest.h>

#include <limits>

#include "tests/platform/media/movie_loading.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::testing {
namespace {

using platform::FfmpegMediaLibrary;
using platform::MediaLimits;
using platform::MediaTime;

std::shared_ptr<platform::Asset> loadedWithin(const MediaLimits& limits) {
  const auto asset = FfmpegMediaLibrary(limits).openAsset(dataFile("prog_8s.mp4"), {});
  return asset && load(*asset) ? asset : nullptr;
}

TEST(MediaLimitsTest, FrameSizesAreComparedWithoutOverflow) {
  const MediaLimits limits;
  EXPECT_TRUE(limits.allowsFrame(16384, 16384));
  EXPECT_FALSE(limits.allowsFrame(16384, 16385));
  EXPECT_FALSE(limits.allowsFrame(std::numeric_limits<std::int64_t>::max(), 2));
  EXPECT_FALSE(limits.allowsFrame(std::numeric_limits<std::int32_t>::max(), std::numeric_limits<std::int32_t>::max()));
  EXPECT_TRUE(limits.allowsFrame(0, 0));
}

TEST(MediaLimitsTest, AMovieWithLargerPicturesGivesNone) {
  MediaLimits limits;
  limits.maxPixels = 1000;
  const auto asset = loadedWithin(limits);
  ASSERT_TRUE(asset);
  const auto generator = asset->makeImageGenerator();
  EXPECT_FALSE(generator && generator->copyFrame(MediaTime::zero()).picture);
}

// The coding of a raw stream is found by opening a decoder, which has the same limit.
TEST(MediaLimitsTest, LargerPicturesAreNotDecodedForFactsEither) {
  const ScratchFolder folder;
  const std::string movie = folder.file("movie.avi");
  ASSERT_EQ(runProgram({"ffmpeg", "-v", "error", "-f", "lavfi", "-i", "testsrc=s=160x96:r=5", "-t", "1", "-c:v", "png",
                        "-pix_fmt", "rgb24", movie})
                .status,
            0);
  const auto formatFound = [&](std::int64_t pixels) {
    MediaLimits limits;
    limits.maxPixels = pixels;
    const auto demuxer = platform::Demuxer::open(platform::InputFile::open(movie, nullptr),
                                                 std::make_shared<platform::Interrupt>(limits), true, nullptr);
    return demuxer ? demuxer->stream(0)->codecpar->format : -2;
  };
  EXPECT_EQ(formatFound(1000), AV_PIX_FMT_NONE);
  EXPECT_EQ(formatFound(160 * 96), AV_PIX_FMT_RGB24);
}

TEST(MediaLimitsTest, AMovieOfMoreStreamsIsUnreadable) {
  MediaLimits limits;
  limits.maxStreams = 1;
  RecordingLog log;
  const auto asset = loadedWithin(limits);
  ASSERT_TRUE(asset);
  EXPECT_TRUE(asset->tracks().empty());
  EXPECT_TRUE(log.hasContaining("movie open          :-( '"));
}

TEST(MediaLimitsTest, OpeningEndsAtItsDeadline) {
  MediaLimits limits;
  limits.opening = std::chrono::milliseconds(-1);
  RecordingLog log;
  const auto asset = loadedWithin(limits);
  ASSERT_TRUE(asset);
  EXPECT_TRUE(asset->tracks().empty());
  EXPECT_TRUE(log.hasContaining("Immediate exit requested"));
}

TEST(Decoders, AreTakenFromTheListOnly) {
  for (const AVCodecID codec :
       {AV_CODEC_ID_H264, AV_CODEC_ID_HEVC, AV_CODEC_ID_AV1, AV_CODEC_ID_PRORES, AV_CODEC_ID_MPEG2VIDEO,
        AV_CODEC_ID_RAWVIDEO, AV_CODEC_ID_AAC, AV_CODEC_ID_PCM_S24LE, AV_CODEC_ID_ADPCM_IMA_QT, AV_CODEC_ID_JPEG2000}) {
    const AVCodec* decoder = platform::findDecoder(codec);
    ASSERT_TRUE(decoder) << avcodec_get_name(codec);
    EXPECT_EQ(decoder->id, codec);
  }
  for (const AVCodecID codec : {AV_CODEC_ID_WRAPPED_AVFRAME, AV_CODEC_ID_SVG, AV_CODEC_ID_ANSI, AV_CODEC_ID_BINTEXT,
                                AV_CODEC_ID_XBIN, AV_CODEC_ID_CODEC2, AV_CODEC_ID_NONE}) {
    EXPECT_FALSE(platform::findDecoder(codec)) << avcodec_get_name(codec);
  }
  const std::string list = "," + platform::decoderList() + ",";
  EXPECT_NE(list.find(",h264,"), std::string::npos);
  EXPECT_NE(list.find(",pcm_s16le,"), std::string::npos);
  EXPECT_EQ(list.find(",ansi,"), std::string::npos);
  EXPECT_EQ(list.find(",librsvg,"), std::string::npos);
}

}  // namespace
}  // namespace vistrelle::testing
