// The information of real movies: the samples of the tree and clips of all the kinds that the rules tell apart.

#include <gtest/gtest.h>

#include "tests/platform/media/information_clips.h"
#include "tests/support/clips.h"
#include "tests/support/recording_log.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movieinfo/classification.h"
#include "vistrelle/movieinfo/geometry.h"
#include "vistrelle/movieinfo/inventory.h"
#include "vistrelle/movieinfo/timing.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::Size;
using testing::bigEndian;
using testing::makeClip;
using testing::MovieBytes;
using testing::patternInput;
using testing::RecordingLog;
using testing::sampleMovie;
using testing::ScratchFolder;
using testing::operator+;
using Texts = std::vector<std::string>;

const Texts kSound{"-f", "lavfi", "-i", "sine=duration=0.4"};

class RealMovies : public ::testing::Test {
 protected:
  ~RealMovies() override { MYMOVIErelease(); }

  std::string clip(const std::string& name, const Texts& arguments) const { return makeClip(folder, name, arguments); }
  /// A key of a movie's information as text; "-" without it.
  std::string info(const std::string& path, const std::string& key) {
    infos = qtInfos(path);
    return value(key);
  }
  /// The same of the movie that was asked last.
  std::string value(const std::string& key) const {
    const auto found = infos.find(key);
    return found == infos.end() ? "-" : platform::description(found->second);
  }
  /// "768x576 720x576 4:3 16:15": natural size, encoded size and ratios.
  std::string geometry(const std::string& path) {
    infos = qtInfos(path);
    return value("w_width") + "x" + value("w_height") + " " + value("v0_width") + "x" + value("v0_height") + " " +
           value("v0_dar") + " " + value("v0_par");
  }

  ScratchFolder folder;
  RecordingLog record;
  Dictionary infos;
};

TEST_F(RealMovies, TheLastOfTwoVideoTracksNamesTheCodec) {
  const std::string path = clip(
      "two.mov", patternInput("160x120") + Texts{"-map", "0:v", "-map", "0:v", "-c:v:0", "libx264", "-c:v:1", "mpeg4"});
  EXPECT_EQ(info(path, "v0_codec"), "mpeg4");
  EXPECT_TRUE(record.has("fourCc              : avc1"));
  EXPECT_TRUE(record.has("fourCc              : mp4v"));
}

TEST_F(RealMovies, AudioCodes) {
  const std::string sowt = clip("sowt.mov", kSound + Texts{"-c:a", "pcm_s16le"});
  EXPECT_EQ(info(sowt, "a0_codec"), "pcm_s16le");
  EXPECT_EQ(info(MovieBytes(sowt).replace("sowt", "lpcm").write(folder, "lpcm.mov"), "a0_codec"), "lpcm");
  EXPECT_EQ(info(clip("twos.mov", kSound + Texts{"-c:a", "pcm_s16be"}), "a0_codec"), "pcm_s16be");
  EXPECT_EQ(info(clip("ac3.mov", kSound + Texts{"-c:a", "ac3"}), "a0_codec"), "ac3");
  EXPECT_EQ(info(clip("ima4.mov", kSound + Texts{"-c:a", "adpcm_ima_qt"}), "a0_codec"), "adpcm_ima_qt");
  EXPECT_EQ(info(clip("aac.mp4", kSound + Texts{"-c:a", "aac"}), "a0_codec"), "aac");
  EXPECT_EQ(value("v0_fps"), "0");
  EXPECT_EQ(value("w_width"), "-");
}

TEST_F(RealMovies, VideoCodes) {
  EXPECT_EQ(info(clip("rle.mov", patternInput("160x120") + Texts{"-c:v", "qtrle"}), "v0_codec"), "rle ");
  EXPECT_EQ(info(clip("dx50.avi", patternInput("160x120") + Texts{"-c:v", "mpeg4", "-vtag", "DX50"}), "v0_codec"),
            "divx");
  EXPECT_EQ(info(sampleMovie("animation.mov"), "v0_codec"), "rle ");
  EXPECT_EQ(info(sampleMovie("png.mov"), "v0_codec"), "png ");
  EXPECT_EQ(info(sampleMovie("apple-prores-422-proxy.mov"), "v0_codec"), "apco");
}

