// Lists that are worked out on two threads: the same frames in the same order, no more work, little waiting.

#include "vistrelle/platform/media/ffmpeg/frame_lanes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "frame_movies.h"
#include "frame_reference.h"
#include "tests/support/recording_log.h"

namespace vistrelle::testing {
namespace {

using platform::FrameGenerator;
using platform::FrameOptions;
using platform::FrameResult;
using platform::MediaTime;

std::string made(const std::string& name) {
  return madeMovies() + "/" + name;
}

/// As on a machine with two processors, however short the list.
FrameOptions inLanes() {
  FrameOptions options;
  options.threads = 2;
  options.lanes = 2;
  return options;
}

std::vector<MediaTime> timesOf(const Reference& reference, std::size_t step = 1) {
  std::vector<MediaTime> times;
  for (std::size_t i = 0; i < reference.frames.size(); i += step) times.push_back(reference.frames[i].time);
  return times;
}

bool usedLanes(const FrameGenerator& generator) {
  return generator.statistics().lanes > 0;
}

void expectFrame(const Reference& reference, const MediaTime& time, const FrameResult& result) {
  ASSERT_TRUE(result.picture) << time.description() << ": " << result.error;
  const ReferenceFrame& wanted = reference.frames[reference.indexAt(time)];
  EXPECT_EQ(hashOf(*result.picture->planar()), wanted.hash) << time.description();
  EXPECT_TRUE(reference.isTimeOf(wanted, result.actualTime)) << time.description();
}

class Lanes : public ::testing::TestWithParam<const char*> {};

TEST_P(Lanes, GiveTheSameFramesInTheOrderAskedForLittleMoreWork) {
  const Reference reference = referenceOf(made(GetParam()));
  for (const std::size_t step : {1, 7, 30}) {
    const OpenedMovie movie(made(GetParam()));
    const auto generator = movie.generator(inLanes());
    const std::vector<MediaTime> times = timesOf(reference, step);
    generator->announce(times);
    for (const MediaTime& time : times) expectFrame(reference, time, generator->copyFrame(time));
    EXPECT_TRUE(usedLanes(*generator)) << step;
    // Some at the edges of groups; never groups over again.
    const auto frames = static_cast<std::int64_t>(reference.frames.size());
    EXPECT_LE(generator->statistics().framesDecoded, frames * 5 / 4) << step;
  }
}

INSTANTIATE_TEST_SUITE_P(Movies, Lanes,
                         ::testing::Values("h264_closed.mp4", "h264_open.mp4", "hevc_open.mp4", "h264_long_gop.mp4",
                                           "h264_interlaced.mp4", "cut_open.mp4", "prores.mov", "mjpeg.mov",
                                           "ntsc.mp4"),
                         [](const auto& each) {
                           std::string name = each.param;
                           std::replace(name.begin(), name.end(), '.', '_');
                           return name;
                         });

TEST(FrameLanes, AreUsedWhereAListGains) {
  const auto usesThem = [](const std::string& name, const std::vector<MediaTime>& times, FrameOptions options) {
    const OpenedMovie movie(made(name));
    const auto generator = movie.generator(options);
    generator->announce(times);
    for (const MediaTime& time : times) EXPECT_TRUE(generator->copyFrame(time).picture);
    return usedLanes(*generator);
  };
  std::vector<MediaTime> halves;
  for (int i = 0; i < 8; ++i) halves.push_back(MediaTime::make(i, 2));
  const std::vector<MediaTime> backwards(halves.rbegin(), halves.rend());
  const std::vector<MediaTime> few(halves.begin(), halves.begin() + 4);
  FrameOptions two;
  two.threads = 2;
  if (std::thread::hardware_concurrency() > 1) {
    EXPECT_TRUE(usesThem("h264_closed.mp4", halves, two)) << "four groups of a second";
  }
  EXPECT_FALSE(usesThem("h264_closed.mp4", few, two)) << "two groups";
  EXPECT_FALSE(usesThem("h264_closed.mp4", backwards, two));
  EXPECT_FALSE(usesThem("h264_long_gop.mp4", halves, two)) << "one group";
  EXPECT_FALSE(usesThem("h264_closed.mp4", timesOf(referenceOf(made("h264_closed.mp4"))), two)) << "all of each group";
  FrameOptions one;
  one.threads = 1;
  EXPECT_FALSE(usesThem("h264_closed.mp4", halves, one));
  // Where no index tells groups apart, and where frames are counted.
  EXPECT_FALSE(usesThem("raw.h264", halves, inLanes()));
  FrameOptions none = inLanes();
  none.lanes = 1;
  EXPECT_FALSE(usesThem("h264_closed.mp4", halves, none));
}

TEST(FrameLanes, FewFramesWaitForTheirTurn) {
  const Reference reference = referenceOf(made("mjpeg.mov"));
  const OpenedMovie movie(made("mjpeg.mov"));
  const auto generator = movie.generator(inLanes());
  const std::vector<MediaTime> times = timesOf(reference);
  generator->announce(times);
  expectFrame(reference, times[0], generator->copyFrame(times[0]));
  // Both threads go as far as they may; nobody takes anything.
  std::int64_t decoded = 0;
  for (int still = 0; still < 10; ++still) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const std::int64_t now = generator->statistics().framesDecoded;
    if (now != decoded) still = 0;
    decoded = now;
  }
  EXPECT_LE(decoded, 1 + 4 + 2) << "taken, waiting, and one in the hand of each thread";
  for (const MediaTime& time : times) {
    if (time > times[0]) expectFrame(reference, time, generator->copyFrame(time));
  }
}

TEST(FrameLanes, APromiseNotKeptCostsNoPicture) {
  const Reference reference = referenceOf(made("h264_closed.mp4"));
  const OpenedMovie movie(made("h264_closed.mp4"));
  const auto generator = movie.generator(inLanes());
  const std::vector<MediaTime> times = timesOf(reference, 10);
  generator->announce(times);
  const auto ask = [&](const MediaTime& time) { expectFrame(reference, time, generator->copyFrame(time)); };
  ask(times[1]);
  ask(times[1]);
  ask(times[6]);  // some left out
  ask(times[2]);  // one of them after all
  ask(MediaTime::zero());
  ask(MediaTime::make(7, 4));  // never announced
  ask(times[7]);
  ask(times.back());
  ask(times[0]);
}

TEST(FrameLanes, WhatFollowsTheForwardPartOfAListComesToo) {
  const Reference reference = referenceOf(made("h264_closed.mp4"));
  const OpenedMovie movie(made("h264_closed.mp4"));
  const auto generator = movie.generator(inLanes());
  std::vector<MediaTime> times = timesOf(reference, 10);
  times.insert(times.end(), {MediaTime::make(1, 1), MediaTime::zero(), MediaTime::zero(), MediaTime::make(3, 1)});
  for (int round = 0; round < 2; ++round) {  // announced a second time, half of the first list untouched
    generator->announce(times);
    const std::size_t count = round == 0 ? times.size() / 2 : times.size();
    for (std::size_t i = 0; i < count; ++i) expectFrame(reference, times[i], generator->copyFrame(times[i]));
  }
  EXPECT_TRUE(usedLanes(*generator));
}

TEST(FrameLanes, DamageIsToldInOrderAndGivesTheSamePictures) {
  const auto outcome = [](int lanes) {
    const RecordingLog log;
    FrameOptions options = inLanes();
    options.lanes = lanes;
    const OpenedMovie movie(made("damaged.mp4"));
    const auto generator = movie.generator(options);
    std::vector<MediaTime> times;
    for (int i = 0; i < 16; ++i) times.push_back(MediaTime::make(i, 4));
    generator->announce(times);
    std::vector<std::string> told;
    for (const MediaTime& time : times) {
      const FrameResult result = generator->copyFrame(time);
      told.push_back(result.actualTime.description() + " " + result.error + " " +
                     std::to_string(result.picture ? hashOf(*result.picture->planar()) : 0));
    }
    EXPECT_EQ(usedLanes(*generator) || lanes == 1, true);
    const std::vector<std::string> lines = log.lines();
    EXPECT_FALSE(lines.empty());
    told.insert(told.end(), lines.begin(), lines.end());
    return told;
  };
  EXPECT_EQ(outcome(2), outcome(1));
}

TEST(FrameLanes, AGeneratorThatIsDroppedDoesNotFinishItsList) {
  const Reference reference = referenceOf(made("h264_long_gop.mp4"));
  const std::vector<MediaTime> times = timesOf(reference);
  for (int wanted = 0; wanted < 6; ++wanted) {
    const OpenedMovie movie(made("h264_long_gop.mp4"));
    const auto generator = movie.generator(inLanes());
    generator->announce(times);
    for (int i = 0; i < wanted; ++i) {
      const MediaTime time = times[static_cast<std::size_t>(i)];
      expectFrame(reference, time, generator->copyFrame(time));
    }
  }
}

TEST(FrameLanes, AMovieThatIsCalledOffGivesErrorsAndEnds) {
  const OpenedMovie movie(made("h264_closed.mp4"));
  const auto generator = movie.generator(inLanes());
  const std::vector<MediaTime> times = timesOf(referenceOf(made("h264_closed.mp4")), 5);
  generator->announce(times);
  EXPECT_TRUE(generator->copyFrame(times[0]).picture);
  movie.source->interrupt()->requested = true;
  EXPECT_FALSE(generator->copyFrame(times.back()).picture);
}

}  // namespace
}  // namespace vistrelle::testing
