#include "vistrelle/platform/media/ffmpeg/frame_plan.h"

#include <gtest/gtest.h>

#include <array>

namespace vistrelle::platform {
namespace {

TEST(FramePlan, GivesOpenPlacesInOrderWhateverTheOrderOfTheList) {
  FramePlan plan;
  plan.announce(std::array<std::int64_t, 4>{30, 10, 20, 10});
  EXPECT_EQ(plan.openCount(), 3U);
  EXPECT_EQ(plan.nextOpen(-5), 10);
  EXPECT_EQ(plan.nextOpen(10), 10);
  EXPECT_EQ(plan.nextOpenAfter(10), 20);
  EXPECT_EQ(plan.nextOpen(31), std::nullopt);
  plan.setAnswer(20, 19);
  EXPECT_EQ(plan.nextOpenAfter(10), 30);
  EXPECT_EQ(plan.answerOf(20), 19);
  EXPECT_EQ(plan.answerOf(10), std::nullopt);
}

TEST(FramePlan, ForgetsAPlaceOnlyAfterItsLastUse) {
  FramePlan plan;
  plan.announce(std::array<std::int64_t, 2>{10, 10});
  plan.setAnswer(10, 7);
  EXPECT_EQ(plan.consume(10), std::nullopt);
  EXPECT_EQ(plan.answerOf(10), 7);
  EXPECT_EQ(plan.consume(10), 7);
  EXPECT_EQ(plan.answerOf(10), std::nullopt);
  EXPECT_EQ(plan.consume(10), std::nullopt);
}

TEST(FramePlan, AFrameIsNeededWhileANeighbourWaitsForIt) {
  FramePlan plan;
  plan.announce(std::array<std::int64_t, 3>{10, 11, 12});
  for (const std::int64_t place : {10, 11, 12}) plan.setAnswer(place, 9);
  EXPECT_EQ(plan.consume(11), std::nullopt);
  EXPECT_EQ(plan.consume(10), std::nullopt);
  EXPECT_EQ(plan.consume(12), 9);
}

TEST(FramePlan, ALostAnswerIsOpenAgain) {
  FramePlan plan;
  plan.announce(std::array<std::int64_t, 2>{10, 11});
  plan.setAnswer(10, 9);
  plan.setAnswer(11, 9);
  plan.forgetAnswers(9);
  EXPECT_EQ(plan.openCount(), 2U);
}

TEST(FramePlan, PlacesThatWereNotAnnouncedChangeNothing) {
  FramePlan plan;
  plan.setAnswer(5, 5);
  EXPECT_EQ(plan.answerOf(5), std::nullopt);
  EXPECT_EQ(plan.consume(5), std::nullopt);
}

}  // namespace
}  // namespace vistrelle::platform
