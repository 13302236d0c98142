#include <gtest/gtest.h>

#include "tests/platform/export/passthrough_fixture.h"

// Codings that no other test copies, each in a container that carries it: what is said beforehand holds, and what is
// written decodes as its source does.

namespace vistrelle::testing {
namespace {

struct Carried {
  const char* name;
  bool isVideo;
  std::vector<std::string> coding;
  bool isKept = true;
};

[[maybe_unused]] void PrintTo(const Carried& tested, std::ostream* out) {
  *out << tested.name;
}

class Codings : public ::testing::TestWithParam<Carried> {
 protected:
  void SetUp() override {
    const std::vector<std::string> sound{"-f", "lavfi", "-i", "sine=duration=2:sample_rate=48000"};
    path_ = clip(GetParam().name, {GetParam().isVideo ? numberedPictures(50) : sound, GetParam().coding});
    movie_ = loaded(path_);
    ASSERT_TRUE(movie_);
  }
  std::string path_;
  std::shared_ptr<platform::Asset> movie_;
};

TEST_P(Codings, keptOrRefusedAsSaid) {
  const ScratchFolder folder;
  std::string reason;
  ASSERT_EQ(platform::canPassThrough(*movie_, &reason), GetParam().isKept) << reason;
  if (!GetParam().isKept) return;
  const Written written = writeTo(*movie_, folder.file("kept.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const DecodedMovie before = decoded(path_);
  const DecodedMovie after = decoded(written.path);
  EXPECT_EQ(after.error, "");
  if (GetParam().isVideo) {
    EXPECT_EQ(after.numbers(), before.numbers());
    EXPECT_EQ(after.frames.size(), 50U);
  } else {
    ASSERT_EQ(after.sound.size(), 1U);
    EXPECT_NEAR(static_cast<double>(after.sound.begin()->second.size()), 2 * 48000.0, 2048);
  }
  // GStreamer as the distribution has it reads no DNxHR.
  if (std::string(GetParam().name) != "dnxhr.mov") expectReadable(written.path);
}

/// Packets of a program stream need not state their presentation times; decoding times run ahead of them.
TEST(ProgramStream, beginsWithItsFirstFrame) {
  const ScratchFolder folder;
  const std::string path = clip("fields.mpg", {numberedPictures(50), {"-c:v", "mpeg2video", "-bf", "2", "-f", "mpeg"}});
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  const Written written = writeTo(*movie, folder.file("kept.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const std::vector<int> numbers = decoded(written.path).numbers();
  ASSERT_EQ(numbers.size(), 50U);
  for (std::size_t i = 0; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], static_cast<int>(i));
}

// A frame of an IVF file is its size (4 bytes), its time (8 bytes) and its bytes, behind a header of 32 bytes.
TEST(PacketTimes, beyondWhatAMovieCanHoldAreRefused) {
  const ScratchFolder folder;
  std::string bytes = readFile(clip("far.ivf", {numberedPictures(5), {"-c:v", "libvpx-vp9", "-cpu-used", "8"}}));
  const std::size_t second =
      32 + 12 + static_cast<unsigned char>(bytes[32]) + std::size_t{256} * static_cast<unsigned char>(bytes[33]);
  ASSERT_LT(second + 12, bytes.size());
  bytes.replace(second + 4, 8, std::string("\0\0\0\0\0\0\0\xc4", 8));  // about -2^62
  const auto movie = loaded(folder.write("far.ivf", bytes));
  ASSERT_TRUE(movie);
  const Written written = writeTo(*movie, folder.file("kept.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "track 1 states times that no movie can hold");
}

INSTANTIATE_TEST_SUITE_P(
    table, Codings,
    ::testing::Values(Carried{"eac3.mp4", false, {"-c:a", "eac3"}}, Carried{"eac3.mkv", false, {"-c:a", "eac3"}},
                      Carried{"mp2.ts", false, {"-c:a", "mp2"}}, Carried{"flac.mkv", false, {"-c:a", "flac"}},
                      Carried{"flac.mp4", false, {"-c:a", "flac", "-strict", "-2"}},
                      Carried{"opus.mkv", false, {"-c:a", "libopus"}}, Carried{"opus.mp4", false, {"-c:a", "libopus"}},
                      Carried{"ima.mov", false, {"-c:a", "adpcm_ima_qt"}},
                      Carried{"ulaw.mov", false, {"-c:a", "pcm_mulaw"}},
                      Carried{"vorbis.mkv", false, {"-c:a", "libvorbis"}, false},
                      Carried{"vp9.webm", true, {"-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8"}},
                      Carried{"vp9.mp4", true, {"-c:v", "libvpx-vp9", "-deadline", "realtime", "-cpu-used", "8"}},
                      Carried{"dnxhr.mov",
                              true,
                              {"-c:v", "dnxhd", "-profile:v", "dnxhr_lb", "-pix_fmt", "yuv422p", "-vf", "pad=256:128"}},
                      Carried{"ffv1.mkv", true, {"-c:v", "ffv1"}, false}),
    [](const ::testing::TestParamInfo<Carried>& tested) {
      std::string name = tested.param.name;
      std::ranges::replace(name, '.', '_');
      return name;
    });

}  // namespace
}  // namespace vistrelle::testing
