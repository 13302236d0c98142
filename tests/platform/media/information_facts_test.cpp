// What tracks say of themselves: codes, media types, sizes, details. Real movies, and clips whose boxes are edited.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "tests/platform/media/frame_movies.h"
#include "tests/platform/media/information_clips.h"
#include "tests/platform/media/movie_loading.h"
#include "vistrelle/platform/media/ffmpeg/asset.h"

namespace vistrelle::testing {
namespace {

using platform::ApertureMode;
using platform::Asset;
using platform::FormatDescription;
using platform::MediaTime;
using platform::MediaType;
using platform::Rect;
using platform::Size;
using platform::Track;
using platform::TrackDetails;

const std::vector<std::string> kH264{"-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p"};

std::vector<std::string> codesOf(const Asset& movie) {
  std::vector<std::string> codes;
  for (const auto& track : movie.tracks()) {
    for (const FormatDescription& description : track->formatDescriptions()) codes.push_back(description.code);
  }
  return codes;
}

std::vector<std::string> mediaTypesOf(const Asset& movie) {
  std::vector<std::string> types;
  for (const auto& track : movie.tracks()) types.push_back(track->mediaTypeCode().value_or("-"));
  return types;
}

std::shared_ptr<Track> videoOf(const Asset& movie) {
  for (const auto& track : movie.tracks()) {
    if (track->mediaType() == MediaType::video) return track;
  }
  return nullptr;
}

/// The sizes of the first picture in the three modes; zero where there is none.
struct PictureSizes {
  Size clean;
  Size production;
  Size encoded;
};

PictureSizes pictureSizes(Asset& movie, bool turned) {
  PictureSizes sizes;
  const auto generator = movie.makeImageGenerator();
  if (!generator) return sizes;
  generator->setAppliesPreferredTrackTransform(turned);
  for (const auto& [mode, size] : {std::pair(ApertureMode::cleanAperture, &sizes.clean),
                                   std::pair(ApertureMode::productionAperture, &sizes.production),
                                   std::pair(ApertureMode::encodedPixels, &sizes.encoded)}) {
    generator->setApertureMode(mode);
    const platform::FrameResult result = generator->copyFrame(MediaTime::zero());
    if (!result.picture) continue;
    *size = {static_cast<double>(result.picture->width()), static_cast<double>(result.picture->height())};
  }
  return sizes;
}

void expectSizes(const std::string& path, Size clean, Size production, Size encoded) {
  SCOPED_TRACE(path);
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  const PictureSizes sizes = pictureSizes(*movie, false);
  EXPECT_EQ(movie->naturalSize(), clean);
  EXPECT_EQ(sizes.clean, clean);
  EXPECT_EQ(sizes.production, production);
  EXPECT_EQ(sizes.encoded, encoded);
}

TEST(InformationFacts, CodesAndMediaTypesOfSampleMovies) {
  struct Row {
    const char* name;
    std::vector<std::string> codes;
    std::vector<std::string> types;
  };
  const std::vector<Row> rows = {
      {"animation.mov", {"rle "}, {"vide"}},
      {"png.mov", {"png "}, {"vide"}},
      {"photo-jpeg.mov", {"jpeg"}, {"vide"}},
      {"apple-prores-422-proxy.mov", {"apco"}, {"vide"}},
      {"xdcam-ex-720p24.mov", {"xdv4"}, {"vide"}},
      {"xdcam-hd-1080i60.mov", {"xdv2"}, {"vide"}},
      {"bbb_176x144_128kbps_15fps_h263.3gp", {"s263"}, {"vide"}},
      {"metadata.mp4", {"avc1", "mp4a"}, {"vide", "soun"}},
      {"sample_with_chapters.mp4", {"avc1", "mp4a", "text"}, {"vide", "soun", "text"}},
      {"nasa_13013.mp4",
       {"avc1", "mp4a", "tx3g", "avc1", "mp4a", "tx3g"},
       {"vide", "soun", "sbtl", "vide", "soun", "sbtl"}},
      {"sample_fragmented_sgpd_v2.mp4", {"encv"}, {"vide"}},
      {"sample.avi", {"FMP4", ".mp3"}, {"vide", "soun"}},
      {"sample.flv", {"avc1", "mp4a"}, {"vide", "soun"}},
      {"sample_h262_mpeg_audio.ts", {"mp2v", ".mp2"}, {"vide", "soun"}},
      {"sample_h264.ts", {"avc1"}, {"vide"}},
      {"weird_aspect.small.mpg", {"m1v1", ".mp2"}, {"vide", "soun"}},
      {"testWMV.wmv", {"WMV3"}, {"soun", "vide"}},
      {"bear-vp9-odd-dimensions.webm", {"vp09"}, {"vide"}},
      {"sample_with_chapters.mkv", {"avc1", "mp4a"}, {"vide", "soun"}},
      {"fixture.mxf", {"mp2v"}, {"vide"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const auto movie = loaded(dataFile(row.name));
    ASSERT_TRUE(movie);
    EXPECT_EQ(codesOf(*movie), row.codes);
    EXPECT_EQ(mediaTypesOf(*movie), row.types);
  }
}

TEST(InformationFacts, RotatedPhoneMovieHasMetadataTracks) {
  const auto movie = loaded(dataFile("rotated_hdr_video.mov"));
  ASSERT_TRUE(movie);
  EXPECT_EQ(mediaTypesOf(*movie), (std::vector<std::string>{"vide", "meta", "meta"}));
}

TEST(InformationFacts, ContainersWithoutSampleEntriesGetQuickTimeCodes) {
  const ScratchFolder folder;
  const std::vector<std::string> both =
      patternInput("160x120") + std::vector<std::string>{"-f", "lavfi", "-i", "sine=duration=0.4"};
  const auto codes = [&](const std::string& name, const std::vector<std::string>& codecs) {
    const auto movie = loaded(makeClip(folder, name, both + codecs));
    return movie ? codesOf(*movie) : std::vector<std::string>{};
  };
  using Codes = std::vector<std::string>;
  EXPECT_EQ(codes("a.ts", {"-c:v", "mpeg2video", "-c:a", "ac3"}), (Codes{"mp2v", "ac-3"}));
  EXPECT_EQ(codes("b.ts", {"-c:v", "libx265", "-x265-params", "log-level=none", "-c:a", "aac"}),
            (Codes{"hvc1", "mp4a"}));
  EXPECT_EQ(codes("c.mkv", {"-c:v", "ffv1", "-c:a", "pcm_s16le"}), (Codes{"FFV1", "sowt"}));
  EXPECT_EQ(codes("d.mkv", {"-c:v", "libvpx", "-c:a", "flac"}), (Codes{"vp08", "fLaC"}));
  EXPECT_EQ(codes("e.avi", {"-c:v", "mpeg4", "-vtag", "DX50", "-c:a", "pcm_s16le"}), (Codes{"DX50", "sowt"}));
  EXPECT_EQ(codes("f.mkv", {"-c:v", "msmpeg4v2", "-c:a", "libmp3lame"}), (Codes{"MP42", ".mp3"}));
  EXPECT_EQ(codes("g.wmv", {"-c:v", "wmv2", "-c:a", "wmav2"}), (Codes{"WMV2", "WMA2"}));
  EXPECT_EQ(codes("h.mpg", {"-c:v", "mpeg1video", "-c:a", "mp2"}), (Codes{"m1v1", ".mp2"}));
  EXPECT_EQ(codes("i.mkv", {"-c:v", "prores", "-profile:v", "1", "-c:a", "alac"}), (Codes{"apcs", "alac"}));
}

TEST(InformationFacts, EverySampleDescriptionInOrder) {
  const ScratchFolder folder;
  MovieBytes bytes(makeClip(folder, "one.mov", patternInput("160x120") + kH264));
  const std::string second =
      boxOf("rle ", std::string(6, '\0') + bigEndian(1, 2) + std::string(16, '\0') + bigEndian(200, 2) +
                        bigEndian(100, 2) + std::string(50, '\0') + clapBox(180, 90, 4, -2));
  bytes.append({"moov", "trak", "mdia", "minf", "stbl", "stsd"}, second);
  bytes.overwrite(bytes.find("stsd") + 8, bigEndian(2));
  const auto movie = loaded(bytes.write(folder, "two.mov"));
  ASSERT_TRUE(movie);
  const std::vector<FormatDescription> formats = movie->tracks().at(0)->formatDescriptions();
  ASSERT_EQ(formats.size(), 2U);
  EXPECT_EQ(formats[0].code, "avc1");
  EXPECT_EQ(formats[0].width, 160);
  EXPECT_EQ(formats[0].cleanAperture, (Rect{0, 0, 160, 120}));
  EXPECT_EQ(formats[1].code, "rle ");
  EXPECT_EQ(formats[1].width, 200);
  EXPECT_EQ(formats[1].height, 100);
  EXPECT_EQ(formats[1].cleanAperture, (Rect{14, 3, 180, 90}));
}

TEST(InformationFacts, EveryKindOfTrack) {
  const ScratchFolder folder;
  const std::string titles = folder.write("t.srt", "1\n00:00:00,000 --> 00:00:00,300\nHello\n");
  const std::vector<std::string> input = patternInput("160x120") + std::vector<std::string>{"-i", titles};
  const auto mov = loaded(makeClip(
      folder, "a.mov", input + kH264 + std::vector<std::string>{"-c:s", "mov_text", "-timecode", "01:00:00:00"}));
  ASSERT_TRUE(mov);
  EXPECT_EQ(mediaTypesOf(*mov), (std::vector<std::string>{"vide", "text", "tmcd"}));
  EXPECT_EQ(mov->tracks()[2]->mediaType(), MediaType::timecode);
  EXPECT_EQ(mov->tracks()[2]->formatDescriptions().at(0).code, "tmcd");
  const auto hinted = loaded(
      makeClip(folder, "b.mp4", patternInput("160x120") + kH264 + std::vector<std::string>{"-movflags", "+rtphint"}));
  ASSERT_TRUE(hinted);
  EXPECT_EQ(mediaTypesOf(*hinted), (std::vector<std::string>{"vide", "hint"}));
  // Closed captions and others by their handler's own word.
  for (const char* handler : {"clcp", "subt", "sbtl", "twen", "musi"}) {
    MovieBytes bytes(folder.file("a.mov"));
    bytes.replace("mhlrtext", std::string("mhlr") + handler);
    const auto movie = loaded(bytes.write(folder, "c.mov"));
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->tracks().at(1)->mediaTypeCode(), handler);
  }
}

TEST(InformationFacts, NaturalSizeIsThatOfTheCleanPictureInEverySampleMovie) {
  int compared = 0;
  for (const std::string& name : filesIn(VISTRELLE_TEST_DATA)) {
    if (name.ends_with(".md") || name.ends_with(".sh")) continue;
    const auto movie = loaded(dataFile(name));
    if (!movie || !movie->isPlayable() || !videoOf(*movie)) continue;
    SCOPED_TRACE(name);
    EXPECT_EQ(pictureSizes(*movie, false).clean, movie->naturalSize());
    ++compared;
  }
  EXPECT_GT(compared, 30);
}

TEST(InformationFacts, SizesOfBroadcastFormats) {
  const ScratchFolder folder;
  const std::vector<std::string> dv = patternInput("720x576") + std::vector<std::string>{"-c:v", "dvvideo", "-aspect"};
  expectSizes(makeClip(folder, "wide.mov", dv + std::vector<std::string>{"16:9"}), {1024, 576}, {1024, 576},
              {720, 576});
  expectSizes(makeClip(folder, "wide.dv", dv + std::vector<std::string>{"16:9"}), {1024, 576}, {1024, 576}, {720, 576});
  expectSizes(makeClip(folder, "narrow.avi", dv + std::vector<std::string>{"4:3"}), {768, 576}, {768, 576}, {720, 576});
  const std::vector<std::string> hdv =
      patternInput("1440x1080") + std::vector<std::string>{"-c:v", "mpeg2video", "-aspect", "16:9"};
  expectSizes(makeClip(folder, "hdv.ts", hdv), {1920, 1080}, {1920, 1080}, {1440, 1080});
  expectSizes(makeClip(folder, "hdv.mov", hdv), {1920, 1080}, {1920, 1080}, {1440, 1080});
  const std::vector<std::string> imx =
      patternInput("720x608") + std::vector<std::string>{"-c:v", "mpeg2video", "-pix_fmt", "yuv422p", "-aspect", "4:3"};
  expectSizes(makeClip(folder, "imx.mxf", imx), {811, 608}, {811, 608}, {720, 608});
  expectSizes(dataFile("xdcam-hd-1080i60.mov"), {1888, 1062}, {1920, 1080}, {1440, 1080});
  expectSizes(dataFile("xdcam-ex-720p24.mov"), {1248, 702}, {1280, 720}, {1280, 720});
}

/// A clip of 720 x 480 in QuickTime whose header says nothing of its shape: no 'pasp', no 'tapt', and a track header
/// of the encoded size.
class PlainClip : public ::testing::Test {
 protected:
  PlainClip() : bytes_(makeClip(folder_, "plain.mov", patternInput("720x480") + kH264)) {
    bytes_.hide("pasp").hide("tapt");
  }
  void addToEntry(const std::string& boxes) {
    bytes_.append({"moov", "trak", "mdia", "minf", "stbl", "stsd", "avc1"}, boxes);
  }
  void addApertures(const std::string& clean, const std::string& production, const std::string& encoded) {
    bytes_.append({"moov", "trak"},
                  boxOf("tapt", boxOf("clef", clean) + boxOf("prof", production) + boxOf("enof", encoded)));
  }
  static std::string fixed(double width, double height) {
    return bigEndian(0) + bigEndian(static_cast<std::uint32_t>(std::lround(width * 65536))) +
           bigEndian(static_cast<std::uint32_t>(std::lround(height * 65536)));
  }
  std::string written() const { return bytes_.write(folder_, "edited.mov"); }

  ScratchFolder folder_;
  MovieBytes bytes_;
};

TEST_F(PlainClip, NothingSaid) {
  expectSizes(written(), {720, 480}, {720, 480}, {720, 480});
}

TEST_F(PlainClip, CleanApertureAlone) {
  addToEntry(clapBox(704, 480));
  expectSizes(written(), {704, 480}, {720, 480}, {720, 480});
}

TEST_F(PlainClip, PixelAspectAlone) {
  addToEntry(paspBox(40, 33));
  expectSizes(written(), {873, 480}, {873, 480}, {720, 480});
}

TEST_F(PlainClip, CleanApertureAndPixelAspect) {
  addToEntry(clapBox(704, 480) + paspBox(10, 11));
  expectSizes(written(), {640, 480}, {655, 480}, {720, 480});
}

TEST_F(PlainClip, ApertureBoxesSayWhatTheSampleDescriptionLeavesOpen) {
  addApertures(fixed(640, 480), fixed(654.5454, 480), fixed(720, 480));
  expectSizes(written(), {640, 480}, {655, 480}, {720, 480});
}

TEST_F(PlainClip, TheSampleDescriptionComesBeforeTheApertureBoxes) {
  addToEntry(clapBox(704, 480) + paspBox(10, 11));
  addApertures(fixed(720, 480), fixed(720, 480), fixed(720, 480));
  expectSizes(written(), {640, 480}, {655, 480}, {720, 480});
}

TEST_F(PlainClip, DamagedApertureBoxesCountForNothing) {
  addApertures(fixed(640, 480), fixed(0, 480), fixed(720, 480));
  expectSizes(written(), {720, 480}, {720, 480}, {720, 480});
}

TEST_F(PlainClip, TheTrackHeaderStretchesPixels) {
  const std::string stated = bigEndian(720U << 16) + bigEndian(480U << 16);
  bytes_.replace(stated, bigEndian(640U << 16) + bigEndian(480U << 16));
  expectSizes(written(), {640, 480}, {640, 480}, {720, 480});
}

TEST_F(PlainClip, TheStreamItselfSaysTheShape) {
  MovieBytes bytes(
      makeClip(folder_, "sar.mov", patternInput("320x240") + std::vector<std::string>{"-vf", "setsar=4/3"} + kH264));
  bytes.hide("pasp").hide("tapt");
  constexpr std::size_t kSizeInTrackHeader = 80;  // behind the type; of version 0
  bytes.overwrite(bytes.find("tkhd") + kSizeInTrackHeader, bigEndian(320U << 16) + bigEndian(240U << 16));
  expectSizes(bytes.write(folder_, "sar2.mov"), {427, 240}, {427, 240}, {320, 240});
}

TEST_F(PlainClip, RotationTurnsPicturesNotTheNaturalSize) {
  addToEntry(clapBox(704, 480) + paspBox(10, 11));
  const std::string unit = bigEndian(0x10000) + bigEndian(0) + bigEndian(0) + bigEndian(0) + bigEndian(0x10000);
  const std::string quarter = bigEndian(0) + bigEndian(0x10000) + bigEndian(0) + bigEndian(0xffff0000) + bigEndian(0);
  bytes_.replace(unit, quarter, 1);  // the first one is the movie's
  const auto movie = loaded(written());
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->naturalSize(), (Size{640, 480}));
  EXPECT_EQ(movie->tracks().at(0)->details().rotation, 90);
  const PictureSizes sizes = pictureSizes(*movie, true);
  EXPECT_EQ(sizes.clean, (Size{480, 640}));
  EXPECT_EQ(sizes.production, (Size{480, 655}));
  EXPECT_EQ(sizes.encoded, (Size{480, 720}));
}

TEST(InformationFacts, TheNaturalSizeIsThatOfTheTrackThatPicturesComeFrom) {
  const ScratchFolder folder;
  const std::vector<std::string> arguments =
      patternInput("160x120") + patternInput("320x240") + kH264 +
      std::vector<std::string>{"-map", "0", "-map", "1", "-disposition:v:0", "0", "-disposition:v:1", "default"};
  const auto movie = loaded(makeClip(folder, "two.mp4", arguments));
  ASSERT_TRUE(movie);
  ASSERT_EQ(movie->tracks().size(), 2U);
  ASSERT_FALSE(movie->tracks()[0]->isEnabled());
  EXPECT_EQ(movie->naturalSize(), (Size{320, 240}));
  EXPECT_EQ(movie->tracks()[0]->naturalSize(), (Size{160, 120}));
}

}  // namespace
}  // namespace vistrelle::testing
