// Details of tracks: frame rates, colours, HDR classes, time codes, durations where headers lie, protected tracks.

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/platform/media/information_clips.h"
#include "tests/platform/media/movie_loading.h"
#include "tests/support/clips.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"

namespace vistrelle::testing {
namespace {

using platform::Asset;
using platform::MediaTime;
using platform::MediaType;
using platform::Track;
using platform::TrackDetails;

using Words = std::vector<std::string>;

const Words kH264{"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};

TrackDetails detailsOf(const std::string& path, std::size_t track = 0) {
  const auto movie = loaded(path);
  if (!movie || movie->tracks().size() <= track) throw std::runtime_error("no such track in " + path);
  return movie->tracks()[track]->details();
}

TEST(TrackDetails, OfASampleMovie) {
  const TrackDetails details = detailsOf(dataFile("hlg10-color-test.mp4"), 1);
  EXPECT_EQ(details.codec, "hevc");
  EXPECT_EQ(details.profile, "Main 10");
  EXPECT_EQ(details.pixelFormat, "yuv420p10le");
  EXPECT_EQ(details.bitDepth, 10);
  EXPECT_EQ(details.colourPrimaries, "bt2020");
  EXPECT_EQ(details.colourTransfer, "arib-std-b67");
  EXPECT_EQ(details.colourMatrix, "bt2020nc");
  EXPECT_EQ(details.colourRange, "tv");
  EXPECT_EQ(details.hdrClass, "HLG");
}

TEST(TrackDetails, HdrClasses) {
  const ScratchFolder folder;
  EXPECT_EQ(detailsOf(dataFile("rotated_hdr_video.mov")).hdrClass, "Dolby Vision profile 8.4");
  EXPECT_EQ(detailsOf(dataFile("sample_with_colr_mdcv_and_clli.mp4")).hdrClass, "HDR10");
  EXPECT_EQ(detailsOf(dataFile("metadata.mp4")).hdrClass, "SDR");
  EXPECT_EQ(detailsOf(dataFile("metadata.mp4"), 1).hdrClass, std::nullopt);  // sound
  const auto pq = [&](const std::string& name, const std::string& more) {
    return makeClip(folder, name,
                    patternInput("160x120") + Words{"-pix_fmt", "yuv420p10le", "-c:v", "libx265", "-x265-params",
                                                    "log-level=none:colorprim=bt2020:transfer=smpte2084:"
                                                    "colormatrix=bt2020nc" +
                                                        more});
  };
  EXPECT_EQ(detailsOf(pq("pq.mp4", "")).hdrClass, "PQ");
  EXPECT_EQ(detailsOf(pq("hdr10.mp4",
                         ":max-cll=1000,400:master-display=G(13250,34500)B(7500,3000)R(34000,16000)"
                         "WP(15635,16450)L(10000000,50)"))
                .hdrClass,
            "HDR10");
}

TEST(TrackDetails, ExactFrameRatesAndWhetherTheyVary) {
  const ScratchFolder folder;
  const auto rateOf = [](const std::string& path) {
    const auto rate = detailsOf(path).frameRate;
    if (!rate) return std::string("none");
    const std::string verdict = rate->varies ? (*rate->varies ? " varies" : " constant") : " unknown";
    return std::to_string(rate->numerator) + "/" + std::to_string(rate->denominator) + verdict;
  };
  EXPECT_EQ(rateOf(makeClip(folder, "a.mp4", patternInput("160x120", "30000/1001") + kH264)), "30000/1001 constant");
  EXPECT_EQ(rateOf(makeClip(folder, "a.mkv", patternInput("160x120", "30000/1001") + kH264)), "30000/1001 constant");
  EXPECT_EQ(rateOf(makeClip(folder, "a.ts", patternInput("160x120", "60000/1001") + kH264)), "60000/1001 constant");
  EXPECT_EQ(rateOf(makeClip(folder, "a.avi", patternInput("160x120", "24") + Words{"-c:v", "mjpeg"})), "24/1 constant");
  const Words gaps{"-vf", "select=not(between(n\\,3\\,5))", "-fps_mode", "passthrough"};
  EXPECT_EQ(rateOf(makeClip(folder, "gaps.mp4", patternInput("160x120") + gaps + kH264)), "35/2 varies");
  const std::string uneven = rateOf(makeClip(folder, "gaps.mkv", patternInput("160x120") + gaps + kH264));
  EXPECT_TRUE(uneven.ends_with(" varies")) << uneven;
  EXPECT_EQ(rateOf(dataFile("sample.flv")), "30000/1001 constant");
  EXPECT_EQ(rateOf(dataFile("cursed-vfr.mp4")).ends_with(" varies"), true);
  EXPECT_EQ(rateOf(dataFile("sample_fragmented.mp4")), "30000/1001 constant");
}

TEST(TrackDetails, StartTimecodes) {
  const ScratchFolder folder;
  const std::string drop =
      makeClip(folder, "drop.mov", patternInput("160x120", "30000/1001") + kH264 + Words{"-timecode", "01:02:03;04"});
  EXPECT_EQ(detailsOf(drop, 0).startTimecode, "01:02:03;04");
  EXPECT_EQ(detailsOf(drop, 1).startTimecode, "01:02:03;04");
  const std::string whole =
      makeClip(folder, "whole.mov", patternInput("160x120") + kH264 + Words{"-timecode", "10:00:00:05"});
  EXPECT_EQ(detailsOf(whole).startTimecode, "10:00:00:05");
  EXPECT_EQ(detailsOf(makeClip(folder, "none.mov", patternInput("160x120") + kH264)).startTimecode, std::nullopt);
  const std::string inPictures = makeClip(
      folder, "gop.mpg", patternInput("160x120") + Words{"-c:v", "mpeg2video", "-gop_timecode", "00:00:10:00"});
  EXPECT_EQ(detailsOf(inPictures).startTimecode, "00:00:10:00");
}

TEST(TrackDetails, SoundAndLanguages) {
  const ScratchFolder folder;
  const Words sound{"-f", "lavfi", "-i", "sine=duration=0.5:sample_rate=44100"};
  const TrackDetails pcm = detailsOf(
      makeClip(folder, "a.mov", sound + Words{"-c:a", "pcm_s24le", "-ac", "2", "-metadata:s:a:0", "language=fra"}));
  EXPECT_EQ(pcm.codec, "pcm_s24le");
  EXPECT_EQ(pcm.bitDepth, 24);
  EXPECT_EQ(pcm.channels, 2);
  EXPECT_EQ(pcm.sampleRate, 44100);
  EXPECT_EQ(pcm.language, "fra");
  const TrackDetails aac =
      detailsOf(makeClip(folder, "a.mkv", sound + Words{"-c:a", "aac", "-metadata:s:a:0", "language=deu"}));
  EXPECT_EQ(aac.profile, "LC");
  EXPECT_EQ(aac.bitDepth, std::nullopt);
  EXPECT_TRUE(aac.language == "deu" || aac.language == "ger") << aac.language.value_or("-");
}

TEST(TrackDetails, MirroringAndTurns) {
  const TrackDetails mirrored = detailsOf(dataFile("sample_rotate_and_reflect.mp4"));
  EXPECT_TRUE(mirrored.isMirrored);
  EXPECT_EQ(mirrored.rotation, 270);
  EXPECT_EQ(detailsOf(dataFile("rotated_video.mp4")).rotation, 90);
  EXPECT_EQ(detailsOf(dataFile("metadata.mp4")).rotation, 0);
}

TEST(TrackDetails, AHeaderThatIsTrueNeedsNoDecoding) {
  const TrackDetails details = detailsOf(dataFile("metadata.mp4"));
  EXPECT_EQ(details.headerDuration, MediaTime::make(512, 12800));
  EXPECT_FALSE(details.decodedDuration.isValid());
}

TEST(TrackDetails, AHeaderThatLiesIsToldByDecoding) {
  const ScratchFolder folder;
  MovieBytes bytes(makeClip(folder, "true.mp4", patternInput("160x120", "25", "2") + kH264));
  constexpr std::size_t kDurationInMediaHeader = 20;  // behind the type; of version 0
  bytes.overwrite(bytes.find("mdhd") + kDurationInMediaHeader, bigEndian(12800 * 60));
  const TrackDetails details = detailsOf(bytes.write(folder, "lies.mp4"));
  EXPECT_EQ(details.headerDuration, MediaTime::make(60, 1));
  EXPECT_EQ(details.decodedDuration, MediaTime::make(2, 1));
}

TEST(TrackDetails, AFileThatWasCutIsToldByDecoding) {
  const ScratchFolder folder;
  const std::string whole = makeClip(
      folder, "whole.mp4", patternInput("320x240", "25", "4") + kH264 + Words{"-g", "5", "-movflags", "+faststart"});
  const std::string bytes = readFile(whole);
  const TrackDetails details = detailsOf(folder.write("cut.mp4", bytes.substr(0, bytes.size() / 2)));
  EXPECT_EQ(details.headerDuration, MediaTime::make(4, 1));
  ASSERT_TRUE(details.decodedDuration.isNumeric());
  EXPECT_GT(details.decodedDuration.seconds(), 0.5);
  EXPECT_LT(details.decodedDuration.seconds(), 3.5);
  EXPECT_FALSE(detailsOf(whole).decodedDuration.isValid());
}

TEST(TrackDetails, ProtectedSampleEntries) {
  const ScratchFolder folder;
  const Words both = patternInput("160x120") + Words{"-f", "lavfi", "-i", "sine=duration=0.4"};
  MovieBytes bytes(makeClip(folder, "plain.mp4", both + kH264 + Words{"-c:a", "aac"}));
  bytes.replace("avc1", "drmi").replace("mp4a", "drms");
  const auto movie = loaded(bytes.write(folder, "protected.mp4"));
  ASSERT_TRUE(movie);
  EXPECT_TRUE(movie->hasProtectedContent());
  EXPECT_FALSE(movie->isPlayable());
  ASSERT_EQ(movie->tracks().size(), 2U);
  EXPECT_EQ(movie->tracks()[0]->formatDescriptions().at(0).code, "drmi");
  EXPECT_EQ(movie->tracks()[1]->formatDescriptions().at(0).code, "drms");
  EXPECT_TRUE(movie->tracks()[0]->isProtected());
  EXPECT_FALSE(movie->tracks()[0]->details().profile);
  EXPECT_EQ(movie->naturalSize(), (platform::Size{160, 120}));
}

TEST(TrackDetails, CommonEncryption) {
  const ScratchFolder folder;
  const auto movie = loaded(encryptedClip(folder));
  ASSERT_TRUE(movie);
  EXPECT_TRUE(movie->hasProtectedContent());
  EXPECT_EQ(movie->tracks().at(0)->formatDescriptions().at(0).code, "encv");
  EXPECT_EQ(movie->tracks()[0]->details().codec, "h264");
  EXPECT_EQ(movie->tracks()[0]->mediaTypeCode(), "vide");
  EXPECT_EQ(movie->naturalSize(), (platform::Size{160, 120}));
}

/// The header, the samples' tables and the first frame: everything else would be media read for nothing.
TEST(TrackDetails, InformationOfAMovieWithAnIndexReadsItsHeaderAndOneFrame) {
  const ScratchFolder folder;
  const std::string path =
      makeClip(folder, "noise.mp4",
               Words{"-f", "lavfi", "-i", "testsrc2=size=640x480:rate=25:duration=8,noise=alls=60:allf=t"} + kH264 +
                   Words{"-g", "25", "-bf", "0", "-q", "1"});
  std::string error;
  const auto bytes = std::make_shared<CountedBytes>(platform::InputFile::open(path, &error));
  platform::UrlAsset movie(bytes, path);
  ASSERT_TRUE(load(movie));
  ASSERT_EQ(movie.tracks().size(), 1U);
  movie.tracks()[0]->details();
  movie.naturalSize();
  movie.metadata();
  EXPECT_LT(bytes->read(), 1 << 20);
  const auto generator = movie.makeImageGenerator();
  for (const platform::ApertureMode mode :
       {platform::ApertureMode::cleanAperture, platform::ApertureMode::productionAperture,
        platform::ApertureMode::encodedPixels}) {
    generator->setApertureMode(mode);
    EXPECT_TRUE(generator->copyFrame(MediaTime::zero()).picture);
  }
  // A packet or two beyond the frame tell that it is the one; the three modes share one decoded frame.
  ASSERT_GT(bytes->size(), 8 << 20);
  EXPECT_LT(bytes->read(), 1 << 20) << "of " << bytes->size();
}

}  // namespace
}  // namespace vistrelle::testing
