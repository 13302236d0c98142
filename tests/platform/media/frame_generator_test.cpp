// What a generator costs, keeps and says.

#include "vistrelle/platform/media/ffmpeg/frame_generator.h"

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <fstream>
#include <random>

#include "frame_movies.h"
#include "frame_reference.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle::testing {
namespace {

using platform::ApertureMode;
using platform::FrameOptions;
using platform::FrameResult;
using platform::FrameStatistics;
using platform::MediaTime;

std::string sample(const std::string& name) {
  return std::string(VISTRELLE_TEST_DATA) + "/" + name;
}
std::string made(const std::string& name) {
  return madeMovies() + "/" + name;
}

std::vector<MediaTime> timesOfAllFrames(const Reference& reference) {
  std::vector<MediaTime> times;
  for (const ReferenceFrame& frame : reference.frames) times.push_back(frame.time);
  return times;
}

FrameStatistics statisticsOfList(const std::string& path, const std::vector<MediaTime>& times,
                                 const FrameOptions& options = {}) {
  const OpenedMovie movie(path);
  const auto generator = movie.generator(options);
  generator->announce(times);
  for (const MediaTime& time : times) EXPECT_TRUE(generator->copyFrame(time).picture) << path << time.description();
  return generator->statistics();
}

TEST(FrameGenerator, NoFrameIsDecodedTwiceForAList) {
  for (const char* name : {"h264_closed.mp4", "h264_long_gop.mp4", "hevc_closed.mkv", "vp9_altref.webm", "prores.mov",
                           "mjpeg.mov", "mpeg4.avi", "mjpeg.avi", "raw.h264", "vfr.mkv"}) {
    const Reference reference = referenceOf(made(name));
    std::vector<MediaTime> times = timesOfAllFrames(reference);
    const auto frames = static_cast<std::int64_t>(times.size());
    EXPECT_EQ(statisticsOfList(made(name), times).framesDecoded, frames) << name << " forwards";
    std::vector<MediaTime> twice = times;
    twice.insert(twice.end(), times.begin(), times.end());
    std::shuffle(twice.begin(), twice.end(), std::mt19937(7));
    EXPECT_LE(statisticsOfList(made(name), twice).framesDecoded, frames) << name << " shuffled, each twice";
    std::reverse(times.begin(), times.end());
    EXPECT_LE(statisticsOfList(made(name), times).framesDecoded, frames) << name << " backwards";
  }
}

// Across the edge of a group one frame may be needed by both sides: see makeFrameGenerator.
TEST(FrameGenerator, OnlyTheFrameAtTheEdgeOfAGroupIsDecodedTwice) {
  for (const char* name : {"h264_open.mp4", "h264.ts"}) {
    const Reference reference = referenceOf(made(name));
    std::vector<MediaTime> times = timesOfAllFrames(reference);
    const auto frames = static_cast<std::int64_t>(times.size());
    std::shuffle(times.begin(), times.end(), std::mt19937(7));
    const FrameStatistics statistics = statisticsOfList(made(name), times);
    EXPECT_LE(statistics.framesDecoded, frames + statistics.seeks) << name;
  }
}

TEST(FrameGenerator, SameFrameForManyTimesIsDecodedOnce) {
  const std::vector<MediaTime> times(50, MediaTime::make(1, 1));
  EXPECT_EQ(statisticsOfList(made("prores.mov"), times).framesDecoded, 1);
  EXPECT_EQ(statisticsOfList(made("prores.mov"), times).seeks, 1);
}

TEST(FrameGenerator, OnePictureOfAnIntraOnlyMovieIsOneFrame) {
  for (const char* name : {"prores.mov", "mjpeg.mov", "dnxhr.mov"}) {
    EXPECT_EQ(statisticsOfList(made(name), {MediaTime::make(1, 1)}).framesDecoded, 1) << name;
  }
}

TEST(FrameGenerator, FramesThatNoOtherNeedsAreLeftOutBeforeTheTarget) {
  FrameOptions everything;
  everything.skipsNonReference = false;
  const std::vector<MediaTime> target = {MediaTime::make(7, 2)};
  const FrameStatistics skipping = statisticsOfList(made("h264_long_gop.mp4"), target);
  const FrameStatistics whole = statisticsOfList(made("h264_long_gop.mp4"), target, everything);
  EXPECT_LT(skipping.framesDecoded, whole.framesDecoded * 7 / 10);
  EXPECT_EQ(skipping.seeks, whole.seeks);
}

TEST(FrameGenerator, OnePictureOfALongTransportStreamDoesNotReadAllOfIt) {
  // Sixteen copies with their own times each, one after the other: over 2 MB, so the end lies far from the start.
  const ScratchFolder folder;
  const std::string path = folder.file("long.ts");
  const std::string command =
      "ffmpeg -nostdin -v error -y -stream_loop 15 -i '" + made("h264.ts") + "' -c copy '" + path + "' </dev/null";
  ASSERT_EQ(std::system(command.c_str()), 0);
  const OpenedMovie movie(path);
  ASSERT_TRUE(movie.hasPictures()) << movie.error;
  const auto generator = movie.generator();
  const FrameResult result = generator->copyFrame(MediaTime::make(50, 1));
  ASSERT_TRUE(result.picture) << result.error;
  EXPECT_LT(generator->statistics().packetsRead, 200) << "of 1600";
}

TEST(FrameGenerator, PicturesThatWaitGoToATemporaryFileBeyondTheBound) {
  const Reference reference = referenceOf(made("h264_long_gop.mp4"));
  std::vector<MediaTime> times = timesOfAllFrames(reference);
  std::reverse(times.begin(), times.end());
  FrameOptions options;
  options.keptBytes = std::size_t{5} * (160 * 120 + 2 * 96 * 60);  // rows are kept at multiples of 32 bytes
  const auto frames = static_cast<std::int64_t>(times.size());
  const FrameStatistics statistics = statisticsOfList(made("h264_long_gop.mp4"), times, options);
  EXPECT_EQ(statistics.spilled, frames - 1 - 5);
  EXPECT_EQ(statistics.framesDecoded, frames);
  EXPECT_EQ(statisticsOfList(made("h264_long_gop.mp4"), times).spilled, 0);
}

// All pictures backwards, none kept in memory, with `folder` as the temporary one. How many could be put there.
std::int64_t picturesSpilledTo(const std::string& folder) {
  const char* former = std::getenv("TMPDIR");
  const std::string kept = former == nullptr ? "" : former;
  ::setenv("TMPDIR", folder.c_str(), 1);
  const Reference reference = referenceOf(made("h264_closed.mp4"));
  std::vector<MediaTime> times = timesOfAllFrames(reference);
  std::reverse(times.begin(), times.end());
  FrameOptions options;
  options.keptBytes = 0;
  const OpenedMovie movie(made("h264_closed.mp4"));
  const auto generator = movie.generator(options);
  generator->announce(times);
  for (const MediaTime& time : times) {
    const FrameResult result = generator->copyFrame(time);
    EXPECT_TRUE(result.picture) << result.error;
    if (!result.picture) break;
    EXPECT_EQ(hashOf(*result.picture->planar()), reference.frames[reference.indexAt(time)].hash);
  }
  former == nullptr ? ::unsetenv("TMPDIR") : ::setenv("TMPDIR", kept.c_str(), 1);
  return generator->statistics().spilled;
}

TEST(FrameGenerator, WithoutATemporaryFolderPicturesAreDecodedAgain) {
  EXPECT_EQ(picturesSpilledTo("/nonexistent"), 0);
}

TEST(FrameGenerator, OnAFullDiskPicturesAreDecodedAgain) {
  const ScratchFolder folder;
  const std::string disk = folder.file("disk");
  std::filesystem::create_directory(disk);
  if (::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=128k") != 0) GTEST_SKIP() << "nothing can be mounted here";
  const std::int64_t spilled = picturesSpilledTo(disk);
  EXPECT_EQ(::umount2(disk.c_str(), MNT_DETACH), 0);
  EXPECT_GT(spilled, 0);
  EXPECT_LT(spilled, 8) << "more than the disk holds";
}

TEST(FrameGenerator, BeyondTheLimitOfFileSizesPicturesAreDecodedAgain) {
  made("h264_closed.mp4");
  const ScratchFolder folder;
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &former), 0);
  const rlimit limit{128 * 1024, former.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
  const std::int64_t spilled = picturesSpilledTo(folder.path());
  EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &former), 0);
  EXPECT_GT(spilled, 0);
  EXPECT_LT(spilled, 8) << "more than a file may hold";
}

