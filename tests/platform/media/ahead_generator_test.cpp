#include "vistrelle/platform/media/ahead_generator.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

namespace vistrelle::platform {
namespace {

/// Answers with the asked time and notes what it was asked, and whether two asked at once.
class Scripted : public ImageGenerator {
 public:
  struct Notes {
    std::vector<std::int64_t> asked;
    std::vector<bool> transforms;
    std::atomic<int> count = 0;
    std::atomic<int> inside = 0;
    std::atomic<bool> overlapped = false;
    bool isGone = false;
  };
  explicit Scripted(Notes& notes) : notes_(notes) {}
  ~Scripted() override { notes_.isGone = true; }

  void setAppliesPreferredTrackTransform(bool applies) override { transform_ = applies; }
  void setApertureMode(ApertureMode) override {}
  void announce(std::span<const MediaTime>) override {}
  FrameResult copyFrame(const MediaTime& time) override {
    if (++notes_.inside > 1) notes_.overlapped = true;
    notes_.asked.push_back(time.value);
    notes_.transforms.push_back(transform_);
    ++notes_.count;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    --notes_.inside;
    return {nullptr, time, "none"};
  }

 private:
  Notes& notes_;
  bool transform_ = false;
};

MediaTime at(std::int64_t value) {
  return MediaTime::make(value, 2);
}

void waitFor(const std::atomic<int>& count, int wanted) {
  for (int i = 0; i < 5000 && count < wanted; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(AheadGenerator, IsNothingForNothing) {
  EXPECT_EQ(workingAhead(nullptr), nullptr);
}

TEST(AheadGenerator, AsksInTheAnnouncedOrderOneAtATimeAndOncePerTurn) {
  Scripted::Notes notes;
  const auto generator = workingAhead(std::make_unique<Scripted>(notes));
  const std::vector<MediaTime> times{at(5), at(1), at(1), at(9)};
  generator->announce(times);
  for (const MediaTime& time : times) EXPECT_EQ(generator->copyFrame(time).actualTime, time);
  EXPECT_EQ(notes.asked, (std::vector<std::int64_t>{5, 1, 1, 9}));
  EXPECT_FALSE(notes.overlapped);
}

TEST(AheadGenerator, WorksOutTheNextOneMeanwhileAndNoMore) {
  Scripted::Notes notes;
  const auto generator = workingAhead(std::make_unique<Scripted>(notes));
  generator->announce(std::vector{at(1), at(2), at(3)});
  generator->copyFrame(at(1));
  waitFor(notes.count, 2);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(notes.count, 2);
}

TEST(AheadGenerator, AnswersWhatComesOutOfTurn) {
  Scripted::Notes notes;
  const auto generator = workingAhead(std::make_unique<Scripted>(notes));
  generator->announce(std::vector{at(1), at(2)});
  EXPECT_EQ(generator->copyFrame(at(7)).actualTime, at(7));
  EXPECT_EQ(generator->copyFrame(at(1)).actualTime, at(1));
  EXPECT_EQ(generator->copyFrame(at(2)).actualTime, at(2));
  EXPECT_EQ(generator->copyFrame(at(2)).actualTime, at(2));
  EXPECT_FALSE(notes.overlapped);
}

TEST(AheadGenerator, AChangedWishHoldsForThePictureUnderWayToo) {
  Scripted::Notes notes;
  const auto generator = workingAhead(std::make_unique<Scripted>(notes));
  generator->announce(std::vector{at(1)});
  waitFor(notes.count, 1);
  generator->setAppliesPreferredTrackTransform(true);
  generator->copyFrame(at(1));
  EXPECT_TRUE(notes.transforms.back());
}

TEST(AheadGenerator, EndsWhileAPictureIsUnderWay) {
  Scripted::Notes notes;
  auto generator = workingAhead(std::make_unique<Scripted>(notes));
  generator->announce(std::vector{at(1), at(2)});
  generator.reset();
  EXPECT_TRUE(notes.isGone);
  EXPECT_EQ(notes.inside, 0);
}

}  // namespace
}  // namespace vistrelle::platform
