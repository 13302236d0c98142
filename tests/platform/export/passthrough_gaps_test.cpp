#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>

#include "tests/platform/export/passthrough_fixture.h"
#include "tests/platform/export/sound_clips.h"

// Sound that is a little shorter than the pictures leaves a silent stretch at every join of such movies.

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::MediaTime;

constexpr int kRate = 48000;
constexpr int kLasts = 2 * kRate;  // of the pictures of each movie

struct Short {
  const char* name;
  std::vector<std::string> coding;
  int sound;       // samples
  int packet = 1;  // samples; by up to one packet libavformat misplaces what stands behind the first edit
  int tolerance = 1;
};

[[maybe_unused]] void PrintTo(const Short& tested, std::ostream* out) {
  *out << tested.name;
}

class SoundGaps : public ::testing::TestWithParam<Short> {
 protected:
  void SetUp() override {
    const std::string sound = "aevalsrc=exprs=0.3*sin(2*PI*(200*t+150*t*t)):sample_rate=48000,atrim=end_sample=" +
                              std::to_string(GetParam().sound);
    path_ = clip(GetParam().name, {numberedPictures(50),
                                   {"-f", "lavfi", "-i", sound, "-c:v", "libx264", "-preset", "veryfast"},
                                   GetParam().coding});
  }
  /// Joins the movie to itself and writes it.
  std::string writeJoined(int times) {
    const auto movie = loaded(path_);
    EXPECT_TRUE(movie);
    const auto composition = Composition::make();
    for (int i = 0; i < times; ++i) {
      EXPECT_TRUE(composition->insertTimeRange(range(0, 2), movie, at(2 * i), nullptr));
    }
    const Written written = writeTo(*composition, folder_.file("joined.mov"));
    EXPECT_TRUE(written.succeeded) << written.error;
    return written.path;
  }
  /// By how many samples `source` stands too early or late at `at`; a shift beyond `most` counts as that of nothing.
  static int shiftOf(const std::vector<std::int16_t>& heard, int at, const std::vector<std::int16_t>& source, int from,
                     int most) {
    constexpr int kCompared = 4000;
    for (int size = 0; size <= most; ++size) {
      for (const int shift : {size, -size}) {
        int worst = 0;
        for (int i = 0; i < kCompared && worst <= GetParam().tolerance; ++i) {
          const auto place = static_cast<std::size_t>(at + shift + i);
          if (at + shift + i < 0 || place >= heard.size()) return most + 1;
          worst = std::max(worst, std::abs(heard[place] - source[static_cast<std::size_t>(from + i)]));
        }
        if (worst <= GetParam().tolerance) return shift;
      }
    }
    return most + 1;
  }
  void expectPlaces(const std::vector<std::int16_t>& heard, int times) {
    const std::vector<std::int16_t> source = decoded(path_).sound.begin()->second;
    const int packet = GetParam().packet;
    const int length = std::min(GetParam().sound, static_cast<int>(source.size()));
    for (int pass = 0; pass < times; ++pass) {
      for (const int from : {3 * packet, length / 2, length - 4000 - 2 * packet}) {
        EXPECT_LE(std::abs(shiftOf(heard, pass * kLasts + from, source, from, 8 * packet)), packet == 1 ? 0 : packet)
            << "pass " << pass << " from " << from;
      }
      if (pass + 1 == times) break;
      int loudest = 0;
      const int gapEnd = (pass + 1) * kLasts - packet;
      for (int i = pass * kLasts + GetParam().sound + 2 * packet - 1; i < gapEnd; ++i) {
        loudest = std::max<int>(loudest, std::abs(heard[static_cast<std::size_t>(i)]));
      }
      EXPECT_LE(loudest, GetParam().tolerance) << "silence " << pass;
    }
  }

  ScratchFolder folder_;
  std::string path_;
};

// As many programs do that play sound one block behind the other.
TEST_P(SoundGaps, samplesCountedFromTheStart) {
  if (GetParam().coding[1] == "ac3") {
    // libavformat's parser of AC-3 loses a packet at every seam, whatever stands there.
    EXPECT_NEAR(static_cast<double>(decoded(writeJoined(5)).sound.begin()->second.size()), 5 * kLasts, 10 * 1536);
    return;
  }
  const DecodedMovie movie = decoded(writeJoined(5));
  EXPECT_EQ(movie.error, "");
  ASSERT_EQ(movie.sound.size(), 1U);
  expectPlaces(movie.sound.begin()->second, 5);
}