TEST(FrameGenerator, APictureOutlivesItsGeneratorAndMovie) {
  FrameResult result;
  const Reference reference = referenceOf(made("h264_closed.mp4"));
  {
    const OpenedMovie movie(made("h264_closed.mp4"));
    FrameOptions options;
    options.keptBytes = 0;  // so that the picture comes from the temporary file
    const auto generator = movie.generator(options);
    generator->announce(std::vector<MediaTime>{MediaTime::make(3, 2), MediaTime::make(1, 1)});
    generator->copyFrame(MediaTime::make(3, 2));
    result = generator->copyFrame(MediaTime::make(1, 1));
  }
  ASSERT_TRUE(result.picture);
  EXPECT_EQ(hashOf(*result.picture->planar()), reference.frames[25].hash);
}

TEST(FrameGenerator, ADamagedFrameIsDeliveredAndSaidToBeDamaged) {
  const RecordingLog log;
  const Reference reference = referenceOf(made("damaged.mp4"));
  const OpenedMovie movie(made("damaged.mp4"));
  const MediaTime inside = MediaTime::make(5, 2);
  for (const int threads : {1, 2, 8}) {
    FrameOptions options;
    options.threads = threads;
    const auto generator = movie.generator(options);
    const FrameResult result = generator->copyFrame(inside);
    ASSERT_TRUE(result.picture) << result.error;
    EXPECT_EQ(hashOf(*result.picture->planar()), reference.frames[reference.indexAt(inside)].hash) << threads;
  }
  EXPECT_EQ(log.lines().size(), 3U);
  EXPECT_TRUE(log.hasContaining("frame at 2.480      :-/ decoded with errors (packets lost="));
}

