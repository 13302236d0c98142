#include <gtest/gtest.h>

#include <filesystem>
#include <set>

#include "tests/platform/export/sound_clips.h"
#include "tests/platform/media/movie_loading.h"
#include "tests/support/child.h"
#include "tests/support/clips.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/media/export/picture_conversion.h"
#include "vistrelle/platform/media/export/prores_export.h"

namespace vistrelle::platform {
namespace {

using testing::at;
using testing::clip;
using testing::expectDecodes;
using testing::expectReadersContent;
using testing::expectShows;
using testing::inputOf;
using testing::isSame;
using testing::loaded;
using testing::numberedPictures;
using testing::probed;
using testing::range;
using testing::runFfmpeg;
using testing::ScratchFolder;
using testing::Sound;
using testing::soundOf;
using testing::Stretch;
using testing::sweep;

using Arguments = std::vector<std::string>;

using Outcome = testing::Written;

Outcome exportTo(
    const std::string& path, Asset& asset, std::function<bool()> isCancelled = [] { return false; }) {
  return testing::writeTo(asset, path, &writeProRes, std::move(isCancelled));
}

class ProRes : public ::testing::Test {
 protected:
  Outcome exported(const std::shared_ptr<Asset>& asset) { return exportTo(folder_.file("out.mov"), *asset); }
  Outcome exportedClip(const std::string& path) {
    const auto movie = loaded(path);
    return movie ? exported(movie) : Outcome{};
  }
  /// A clip of one coded picture or a few, from ffmpeg's arguments.
  std::string made(const std::string& name, Arguments arguments) {
    arguments.push_back(folder_.file(name));
    runFfmpeg(arguments);
    return folder_.file(name);
  }
  ScratchFolder folder_;
};

Arguments h264(const std::string& more = "bframes=3:keyint=12") {
  return {"-c:v", "libx264", "-preset", "veryfast", "-crf", "10", "-x264-params", more};
}

TEST_F(ProRes, EveryFrameIsThereOnceAtItsOwnTime) {
  const auto frames = testing::shownBy({{0, 4, 0, 0}}, 25);
  for (const auto& [name, options] : std::vector<std::pair<std::string, Arguments>>{
           {"prores_h264.mp4", h264()},
           {"prores_open.mkv", h264("bframes=3:keyint=12:open-gop=1")},
           {"prores_mpeg4.avi", {"-c:v", "mpeg4", "-bf", "2", "-q:v", "2"}},
           {"prores_mpeg2.ts", {"-c:v", "mpeg2video", "-bf", "2", "-q:v", "2"}},
           {"prores_mjpeg.mov", {"-c:v", "mjpeg", "-q:v", "2"}},
           {"prores_hevc.mp4", {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=none:keyint=10"}},
           {"prores_prores.mov", {"-c:v", "prores_ks"}}}) {
    SCOPED_TRACE(name);
    const Outcome outcome = exportedClip(clip(name, {numberedPictures(100), options}));
    ASSERT_TRUE(outcome.succeeded) << outcome.error;
    expectDecodes(outcome.path, frames);
    EXPECT_EQ(probed(outcome.path, "v:0", "stream=duration"), "4.000000");
  }
}

// Of an odd width the encoder loses the last column's colours: with 161 they alone are in their macroblock.
TEST_F(ProRes, OddSizesKeepTheirColoursToTheLastColumn) {
  for (const std::string size : {"161:121", "163:120", "175:63"}) {
    SCOPED_TRACE(size);
    const std::string source =
        "color=red:size=176x128:rate=5:duration=1,format=yuv444p,crop=" + size + ",format=yuv420p";
    const std::string path = made("odd.mkv", {"-f", "lavfi", "-i", source, "-c:v", "ffv1"});
    const Outcome outcome = exportedClip(path);
    ASSERT_TRUE(outcome.succeeded) << outcome.error;
    EXPECT_EQ(probed(outcome.path, "v:0", "stream=width,height"), size.substr(0, 3) + "," + size.substr(4));
    const std::string raw = folder_.file("odd.yuv");
    runFfmpeg({"-i", outcome.path, "-frames:v", "1", "-f", "rawvideo", "-pix_fmt", "yuv422p10le", raw});
    const std::string bytes = testing::readFile(raw);
    const std::size_t width = std::stoul(size);
    const std::size_t height = std::stoul(size.substr(4));
    const std::size_t chroma = (width + 1) / 2;
    ASSERT_EQ(bytes.size(), 2 * height * (width + 2 * chroma));
    const auto valueAt = [&bytes](std::size_t sample) {
      return static_cast<std::uint8_t>(bytes[2 * sample]) | static_cast<std::uint8_t>(bytes[2 * sample + 1]) << 8;
    };
    for (std::size_t row = 0; row < height; ++row) {
      for (const std::size_t plane : {0, 1}) {
        const std::size_t start = height * (width + plane * chroma) + row * chroma;
        ASSERT_NEAR(valueAt(start + chroma - 1), valueAt(start), 4) << "row " << row << " plane " << plane;
      }
      ASSERT_NEAR(valueAt((row + 1) * width - 1), valueAt(row * width), 4) << "row " << row;
    }
    expectReadersContent(outcome.path);
  }
}

TEST_F(ProRes, IsProRes422WithPcm) {
  const std::string path =
      clip("prores_av.mov",
           {numberedPictures(50), {"-f", "lavfi", "-i", "sine=duration=2:sample_rate=44100"}, h264(), {"-c:a", "aac"}});
  const Outcome outcome = exportedClip(path);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  EXPECT_EQ(probed(outcome.path, "v:0", "stream=codec_name,profile,codec_tag_string,pix_fmt"),
            "prores,Standard,apcn,yuv422p10le");
  EXPECT_EQ(probed(outcome.path, "a:0", "stream=codec_name,codec_tag_string,sample_rate,channels"),
            "pcm_s16le,sowt,44100,1");
  EXPECT_GT(outcome.progress, 0.9);
  EXPECT_LE(outcome.progress, 1.0);
  expectReadersContent(outcome.path);
}

TEST_F(ProRes, ATimelineIsKeptFrameForFrame) {
  const auto one = loaded(clip("prores_one.mov", {numberedPictures(100), h264()}));
  const auto other = loaded(clip("prores_other.mov", {numberedPictures(50, "30", 150), h264()}));
  const auto composition = Composition::make();
  std::string error;
  ASSERT_TRUE(composition->insertTimeRange(range(1, 1), one, at(0), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(1, 1), other, at(1), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(1, 1), one, at(2), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(50, 8, 100), one, at(3), &error)) << error;  // from within a frame
  auto wanted = testing::shownBy({{1, 1, 0, 0}}, 25);
  for (const auto& [number, time] : testing::shownBy({{1, 20.0 / 30, 0, 150}}, 30))
    wanted.push_back({number, 1 + time});
  const double second = 1 + 20.0 / 30;
  const bool isClipped = compare(composition->duration(), at(308, 100)) != 0;
  ASSERT_FALSE(isClipped) << composition->duration().description();
  // The second movie ends before its piece: what follows begins where it was put, after black.
  wanted.push_back({0, second});
  for (const auto& [number, time] : testing::shownBy({{1, 1, 0, 0}}, 25)) wanted.push_back({number, 2 + time});
  wanted.push_back({12, 3.0});
  wanted.push_back({13, 3.02});
  wanted.push_back({14, 3.06});
  const Outcome outcome = exported(composition);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  expectShows(outcome.path, wanted, 3.08);
  EXPECT_EQ(probed(outcome.path, "v:0", "stream=duration"), "3.080000");
}

TEST_F(ProRes, AScaledPieceKeepsItsFramesAndChangesTheirTimes) {
  const auto composition = testing::whole(loaded(clip("prores_one.mov", {numberedPictures(100), h264()})));
  composition->scaleTimeRange(range(1, 1), at(3));
  const Outcome outcome = exported(composition);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  expectShows(outcome.path, testing::shownBy({{0, 1, 0, 0}, {1, 1, 3, 0}, {2, 2, 0, 0}}, 25), 6);
}

TEST_F(ProRes, EditListsOfTheSourceAreApplied) {
  const std::string path = clip("prores_one.mov", {numberedPictures(100), h264()});
  const std::string cut = made("cut.mov", {"-ss", "1.3", "-i", path, "-c", "copy"});
  const Outcome outcome = exportedClip(cut);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  const auto frames = testing::decoded(outcome.path).frames;
  ASSERT_FALSE(frames.empty());
  EXPECT_EQ(frames.front().number, 32);  // on screen at 1.3 s
  EXPECT_EQ(frames.front().time.seconds(), 0);
  EXPECT_EQ(frames.back().number, 99);
  for (std::size_t i = 1; i < frames.size(); ++i) {
    EXPECT_EQ(frames[i].number, 32 + static_cast<int>(i));
    EXPECT_NEAR(frames[i].time.seconds(), (32 + static_cast<double>(i)) / 25 - 1.3, 0.002);
  }
}

TEST_F(ProRes, SoundIsKeptToTheSample) {
  const Sound sound = sweep(4, 44100);
  Arguments arguments = inputOf(folder_, "sound", sound);
  for (const std::string& word : numberedPictures(100)) arguments.push_back(word);
  for (const char* word : {"-c:v", "mjpeg", "-c:a", "pcm_s16le"}) arguments.emplace_back(word);
  const auto source = loaded(made("in.mov", arguments));
  EXPECT_TRUE(isSame(sound, soundOf(folder_, exported(source).path)));

  const auto composition = Composition::make();
  std::string error;
  ASSERT_TRUE(composition->insertTimeRange(range(10001, 22050, 44100), source, at(0), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(1, 1), source, at(1), &error)) << error;
  ASSERT_TRUE(composition->insertTimeRange(range(3, 1), source, at(2), &error)) << error;
  const Outcome outcome = exported(composition);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  Sound wanted = sound.cut(10001, 22050);
  wanted += Sound::silence(44100, 2, 22050);
  wanted += sound.cut(44100, 44100);
  wanted += sound.cut(3 * 44100, 44100);
  EXPECT_TRUE(isSame(wanted, soundOf(folder_, outcome.path)));
}

TEST_F(ProRes, SoundOfSixChannelsStaysSo) {
  const Sound sound = sweep(1, 48000, 6, 0.2);
  const Outcome outcome = exportedClip(testing::soundMovie(folder_, "in.mov", sound));
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  EXPECT_TRUE(isSame(sound, soundOf(folder_, outcome.path)));
  EXPECT_EQ(probed(outcome.path, "a:0", "stream=channel_layout"), "5.1");
}

TEST_F(ProRes, SeveralSoundTracksBecomeOne) {
  const Sound one = sweep(2, 48000, 2, 0.7);
  Arguments arguments = inputOf(folder_, "one", one);
  for (const std::string& word : inputOf(folder_, "other", one)) arguments.push_back(word);
  for (const char* word : {"-map", "0", "-map", "1", "-c", "pcm_s16le", "-disposition:a", "default"}) {
    arguments.emplace_back(word);
  }
  const Outcome outcome = exportedClip(made("two.mov", arguments));
  Sound wanted = one;
  for (float& sample : wanted.samples) sample = std::clamp(2 * sample, -1.0F, 32767.0F / 32768.0F);
  EXPECT_TRUE(isSame(wanted, soundOf(folder_, outcome.path)));
}

TEST_F(ProRes, ColourTagsAreThoseOfTheSource) {
  const std::string entries = "stream=color_range,color_space,color_transfer,color_primaries";
  struct Case {
    const char* name;
    Arguments tags;
    const char* size;
    const char* wanted;
  };
  for (const Case& entry : {Case{"709",
                                 {"-colorspace", "bt709", "-color_trc", "bt709", "-color_primaries", "bt709"},
                                 "64x64",
                                 "bt709,bt709,bt709"},
                            Case{"2020",
                                 {"-colorspace", "bt2020nc", "-color_trc", "smpte2084", "-color_primaries", "bt2020"},
                                 "64x64",
                                 "bt2020nc,smpte2084,bt2020"},
                            Case{"pal",
                                 {"-colorspace", "bt470bg", "-color_trc", "bt709", "-color_primaries", "bt470bg"},
                                 "64x64",
                                 "bt470bg,bt709,bt470bg"},
                            Case{"untagged_sd", {}, "64x64", "smpte170m,bt709,smpte170m"},
                            Case{"untagged_hd", {}, "64x720", "bt709,bt709,bt709"}}) {
    Arguments arguments{"-f",   "lavfi",   "-i",       std::string("testsrc2=duration=0.2:size=") + entry.size,
                        "-c:v", "libx264", "-pix_fmt", "yuv420p"};
    arguments.insert(arguments.end(), entry.tags.begin(), entry.tags.end());
    const Outcome outcome = exportedClip(made(std::string(entry.name) + ".mp4", arguments));
    ASSERT_TRUE(outcome.succeeded) << outcome.error;
    const std::string got = probed(outcome.path, "v:0", entries);
    EXPECT_TRUE(got.ends_with(entry.wanted)) << entry.name << ": " << got;
    EXPECT_NE(testing::readFile(outcome.path).find("nclc"), std::string::npos);
  }
}

/// The middle of the first frame as ffmpeg shows it in RGB.
std::string firstPixel(const ScratchFolder& folder, const std::string& movie) {
  runFfmpeg({"-i", movie, "-frames:v", "1", "-vf", "crop=2:2,scale=in_range=auto:out_range=full:flags=accurate_rnd",
             "-pix_fmt", "rgb24", "-f", "rawvideo", folder.file("pixel.rgb")});
  return testing::readFile(folder.file("pixel.rgb")).substr(0, 3);
}

TEST_F(ProRes, ColoursOfFullRangeRgbAndPalettesComeOutRight) {
  struct Case {
    const char* name;
    Arguments options;
  };
  for (const Case& entry :
       {Case{"full.mov", {"-c:v", "mjpeg", "-pix_fmt", "yuvj420p", "-q:v", "1"}},
        Case{"rgb.mov", {"-c:v", "png", "-pix_fmt", "rgb24"}}, Case{"rgba.mov", {"-c:v", "qtrle", "-pix_fmt", "argb"}},
        Case{"alpha.mov", {"-c:v", "prores_ks", "-profile:v", "4444", "-pix_fmt", "yuva444p10le"}},
        Case{"palette.mov", {"-c:v", "qtrle", "-pix_fmt", "gray"}}}) {
    Arguments arguments{"-f", "lavfi", "-i", "color=c=0xC04020:size=64x48:duration=0.2"};
    arguments.insert(arguments.end(), entry.options.begin(), entry.options.end());
    const std::string path = made(entry.name, arguments);
    const Outcome outcome = exportedClip(path);
    ASSERT_TRUE(outcome.succeeded) << entry.name << ": " << outcome.error;
    EXPECT_EQ(probed(outcome.path, "v:0", "stream=pix_fmt"), "yuv422p10le");  // no alpha
    const std::string before = firstPixel(folder_, path);
    const std::string after = firstPixel(folder_, outcome.path);
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(static_cast<unsigned char>(after[i]), static_cast<unsigned char>(before[i]), 4)
          << entry.name << " component " << i;
    }
  }
}

TEST_F(ProRes, FieldsAreKeptApartAndFlagged) {
  for (const bool topFirst : {true, false}) {
    const std::string path =
        made("fields.mov", {"-f", "lavfi", "-i", "testsrc2=duration=0.4:size=128x96:rate=50", "-vf",
                            topFirst ? "interlace=scan=tff:lowpass=0" : "interlace=scan=bff:lowpass=0", "-c:v",
                            "mpeg2video", "-q:v", "1", "-flags", "+ilme+ildct", "-top", topFirst ? "1" : "0"});
    const Outcome outcome = exportedClip(path);
    ASSERT_TRUE(outcome.succeeded) << outcome.error;
    const testing::RunResult frames =
        testing::runProgram({"ffprobe", "-v", "error", "-read_intervals", "%+#1", "-show_entries",
                             "frame=interlaced_frame,top_field_first", "-of", "csv=p=0", outcome.path});
    EXPECT_TRUE(frames.output.starts_with(topFirst ? "1,1" : "1,0")) << frames.output;
    EXPECT_EQ(probed(outcome.path, "v:0", "stream=field_order"), topFirst ? "tt" : "bb");
    // Chroma of the lines of one field comes from that field alone.
    const auto likeness = [&](const char* interlaced) {
      const testing::RunResult compared =
          testing::runProgram({"ffmpeg", "-nostdin", "-i", path, "-i", outcome.path, "-lavfi",
                               std::string("[0:v]scale=interl=") + interlaced +
                                   ",format=yuv422p10le[a];[1:v]format=yuv422p10le[b];[a][b]psnr",
                               "-f", "null", "-"});
      const std::size_t place = compared.error.find(" u:");
      return place == std::string::npos ? 0 : std::strtod(compared.error.c_str() + place + 3, nullptr);
    };
    EXPECT_GT(likeness("1"), likeness("0") + 1);
  }
}

TEST_F(ProRes, PixelAspectAndRotationAreKept) {
  const std::string path = made("wide.mp4", {"-f", "lavfi", "-i", "testsrc2=duration=0.2:size=72x58,setsar=64/45",
                                             "-c:v", "libx264", "-pix_fmt", "yuv420p"});
  for (const char* degrees : {"90", "180", "270"}) {
    const std::string turned =
        made("turned.mov", {"-i", path, "-c", "copy", "-metadata:s:v", std::string("rotate=") + degrees});
    const Outcome outcome = exportedClip(turned);
    ASSERT_TRUE(outcome.succeeded) << outcome.error;
    EXPECT_EQ(probed(outcome.path, "v:0", "stream=sample_aspect_ratio"), "64:45");
    EXPECT_EQ(probed(outcome.path, "v:0", "stream=width,height"), "72,58");
    EXPECT_EQ(probed(outcome.path, "v:0", "stream_side_data=rotation"),
              probed(turned, "v:0", "stream_side_data=rotation"));
  }
  const auto matrix = [](const std::string& movie) { return probed(movie, "v:0", "stream_side_data=displaymatrix"); };
  for (const char* sample : {"sample_rotate_and_reflect.mp4", "sideways_movie.mov"}) {
    const Outcome mirrored = exportedClip(testing::sampleMovie(sample));
    ASSERT_TRUE(mirrored.succeeded) << mirrored.error;
    EXPECT_NE(matrix(mirrored.path), "");
    EXPECT_EQ(matrix(mirrored.path), matrix(testing::sampleMovie(sample)));
  }
}

TEST_F(ProRes, OnlyTheCleanApertureIsWritten) {
  const std::shared_ptr<AVFrame> frame(av_frame_alloc(), AvDeleter());
  frame->format = AV_PIX_FMT_YUV420P;
  frame->width = 64;
  frame->height = 48;
  ASSERT_GE(av_frame_get_buffer(frame.get(), 0), 0);
  for (int plane = 0; plane < 3; ++plane) {
    for (int y = 0; y < (plane == 0 ? 48 : 24); ++y) {
      for (int x = 0; x < (plane == 0 ? 64 : 32); ++x) {
        frame->data[plane][y * frame->linesize[plane] + x] =
            static_cast<std::uint8_t>(plane == 0 ? 20 + x + 2 * y : 128);
      }
    }
  }
  // 56 x 40 in the middle, moved by two to the right and two down (ISO/IEC 14496-12, 12.1.4).
  FrameShape shape;
  shape.cleanAperture = mov::CleanAperture{{56, 1}, {40, 1}, {2, 1}, {2, 1}};
  const PictureForm form = formOf(*frame, shape);
  EXPECT_EQ(form.width, 56);
  EXPECT_EQ(form.height, 40);
  PictureConversion conversion(form);
  std::string error;
  const auto converted = conversion.convert(*frame, shape, &error);
  ASSERT_TRUE(converted) << error;
  const auto luma = [&](int x, int y) {
    return reinterpret_cast<const std::uint16_t*>(converted->data[0] + y * converted->linesize[0])[x];
  };
  for (const auto& [x, y] : {std::pair{0, 0}, std::pair{55, 0}, std::pair{0, 39}, std::pair{55, 39}}) {
    EXPECT_NEAR(luma(x, y), 4 * (20 + (x + 6) + 2 * (y + 6)), 4) << x << "," << y;
  }
}

TEST_F(ProRes, OddSizesAndVaryingRatesAreWritten) {
  for (const char* sample : {"bear-vp9-odd-dimensions.webm", "sample_with_increasing_timestamps_320w_240h_5s.mp4"}) {
    const Outcome outcome = exportedClip(testing::sampleMovie(sample));
    ASSERT_TRUE(outcome.succeeded) << sample << ": " << outcome.error;
    const auto frames = [](const std::string& movie) {
      const std::string output =
          testing::runProgram({"ffprobe", "-v", "quiet", "-count_frames", "-select_streams", "v:0", "-show_entries",
                               "stream=nb_read_frames", "-of", "csv=p=0", movie})
              .output;
      return std::atoi(output.c_str());
    };
    EXPECT_EQ(frames(outcome.path), frames(testing::sampleMovie(sample))) << sample;
  }
}

TEST_F(ProRes, SoundAloneAndPicturesAloneAreWritten) {
  const Outcome sound = exportedClip(testing::soundMovie(folder_, "in.mov", sweep(1)));
  EXPECT_TRUE(sound.succeeded) << sound.error;
  EXPECT_EQ(probed(sound.path, "a:0", "stream=duration"), "1.000000");
  const auto empty = Composition::make();
  const Outcome nothing = exported(empty);
  EXPECT_FALSE(nothing.succeeded);
  EXPECT_EQ(nothing.error, "the movie has neither pictures nor sound");
}

TEST_F(ProRes, ATruncatedMovieFails) {
  const std::string path = made(
      "in.mp4", {"-f", "lavfi", "-i", "testsrc2=duration=6:size=160x120", "-c:v", "libx264", "-movflags", "faststart"});
  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  const Outcome outcome = exported(movie);
  EXPECT_FALSE(outcome.succeeded);
  EXPECT_NE(outcome.error, "");
}

std::vector<std::string> damageLines(const testing::RecordingLog& log) {
  std::vector<std::string> lines = log.lines();
  std::erase_if(lines, [](const std::string& line) { return !line.starts_with("movie export        :-( damaged"); });
  return lines;
}

TEST_F(ProRes, DamagedFramesAreKeptAsConcealedAndNamed) {
  const std::string whole = clip("prores_gop.mov", {numberedPictures(100), h264("bframes=0:keyint=10:scenecut=0")});
  const std::string damaged = folder_.file("damaged.mov");
  std::filesystem::copy_file(whole, damaged);
  testing::damagePacket(damaged, "v:0", 45, 8);
  const testing::RecordingLog log;
  const Outcome outcome = exportedClip(damaged);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  std::set<int> numbers;
  for (const auto& frame : testing::decoded(outcome.path).frames) {
    const double time = frame.time.seconds();
    if (time > 1.79 && time < 1.99) continue;
    EXPECT_NEAR(time, frame.number / 25.0, 0.001);
    numbers.insert(frame.number);
  }
  EXPECT_EQ(numbers.size(), 95U);
  // Up to the next key frame what follows leans on it; a decoder that works on several frames at a time says so early.
  const std::vector<std::string> lines = damageLines(log);
  ASSERT_EQ(lines.size(), 1U) << ::testing::PrintToString(log.lines());
  double from = 0;
  double to = 0;
  ASSERT_EQ(std::sscanf(lines[0].c_str(), "movie export        :-( damaged pictures from %lf to %lf s", &from, &to), 2);
  EXPECT_LE(from, 1.8);
  EXPECT_GE(from, 1.44);
  EXPECT_EQ(to, 2.0);
}

TEST_F(ProRes, WhereADecoderGivesNothingTheFrameBeforeStays) {
  const std::string whole = clip("prores_png.mov", {numberedPictures(20), {"-c:v", "png"}});
  const std::string damaged = folder_.file("damaged.mov");
  std::filesystem::copy_file(whole, damaged);
  testing::damagePacket(damaged, "v:0", 7, 0);
  testing::damagePacket(damaged, "v:0", 12, 0);
  const testing::RecordingLog log;
  const Outcome outcome = exportedClip(damaged);
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  const auto frames = testing::decoded(outcome.path).frames;
  ASSERT_EQ(frames.size(), 18U);
  EXPECT_EQ(frames[6].number, 6);
  EXPECT_EQ(frames[7].number, 8);
  EXPECT_NEAR(frames[7].time.seconds(), 0.32, 0.001);
  EXPECT_EQ(damageLines(log),
            (std::vector<std::string>{"movie export        :-( damaged pictures from 0.240 to 0.320 s",
                                      "movie export        :-( damaged pictures from 0.440 to 0.520 s"}));
}

TEST_F(ProRes, AnUndamagedMovieLogsNoDamage) {
  const testing::RecordingLog log;
  const Outcome outcome =
      exportedClip(clip("prores_open.mkv", {numberedPictures(100), h264("bframes=3:keyint=12:open-gop=1")}));
  ASSERT_TRUE(outcome.succeeded) << outcome.error;
  EXPECT_TRUE(damageLines(log).empty());
}

TEST_F(ProRes, WhatLiesBeyondACutMayBeMissing) {
  const std::string path = made("in.mp4", {"-f", "lavfi", "-i", "testsrc2=duration=6:size=160x120", "-c:v", "libx264",
                                           "-g", "12", "-movflags", "faststart"});
  const auto movie = loaded(path);
  const auto composition = Composition::make();
  std::string error;
  ASSERT_TRUE(composition->insertTimeRange(range(0, 1), movie, at(0), &error)) << error;
  std::filesystem::resize_file(path, std::filesystem::file_size(path) / 2);
  const Outcome outcome = exported(composition);
  EXPECT_TRUE(outcome.succeeded) << outcome.error;
  EXPECT_EQ(probed(outcome.path, "v:0", "stream=nb_frames"), "25");
}

TEST_F(ProRes, CancellingEndsIt) {
  const auto movie = loaded(clip("prores_one.mov", {numberedPictures(100), h264()}));
  int asked = 0;
  const Outcome outcome = exportTo(folder_.file("out.mov"), *movie, [&asked] { return ++asked > 20; });
  EXPECT_FALSE(outcome.succeeded);
  EXPECT_EQ(outcome.error, "");
  EXPECT_EQ(asked, 21);
}

TEST_F(ProRes, AFullDiskFails) {
  if (!testing::canMount()) GTEST_SKIP() << "this machine does not let a test mount a disk";
  const std::string path = made("in.mp4", {"-f", "lavfi", "-i", "testsrc2=duration=4:size=640x480", "-c:v", "libx264"});
  const std::string disk = folder_.makeFolder("disk");
  EXPECT_TRUE(testing::inChild([&] {
    ASSERT_TRUE(testing::mountScratch(disk.c_str(), "size=1m"));
    const Outcome outcome = exportTo(disk + "/out.mov", *loaded(path));
    EXPECT_FALSE(outcome.succeeded);
    EXPECT_EQ(outcome.error, "No space left on device");
  }));
}

}  // namespace
}  // namespace vistrelle::platform