TEST_P(SoundGaps, samplesAtTheirTimes) {
  const DecodedMovie movie = decoded(writeJoined(3));
  EXPECT_EQ(movie.error, "");
  std::vector<std::int16_t> placed(3 * kLasts);
  ASSERT_EQ(movie.sound.size(), 1U);
  const auto& samples = movie.sound.begin()->second;
  for (const SoundBlock& block : movie.soundBlocks.at(movie.sound.begin()->first)) {
    for (std::size_t i = block.first; i < block.end; ++i) {
      const auto place = static_cast<std::size_t>(std::llround(block.time.seconds() * kRate)) + i - block.first;
      if (place < placed.size()) placed[place] = samples[i];
    }
  }
  expectPlaces(placed, 3);
}

TEST_P(SoundGaps, readersHaveNothingAgainstIt) {
  const std::string path = writeJoined(2);
  EXPECT_GE(decoded(path).frames.size(), 98U);
  expectReadable(path);
}

// What the ffmpeg program shows of Motion JPEG: the frames of the pieces and between them black, not the first frame.
TEST(PictureGaps, motionJpegIsBlackWhereNothingIs) {
  const ScratchFolder folder;
  const auto movie = loaded(clip("gaps.mov", {numberedPictures(50, "25", 128), {"-c:v", "mjpeg", "-q:v", "3"}}));
  const auto composition = Composition::make();
  ASSERT_TRUE(composition->insertTimeRange(range(20, 10, 25), movie, at(0), nullptr));
  ASSERT_TRUE(composition->insertTimeRange(range(5, 10, 25), movie, at(1), nullptr));
  ASSERT_TRUE(composition->insertTimeRange(range(30, 10, 25), movie, at(2), nullptr));
  const Written written = writeTo(*composition, folder.file("gaps.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  Shown expected = shownBy({{0.8, 0.4, 0, 128}, {0, 0, 0.6, -1}, {0.2, 0.4, 0, 128}, {0, 0, 0.6, -1}}, 25);
  for (const auto& [number, time] : shownBy({{1.2, 0.4, 0, 128}}, 25)) expected.push_back({number, 2 + time});
  expectGenerates(written.path, expected, 2.4);
  for (const int gapAt : {10, 21}) expected.insert(expected.begin() + gapAt, {0, gapAt == 10 ? 0.4 : 1.4});
  expectDecodes(written.path, expected);
  const std::string raw = folder.file("shown.gray");
  const RunResult run = runProgram({"ffmpeg", "-v", "error", "-nostdin", "-i", written.path, "-vsync", "passthrough",
                                    "-pix_fmt", "gray", "-f", "rawvideo", raw});
  ASSERT_EQ(run.status, 0) << run.error;
  const std::string pixels = readFile(raw);
  std::vector<int> shown;
  for (std::size_t frame = 0; frame + 256 * 64 <= pixels.size(); frame += 256 * 64) {
    shown.push_back(numberIn("gray", reinterpret_cast<const std::uint8_t*>(pixels.data()) + frame, 256));
  }
  std::vector<int> wanted;
  for (const auto& [number, time] : expected) wanted.push_back(number);
  EXPECT_EQ(shown, wanted);
  expectReadable(written.path);
}

const std::vector<std::string> kAac{"-c:a", "aac", "-b:a", "192k", "-aac_pns", "0"};

INSTANTIATE_TEST_SUITE_P(
    codings, SoundGaps,
    ::testing::Values(Short{"pcm20.mov", {"-c:a", "pcm_s16le"}, kLasts - 960},
                      Short{"pcm200.mov", {"-c:a", "pcm_s24le"}, kLasts - 9600},
                      Short{"u8.mov", {"-c:a", "pcm_u8"}, kLasts - 4800, 1, 256},
                      Short{"alaw.mov", {"-c:a", "pcm_alaw"}, kLasts - 4800, 1, 8},
                      Short{"pcm.mkv", {"-c:a", "pcm_s16le"}, kLasts - 4800},
                      Short{"aac20.mp4", kAac, kLasts - 960, 1024, 150},
                      Short{"aac200.mp4", kAac, kLasts - 9600, 1024, 150},
                      Short{"aac100.ts", kAac, kLasts - 4800, 1024, 150},
                      Short{"ac3.mov", {"-c:a", "ac3", "-b:a", "448k"}, kLasts - 9600, 1536, 150},
                      Short{"mp3.mov", {"-c:a", "libmp3lame", "-b:a", "256k"}, kLasts - 9600, 1152, 150},
                      Short{"alac.m4a.mov", {"-c:a", "alac"}, kLasts - 12000, 4096, 1}),
    [](const ::testing::TestParamInfo<Short>& tested) {
      std::string name = tested.param.name;
      std::ranges::replace(name, '.', '_');
      return name;
    });

}  // namespace
}  // namespace vistrelle::testing