TEST_F(RealMovies, ATextTrackIsKeptUnderItsIndex) {
  const std::string words = folder.write("words.srt", "1\n00:00:00,000 --> 00:00:00,300\nhello\n");
  const std::string path = clip("text.mov", patternInput("160x120") + kSound +
                                                Texts{"-i", words, "-c:v", "libx264", "-c:a", "aac", "-c:s", "mov_text",
                                                      "-map", "0", "-map", "1", "-map", "2"});
  EXPECT_EQ(info(path, "toto2_mediaAttributes"), "text");
}

TEST_F(RealMovies, TracksOfTheSamples) {
  EXPECT_EQ(info(sampleMovie("rotated_hdr_video.mov"), "toto1_mediaAttributes"), "meta");
  EXPECT_EQ(value("toto2_mediaAttributes"), "meta");
  EXPECT_EQ(info(sampleMovie("nasa_13013.mp4"), "toto2_mediaAttributes"), "sbtl");
  EXPECT_EQ(info(sampleMovie("sample_with_chapters.mp4"), "toto2_mediaAttributes"), "text");
}

TEST_F(RealMovies, DurationIsTruncated) {
  const std::string path = clip("long.mov", patternInput("64x48", "10", "59.9") + Texts{"-c:v", "libx264"});
  EXPECT_EQ(info(path, "w_duration"), "59");
  EXPECT_EQ(value("v0_fps"), "10");
  EXPECT_FLOAT_EQ(dureeMovie(path), 59.9F);
  EXPECT_TRUE(record.has("qt dureeMovie       - end : 59.90"));
}

TEST_F(RealMovies, DvIsShownInBothShapes) {
  const auto dv = [this](const std::string& aspect) {
    Texts arguments = patternInput("720x576");
    arguments.back() += ",setsar=" + aspect;
    return clip("dv.mov", arguments + Texts{"-c:v", "dvvideo", "-pix_fmt", "yuv420p"});
  };
  EXPECT_EQ(geometry(dv("16/15")), "768x576 720x576 4:3 16:15");
  MYMOVIErelease();
  EXPECT_EQ(geometry(dv("64/45")), "1024x576 720x576 16:9 64:45");
}

TEST_F(RealMovies, HdvIsShownWide) {
  Texts arguments = patternInput("1440x1080", "25", "0.2");
  arguments.back() += ",setsar=4/3";
  const std::string made = clip("made.mov", arguments + Texts{"-c:v", "mpeg2video"});
  const std::string hdv = MovieBytes(made).replace("xdv7", "hdv3").write(folder, "hdv.mov");
  EXPECT_EQ(geometry(hdv), "1920x1080 1440x1080 16:9 4:3");
  EXPECT_EQ(value("v0_codec"), "mpeg2video");
}

TEST_F(RealMovies, ImxShowsItsCleanApertureOnly) {
  Texts arguments = patternInput("720x608", "25", "0.2");
  arguments.back() += ",setsar=16/15";
  const std::string made = clip("made.mov", arguments + Texts{"-c:v", "mpeg2video", "-g", "1", "-tag:v", "mx5p"});
  // Written without the lines above the picture being counted, and without an aperture.
  EXPECT_EQ(geometry(made), "768x576 720x608 4:3 9:8");
  MovieBytes bytes(made);
  bytes.overwrite(bytes.find("mx5p") + 30, bigEndian(608, 2));  // the height: all lines, as recorders write it
  bytes.append({"moov", "trak", "mdia", "minf", "stbl", "stsd", "mx5p"}, testing::clapBox(720, 576, 0, 16));
  const std::string imx = bytes.write(folder, "imx.mov");
  // The 32 lines above the picture count as encoded: 4:3 shown from 720 x 608 has no pixel ratio with a name.
  EXPECT_EQ(geometry(imx), "768x576 720x608 4:3 9:8");
  EXPECT_EQ(value("v0_codec"), "mx5p");
}