TEST(FrameGenerator, AnUndamagedFrameOfADamagedMovieIsNotSaidToBeDamaged) {
  const RecordingLog log;
  const OpenedMovie movie(made("damaged.mp4"));
  EXPECT_TRUE(movie.generator()->copyFrame(MediaTime::make(1, 1)).picture);
  EXPECT_TRUE(movie.generator()->copyFrame(MediaTime::make(7, 2)).picture);
  EXPECT_TRUE(log.lines().empty());
}

TEST(FrameGenerator, TimesThatAreNoNumbersAreErrors) {
  const OpenedMovie movie(made("h264_closed.mp4"));
  const auto generator = movie.generator();
  for (const MediaTime& time : {MediaTime::invalid(), MediaTime::indefinite()}) {
    const FrameResult result = generator->copyFrame(time);
    EXPECT_FALSE(result.picture);
    EXPECT_FALSE(result.actualTime.isValid());
    EXPECT_FALSE(result.error.empty());
  }
  EXPECT_EQ(generator->copyFrame(MediaTime::negativeInfinity()).actualTime, MediaTime::zero());
}

TEST(FrameGenerator, AnEncryptedMovieGivesNoPicture) {
  const OpenedMovie movie(sample("sample_fragmented_sgpd_v2.mp4"));
  if (!movie.hasPictures()) return;
  const FrameResult result = movie.generator()->copyFrame(MediaTime::zero());
  EXPECT_FALSE(result.picture);
  EXPECT_EQ(result.error, "the movie's pictures are encrypted");
}

TEST(FrameGenerator, ShapeOfSampleMovies) {
  const auto pictureOf = [](const char* name, ApertureMode mode, bool turned) {
    const OpenedMovie movie(sample(name));
    const auto generator = movie.generator();
    generator->setApertureMode(mode);
    generator->setAppliesPreferredTrackTransform(turned);
    return generator->copyFrame(MediaTime::zero()).picture;
  };
  const auto expectSize = [&](const char* name, ApertureMode mode, bool turned, double width, double height) {
    const auto picture = pictureOf(name, mode, turned);
    ASSERT_TRUE(picture) << name;
    EXPECT_EQ(picture->width(), width) << name;
    EXPECT_EQ(picture->height(), height) << name;
  };
  expectSize("xdcam-hd-1080i60.mov", ApertureMode::cleanAperture, true, 1888, 1062);
  expectSize("xdcam-hd-1080i60.mov", ApertureMode::productionAperture, true, 1920, 1080);
  expectSize("xdcam-hd-1080i60.mov", ApertureMode::encodedPixels, true, 1440, 1080);
  expectSize("xdcam-ex-720p24.mov", ApertureMode::cleanAperture, true, 1248, 702);
  expectSize("sideways_movie.mov", ApertureMode::cleanAperture, true, 480, 640);
  expectSize("sideways_movie.mov", ApertureMode::cleanAperture, false, 640, 480);
  expectSize("video_with_rectangular_samples.mp4", ApertureMode::cleanAperture, true, 1920, 1080);
  expectSize("bbb_800x640_768kbps_30fps_avc_pyramid_3b.mp4", ApertureMode::cleanAperture, true, 1138, 640);
  expectSize("bear-vp9-odd-dimensions.webm", ApertureMode::cleanAperture, true, 161, 121);
  const auto mirrored = pictureOf("sample_rotate_and_reflect.mp4", ApertureMode::cleanAperture, true);
  ASSERT_TRUE(mirrored);
  EXPECT_TRUE(mirrored->planar()->orientation.mirrored);
  EXPECT_TRUE(mirrored->planar()->orientation.swapsSides());
}

}  // namespace
}  // namespace vistrelle::testing
