// What transport and program streams cover: recordings joined end to end, and last frames that do not say when they are
// shown.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/media/ffmpeg/file_io.h"
#include "vistrelle/platform/media/ffmpeg/frame_generator.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::testing {
namespace {

using platform::MediaTime;
using platform::MovieSource;

std::shared_ptr<MovieSource> opened(const std::string& path) {
  std::string error;
  auto bytes = platform::InputFile::open(path, &error);
  if (!bytes) return nullptr;
  return MovieSource::open(std::move(bytes), std::make_shared<platform::Interrupt>(), &error);
}

/// 50 frames, 25 a second, and 2 s of sound where `sound` names its coding.
std::string clip(const ScratchFolder& folder, const std::string& name, const std::vector<std::string>& video,
                 const std::string& sound = {}) {
  std::vector<std::string> command = {
      "ffmpeg", "-nostdin", "-v", "error",
      "-f",     "lavfi",    "-i", "testsrc2=size=640x384:rate=25:duration=2,noise=alls=20:allf=t"};
  if (!sound.empty()) command.insert(command.end(), {"-f", "lavfi", "-i", "sine=duration=2", "-c:a", sound});
  command.insert(command.end(), video.begin(), video.end());
  command.push_back(folder.file(name));
  return runProgram(command).status == 0 ? folder.file(name) : std::string();
}

const std::vector<std::string> kH264 = {"-c:v", "libx264", "-preset", "ultrafast", "-bf", "2", "-g", "25"};
const std::vector<std::string> kMpeg2 = {"-c:v", "mpeg2video", "-bf", "2", "-q:v", "2"};

double secondsOf(const platform::TimeRange& range) {
  return range.duration.seconds();
}

TEST(JoinedMovies, TimesRunOn) {
  const ScratchFolder folder;
  RecordingLog logged;
  // Larger than the tail that is read to know a movie's end, and smaller.
  for (const bool isLarge : {false, true}) {
    std::vector<std::string> video = kH264;
    if (!isLarge) video.insert(video.end(), {"-s", "160x96", "-qp", "35"});
    const std::string part = clip(folder, isLarge ? "large.ts" : "small.ts", video, "mp2");
    ASSERT_FALSE(part.empty());
    const auto single = opened(part);
    ASSERT_TRUE(single);
    const std::string bytes = readFile(part);
    EXPECT_EQ(bytes.size() > (std::size_t{1} << 20), isLarge);
    const auto joined = opened(folder.write("joined.ts", bytes + bytes + bytes));
    ASSERT_TRUE(joined);
    ASSERT_EQ(joined->streams().size(), 2U);
    EXPECT_DOUBLE_EQ(secondsOf(single->streams()[0].range), 2);
    EXPECT_DOUBLE_EQ(secondsOf(joined->streams()[0].range), 6);
    EXPECT_EQ(joined->zero(), single->zero());
    // Sound keeps its distance to the pictures.
    EXPECT_NEAR(secondsOf(joined->streams()[1].range), secondsOf(single->streams()[1].range) + 4, 1e-4);
    EXPECT_EQ(joined->streams()[1].range.start, single->streams()[1].range.start);
    const auto generator = platform::makeFrameGenerator(joined, joined->pictureStream(), {});
    logged.clear();
    for (const std::int64_t frame : {149, 50, 49, 100, 0, 125}) {
      const platform::FrameResult result =
          generator->copyFrame(MediaTime::make(frame, 25) + joined->streams()[0].range.start);
      ASSERT_TRUE(result.picture) << result.error;
      // The end of a part is no damage.
      EXPECT_FALSE(logged.hasContaining("decoded with errors")) << frame;
      EXPECT_DOUBLE_EQ((result.actualTime - joined->streams()[0].range.start).seconds(),
                       static_cast<double>(frame) / 25);
    }
  }
}

/// A damaged time is not a clock that starts again: the movie does not become longer by it.
TEST(JoinedMovies, AFewPacketsFromElsewhereAreNoPart) {
  const ScratchFolder folder;
  const std::string part = clip(folder, "part.ts", kH264);
  ASSERT_FALSE(part.empty());
  const std::string bytes = readFile(part);
  constexpr std::size_t kPacket = 188;
  const std::size_t half = bytes.size() / kPacket / 2 * kPacket;
  // The first packets once more, in the middle: the table of programs and one frame.
  const auto joined =
      opened(folder.write("joined.ts", bytes.substr(0, half) + bytes.substr(0, 20 * kPacket) + bytes.substr(half)));
  ASSERT_TRUE(joined);
  EXPECT_DOUBLE_EQ(secondsOf(joined->streams()[0].range), 2);
}

TEST(ProgramStreams, TheLastFrameCountsAlthoughItStatesNoTime) {
  const ScratchFolder folder;
  for (const std::string format : {"mpeg", "vob", "dvd", "svcd"}) {
    for (const bool isLarge : {false, true}) {
      std::vector<std::string> video = kMpeg2;
      if (!isLarge) video.insert(video.end(), {"-s", "160x96", "-q:v", "20"});
      video.insert(video.end(), {"-f", format});
      const std::string path = clip(folder, format + (isLarge ? "_large.vob" : ".vob"), video, isLarge ? "mp2" : "");
      ASSERT_FALSE(path.empty());
      EXPECT_EQ(readFile(path).size() > (std::size_t{1} << 20), isLarge) << path;
      const auto movie = opened(path);
      ASSERT_TRUE(movie);
      EXPECT_NEAR(secondsOf(movie->streams()[static_cast<std::size_t>(movie->pictureStream())].range), 2, 1e-4) << path;
    }
  }
  // Nothing is held back without B-frames, nor is anything added.
  const std::string path = clip(folder, "plain.vob", {"-c:v", "mpeg2video", "-f", "vob"});
  ASSERT_FALSE(path.empty());
  const auto movie = opened(path);
  ASSERT_TRUE(movie);
  EXPECT_NEAR(secondsOf(movie->streams()[0].range), 2, 1e-4);
}

}  // namespace
}  // namespace vistrelle::testing