TEST_F(RealMovies, XdcamShowsItsCleanAperture) {
  EXPECT_EQ(geometry(sampleMovie("xdcam-ex-720p24.mov")), "1248x702 1280x720 16:9 1:1");
  EXPECT_TRUE(record.has("movieSizes clean    : 1248 * 702"));
  EXPECT_TRUE(record.has("movieSizes productio: 1280 * 720"));
  EXPECT_EQ(geometry(sampleMovie("xdcam-hd-1080i60.mov")), "1888x1062 1440x1080 16:9 4:3");
  EXPECT_TRUE(record.has("movieSizes productio: 1920 * 1080"));
}

TEST_F(RealMovies, TurnedPhonesAreMeasuredAsShown) {
  // The natural size is that before the turn.
  EXPECT_EQ(geometry(sampleMovie("rotated_video.mp4")), "640x480 480x640 3:4 1:1");
  EXPECT_EQ(geometry(sampleMovie("rotated_hdr_video.mov")), "1920x1080 1080x1920 9:16 1:1");
  EXPECT_EQ(geometry(sampleMovie("sample_rotate_and_reflect.mp4")), "1080x720 720x1080 2:3 1:1");
}

TEST_F(RealMovies, ApertureSizes) {
  const auto size = [](const std::string& name) {
    MYMOVIEinstantiateCurrent(sampleMovie(name));
    return movieApertureSize(MYMOVIEget());
  };
  EXPECT_EQ(size("xdcam-ex-720p24.mov"), (Size{1248, 702}));
  EXPECT_EQ(size("rotated_video.mp4"), (Size{480, 640}));
  EXPECT_EQ(size("video_with_rectangular_samples.mp4"), (Size{1920, 1080}));
  EXPECT_EQ(size("video_without_video_stream.mp4"), Size{});
}

TEST_F(RealMovies, TheFirstFrameMustDecode) {
  const std::string whole = clip("whole.mov", patternInput("160x120") + Texts{"-c:v", "libx264"});
  MovieBytes damaged(whole);
  const std::size_t media = damaged.bytes().find("mdat") + 4;
  damaged.overwrite(media, std::string(damaged.find("moov") - 4 - media, '\0'));
  EXPECT_EQ(movieSize(damaged.write(folder, "damaged.mov")), (Dictionary{{"w_width", 160}, {"w_height", 120}}));
  EXPECT_TRUE(record.hasContaining("movieSizes aperture :-( "));
}

TEST_F(RealMovies, TimecodeSamples) {
  const std::string one =
      clip("one.mov", patternInput("160x120") + Texts{"-c:v", "libx264", "-timecode", "01:00:00:00"});
  EXPECT_EQ(timecodeTrackSampleCount(one), 1);
  EXPECT_TRUE(record.has("Processed 1 sample"));
  EXPECT_EQ(info(one, "toto1_mediaAttributes"), "tmcd");
  MovieBytes bytes(one);
  bytes.overwrite(bytes.find("stsz", 1) + 8, bigEndian(4) + bigEndian(3));
  // Short ones, so that all three lie within the track's edit.
  bytes.overwrite(bytes.find("stts", 1) + 12, bigEndian(3) + bigEndian(3));
  bytes.overwrite(bytes.find("stsc", 1) + 16, bigEndian(3));
  EXPECT_EQ(timecodeTrackSampleCount(bytes.write(folder, "three.mov")), 3);
  EXPECT_EQ(timecodeTrackSampleCount(sampleMovie("prog_8s.mp4")), -12345);
}

TEST_F(RealMovies, ADamagedTimecodeTrack) {
  const std::string one =
      clip("one.mov", patternInput("160x120") + Texts{"-c:v", "libx264", "-timecode", "01:00:00:00"});
  MovieBytes bytes(one);
  bytes.overwrite(bytes.find("stco", 1) + 12, bigEndian(0x7fffff00));
  EXPECT_EQ(timecodeTrackSampleCount(bytes.write(folder, "damaged.mov")), -12345);
  EXPECT_TRUE(record.hasContaining("No sample in the timecode track: "));
  EXPECT_TRUE(record.has("Processed 0 sample"));
}

TEST_F(RealMovies, MetadataIsLogged) {
  const std::string path = clip("tagged.mp4", kSound + Texts{"-metadata", "title=Demo", "-metadata", "lyrics=la la"});
  EXPECT_TRUE(movieInfosLog(path));
  EXPECT_TRUE(record.has("lyrics                   : la la"));
  bool named = false;
  for (const std::string& line : record.lines()) {
    named = named || (line.starts_with("commonMetadata           : (") && line.find("Demo") != std::string::npos);
  }
  EXPECT_TRUE(named);
  EXPECT_FALSE(movieInfosLog(sampleMovie("broken.mp4")));
}

TEST_F(RealMovies, ProtectedCodesEmptyTheDictionary) {
  const std::string path =
      clip("plain.mov", patternInput("160x120") + kSound + Texts{"-c:v", "libx264", "-c:a", "aac"});
  EXPECT_TRUE(qtInfos(MovieBytes(path).replace("avc1", "drmi").write(folder, "v.mov")).empty());
  EXPECT_TRUE(record.has("movie protected     : DRM (drmi)"));
  EXPECT_TRUE(qtInfos(MovieBytes(path).replace("mp4a", "drms").write(folder, "a.mov")).empty());
  EXPECT_TRUE(record.has("movie protected     : DRM (drms)"));
}

TEST_F(RealMovies, CommonEncryptionKeepsTheDictionary) {
  EXPECT_EQ(info(testing::encryptedClip(folder), "v0_codec"), "encv");
  EXPECT_EQ(value("w_duration"), "3");
  EXPECT_FALSE(infoDicoHasDrm(infos));
}

TEST_F(RealMovies, EncryptedPicturesLeaveTheNaturalSize) {
  const std::string path = sampleMovie("sample_fragmented_sgpd_v2.mp4");
  EXPECT_EQ(movieSize(path), (Dictionary{{"w_width", 192}, {"w_height", 108}}));
  EXPECT_TRUE(record.has("movieSizes aperture :-( the movie's pictures are encrypted"));
  EXPECT_EQ(geometry(path), "192x108 -x- - -");
  EXPECT_EQ(movieApertureSize(MYMOVIEget()), Size{});
  EXPECT_TRUE(record.has("aperture error      : the movie's pictures are encrypted"));
}

TEST_F(RealMovies, HeadersOfRealStreams) {
  const auto kinds = [](const std::string& path) {
    std::string found;
    for (const std::int64_t kind : {0, 1, 2}) found += streamHeaderProbe(path, kind) ? '1' : '0';
    return found;
  };
  const Texts picture = patternInput("352x288") + kSound;
  EXPECT_EQ(kinds(clip("a.ts", picture + Texts{"-c:v", "mpeg2video", "-c:a", "mp2"})), "100");
  EXPECT_EQ(kinds(clip("dvd.vob", picture + Texts{"-c:v", "mpeg2video", "-c:a", "mp2", "-f", "dvd"})), "010");
  EXPECT_EQ(kinds(clip("one.mpg", picture + Texts{"-c:v", "mpeg1video", "-c:a", "mp2", "-f", "mpeg"})), "000");
  EXPECT_EQ(kinds(clip("a.ac3", kSound + Texts{"-c:a", "ac3"})), "001");
  EXPECT_EQ(kinds(sampleMovie("sample_h264.ts")), "100");
  EXPECT_EQ(kinds(sampleMovie("prog_8s.mp4")), "000");
}

TEST_F(RealMovies, StreamsWithoutAnIndex) {
  const Texts picture = patternInput("352x288") + kSound;
  EXPECT_EQ(info(clip("dvd.vob", picture + Texts{"-c:v", "mpeg2video", "-c:a", "mp2", "-f", "dvd"}), "v0_codec"),
            "mpeg2video");
  EXPECT_EQ(value("a0_codec"), "mp2");
  EXPECT_EQ(info(clip("one.mpg", picture + Texts{"-c:v", "mpeg1video", "-c:a", "mp2", "-f", "mpeg"}), "v0_codec"),
            "mpeg1video");
  EXPECT_EQ(info(clip("a.ac3", kSound + Texts{"-c:a", "ac3"}), "a0_codec"), "ac3");
}

}  // namespace
}  // namespace vistrelle
