#include "vistrelle/platform/media/composition.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/platform/media/movie_loading.h"

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::CompositionTrack;
using platform::FrameResult;
using platform::ImageGenerator;
using platform::MediaTime;
using platform::MediaType;
using platform::Segment;
using platform::TimeRange;
using platform::Track;

MediaTime seconds(std::int64_t value, std::int32_t scale = 1) {
  return MediaTime::make(value, scale);
}
TimeRange range(std::int64_t start, std::int64_t duration, std::int32_t scale = 1) {
  return {seconds(start, scale), seconds(duration, scale)};
}

/// A source with a frame every 1/rate seconds and a clock of 1000 ticks, taking the tick nearest to a time.
class SteadyGenerator : public ImageGenerator {
 public:
  SteadyGenerator(int rate, std::vector<MediaTime>* announced) : rate_(rate), announced_(announced) {}
  void setAppliesPreferredTrackTransform(bool) override {}
  void setApertureMode(platform::ApertureMode) override {}
  void announce(std::span<const MediaTime> times) override { announced_->assign(times.begin(), times.end()); }
  FrameResult copyFrame(const MediaTime& time) override {
    const std::int64_t tick = time.convertedTo(1000).value;
    const std::int64_t frame = std::max<std::int64_t>(tick * rate_ / 1000, 0);
    return {std::make_shared<platform::Picture>(platform::Bitmap::make(2, 2)), seconds(frame * 1000 / rate_, 1000), {}};
  }

 private:
  int rate_;
  std::vector<MediaTime>* announced_;
};

class FakeTrack : public Track {
 public:
  explicit FakeTrack(MediaType type = MediaType::video) : type_(type) {}
  std::string description() const override { return "fake"; }
  std::int32_t trackId() const override { return 7; }
  MediaType mediaType() const override { return type_; }
  bool isEnabled() const override { return true; }
  TimeRange timeRange() const override { return range(0, 100); }
  float nominalFrameRate() const override { return rate; }
  bool isDecodable() const override { return decodable; }
  bool isProtected() const override { return isEncrypted; }
  std::unique_ptr<ImageGenerator> makeImageGenerator() const override {
    return hasPictures ? std::make_unique<SteadyGenerator>(25, &announced) : nullptr;
  }

  bool decodable = true;
  bool isEncrypted = false;
  bool hasPictures = true;
  float rate = 25;
  mutable std::vector<MediaTime> announced;

 private:
  MediaType type_;
};

TEST(Composition, EmptyOneHasNoLengthAndCannotBePlayed) {
  const auto composition = Composition::make();
  EXPECT_EQ(composition->kind(), platform::AssetKind::composition);
  EXPECT_EQ(composition->duration(), MediaTime::zero());
  EXPECT_TRUE(composition->tracks().empty());
  EXPECT_FALSE(composition->isPlayable());
  EXPECT_FALSE(composition->hasProtectedContent());
  EXPECT_FALSE(composition->makeImageGenerator());
  composition->addMutableTrack(MediaType::video, 0);
  EXPECT_FALSE(composition->isPlayable());
  EXPECT_FALSE(composition->tracks()[0]->timeRange().isValid());
  EXPECT_TRUE(load(*composition));
}

TEST(Composition, TrackNumbersAreWantedOrFree) {
  const auto composition = Composition::make();
  EXPECT_EQ(composition->addMutableTrack(MediaType::video, 0)->trackId(), 1);
  EXPECT_EQ(composition->addMutableTrack(MediaType::audio, 5)->trackId(), 5);
  EXPECT_EQ(composition->addMutableTrack(MediaType::audio, 5)->trackId(), 2);
  EXPECT_EQ(composition->addMutableTrack(MediaType::audio, -3)->trackId(), 3);
}

TEST(Composition, InsertedPiecesFollowEachOtherExactly) {
  const auto composition = Composition::make();
  const auto track = composition->addMutableTrack(MediaType::video, 0);
  const auto source = std::make_shared<FakeTrack>();
  ASSERT_TRUE(track->insertTimeRange({seconds(1), seconds(1001, 30000)}, source, MediaTime::zero(), nullptr));
  ASSERT_TRUE(track->insertTimeRange(range(5, 1, 3), source, seconds(1001, 30000), nullptr));
  const auto segments = track->segments();
  ASSERT_EQ(segments.size(), 2U);
  EXPECT_EQ(segments[1].target.start, seconds(1001, 30000));
  EXPECT_EQ(composition->duration(), seconds(1001, 30000) + seconds(1, 3));
  EXPECT_EQ(track->timeRange().end(), composition->duration());
}

TEST(Composition, InsertionInTheMiddleCutsAPieceAndMovesTheRest) {
  const auto track = Composition::make()->addMutableTrack(MediaType::video, 0);
  const auto first = std::make_shared<FakeTrack>();
  const auto second = std::make_shared<FakeTrack>();
  ASSERT_TRUE(track->insertTimeRange(range(10, 4), first, MediaTime::zero(), nullptr));
  ASSERT_TRUE(track->insertTimeRange(range(50, 2), second, seconds(1), nullptr));
  const auto segments = track->segments();
  ASSERT_EQ(segments.size(), 3U);
  EXPECT_EQ(segments[0].source, range(10, 1));
  EXPECT_EQ(segments[0].target, range(0, 1));
  EXPECT_EQ(segments[1].source, range(50, 2));
  EXPECT_EQ(segments[1].target, range(1, 2));
  EXPECT_EQ(segments[2].source, range(11, 3));
  EXPECT_EQ(segments[2].target, range(3, 3));
  EXPECT_EQ(segments[2].track, first);
}

TEST(Composition, InsertionBeyondTheEndLeavesAnEmptyStretch) {
  const auto composition = Composition::make();
  const auto track = composition->addMutableTrack(MediaType::video, 0);
  ASSERT_TRUE(track->insertTimeRange(range(0, 1), std::make_shared<FakeTrack>(), seconds(3), nullptr));
  const auto segments = track->segments();
  ASSERT_EQ(segments.size(), 2U);
  EXPECT_FALSE(segments[0].track);
  EXPECT_EQ(segments[0].target, range(0, 3));
  EXPECT_EQ(track->timeRange(), range(3, 1));
  EXPECT_EQ(composition->duration(), seconds(4));
}

TEST(Composition, WhatCannotBeInsertedIsRefusedWithAReason) {
  const auto track = Composition::make()->addMutableTrack(MediaType::video, 0);
  const auto source = std::make_shared<FakeTrack>();
  const auto refused = [&track](const TimeRange& piece, const std::shared_ptr<Track>& from, const MediaTime& at) {
    std::string error;
    const bool inserted = track->insertTimeRange(piece, from, at, &error);
    return !inserted && !error.empty() && track->segments().empty();
  };
  EXPECT_TRUE(refused(TimeRange::invalid(), source, MediaTime::zero()));
  EXPECT_TRUE(refused({MediaTime::zero(), MediaTime::indefinite()}, source, MediaTime::zero()));
  EXPECT_TRUE(refused({MediaTime::zero(), MediaTime::positiveInfinity()}, source, MediaTime::zero()));
  EXPECT_TRUE(refused({MediaTime::zero(), seconds(-1)}, source, MediaTime::zero()));
  EXPECT_TRUE(refused(range(0, 1), source, MediaTime::invalid()));
  EXPECT_TRUE(refused(range(0, 1), source, seconds(-1)));
  EXPECT_TRUE(refused(range(0, 1), std::make_shared<FakeTrack>(MediaType::audio), MediaTime::zero()));
  EXPECT_TRUE(refused(range(0, 1), nullptr, MediaTime::zero()));
  EXPECT_FALSE(track->insertTimeRange(range(0, 1), nullptr, MediaTime::zero(), nullptr));
  EXPECT_TRUE(track->insertTimeRange(range(0, 0), source, MediaTime::zero(), nullptr));
  EXPECT_TRUE(track->segments().empty());
}

TEST(Composition, IsPlayableWhenEverySourceIs) {
  const auto composition = Composition::make();
  const auto source = std::make_shared<FakeTrack>();
  composition->addMutableTrack(MediaType::video, 0)->insertTimeRange(range(0, 1), source, MediaTime::zero(), nullptr);
  EXPECT_TRUE(composition->isPlayable());
  const auto sound = std::make_shared<FakeTrack>(MediaType::audio);
  sound->decodable = false;
  composition->addMutableTrack(MediaType::audio, 0)->insertTimeRange(range(0, 1), sound, MediaTime::zero(), nullptr);
  EXPECT_FALSE(composition->isPlayable());
  EXPECT_FALSE(composition->hasProtectedContent());
  sound->isEncrypted = true;
  EXPECT_TRUE(composition->hasProtectedContent());
}

TEST(Composition, ACopyIsItsOwn) {
  const auto composition = Composition::make();
  const auto track = composition->addMutableTrack(MediaType::video, 4);
  track->insertTimeRange(range(0, 1), std::make_shared<FakeTrack>(), MediaTime::zero(), nullptr);
  const auto copy = composition->copy();
  track->insertTimeRange(range(0, 1), std::make_shared<FakeTrack>(), MediaTime::zero(), nullptr);
  EXPECT_EQ(copy->duration(), seconds(1));
  EXPECT_EQ(composition->duration(), seconds(2));
  EXPECT_EQ(copy->tracks()[0]->trackId(), 4);
}

TEST(Composition, FrameRateIsWeightedByLength) {
  const auto track = Composition::make()->addMutableTrack(MediaType::video, 0);
  const auto slow = std::make_shared<FakeTrack>();
  slow->rate = 10;
  track->insertTimeRange(range(0, 3), std::make_shared<FakeTrack>(), MediaTime::zero(), nullptr);
  track->insertTimeRange(range(0, 1), slow, seconds(3), nullptr);
  EXPECT_FLOAT_EQ(track->nominalFrameRate(), (25.0F * 3 + 10) / 4);
}

// ---- pictures ---------------------------------------------------------------------------------------

class CompositionPictures : public ::testing::Test {
 protected:
  // [0,2) empty, [2,3) shows [10,11) of the source, [3,4) shows [20.01,21.01).
  CompositionPictures() {
    const auto track = composition_->addMutableTrack(MediaType::video, 0);
    track->insertTimeRange(range(10, 1), source_, seconds(2), nullptr);
    track->insertTimeRange(range(2001, 100, 100), source_, seconds(3), nullptr);
    generator_ = composition_->makeImageGenerator();
  }
  MediaTime shownAt(const MediaTime& time) { return generator_->copyFrame(time).actualTime; }

  std::shared_ptr<Composition> composition_ = Composition::make();
  std::shared_ptr<FakeTrack> source_ = std::make_shared<FakeTrack>();
  std::unique_ptr<ImageGenerator> generator_;
};

TEST_F(CompositionPictures, TimesGoThroughTheSegments) {
  ASSERT_TRUE(generator_);
  EXPECT_EQ(shownAt(seconds(2)), seconds(2));
  EXPECT_EQ(shownAt(seconds(250, 100)), seconds(248, 100));
  EXPECT_EQ(shownAt(seconds(3990, 1000)), seconds(3) + (seconds(21) - seconds(2001, 100)));
}

TEST_F(CompositionPictures, AFrameThatBeganBeforeThePieceIsReportedAtItsBeginning) {
  EXPECT_EQ(shownAt(seconds(3)), seconds(3));  // 20.01 shows the frame of 20.00
}

TEST_F(CompositionPictures, OutsideThePiecesTheFirstAndLastFramesAreShown) {
  EXPECT_EQ(shownAt(seconds(-1)), seconds(2));
  EXPECT_EQ(shownAt(seconds(100)), seconds(3) + (seconds(21) - seconds(2001, 100)));
  EXPECT_EQ(shownAt(MediaTime::positiveInfinity()), shownAt(seconds(4)));
}

TEST_F(CompositionPictures, EmptyStretchesAtBothEndsShowTheFirstAndLastFrames) {
  EXPECT_EQ(shownAt(seconds(0)), seconds(2));
  EXPECT_EQ(shownAt(seconds(1999, 1000)), seconds(2));
  const auto longer = Composition::make();
  const auto pictures = longer->addMutableTrack(MediaType::video, 0);
  pictures->insertTimeRange(range(10, 1), source_, MediaTime::zero(), nullptr);
  pictures->insertTimeRange(range(20, 1), source_, seconds(5), nullptr);
  pictures->removeTimeRange({seconds(5), seconds(1)});
  ASSERT_EQ(longer->duration(), seconds(5));
  const auto generator = longer->makeImageGenerator();
  for (const auto& time : {seconds(1), seconds(3), seconds(6)}) {
    EXPECT_EQ(generator->copyFrame(time).actualTime, seconds(96, 100));
  }
}

TEST_F(CompositionPictures, AnEmptyStretchBetweenPiecesHasNoPicture) {
  const auto track = composition_->mutableTracks()[0];
  track->insertTimeRange(range(30, 1), source_, seconds(5), nullptr);
  generator_ = composition_->makeImageGenerator();
  const FrameResult result = generator_->copyFrame(seconds(45, 10));
  EXPECT_FALSE(result.picture);
  EXPECT_FALSE(result.error.empty());
  EXPECT_TRUE(generator_->copyFrame(seconds(5)).picture);
  EXPECT_FALSE(generator_->copyFrame(MediaTime::invalid()).picture);
  EXPECT_FALSE(generator_->copyFrame(MediaTime::indefinite()).picture);
}

TEST_F(CompositionPictures, TheFrameThatBeginsWhereAPieceEndsIsNotShown) {
  // 2.9999 rounds up to the tick of source time 11, whose frame is not part of the piece.
  EXPECT_EQ(shownAt(seconds(29999, 10000)), seconds(296, 100));
  const auto other = Composition::make();
  other->addMutableTrack(MediaType::video, 0)->insertTimeRange(range(10, 1), source_, MediaTime::zero(), nullptr);
  EXPECT_EQ(other->makeImageGenerator()->copyFrame(seconds(1)).actualTime, seconds(96, 100));
}

TEST_F(CompositionPictures, AnnouncedTimesReachTheSource) {
  const MediaTime times[] = {seconds(25, 10), seconds(1), seconds(35, 10)};
  generator_->announce(times);
  EXPECT_EQ(source_->announced, (std::vector<MediaTime>{seconds(105, 10), seconds(10), seconds(2051, 100)}));
}

TEST(Composition, WithoutPicturesInASourceThereIsNoGenerator) {
  const auto composition = Composition::make();
  const auto source = std::make_shared<FakeTrack>();
  source->hasPictures = false;
  composition->addMutableTrack(MediaType::video, 0)->insertTimeRange(range(0, 1), source, MediaTime::zero(), nullptr);
  EXPECT_FALSE(composition->makeImageGenerator());
}

TEST(Composition, VideoTracksOfARealMovieArePlayable) {
  const auto asset = loaded(dataFile("nasa_13013.mp4"));
  const auto composition = Composition::make();
  const auto track = composition->addMutableTrack(MediaType::video, 0);
  for (const auto& each : asset->tracks()) {
    if (each->mediaType() != MediaType::video) continue;
    EXPECT_TRUE(track->insertTimeRange({MediaTime::zero(), asset->duration()}, each, MediaTime::zero(), nullptr));
  }
  EXPECT_TRUE(composition->isPlayable());
  // Each piece ends with its track, the second one before the movie does.
  MediaTime ends = MediaTime::zero();
  for (const auto& each : asset->tracks()) {
    if (each->mediaType() == MediaType::video) ends = ends + each->timeRange().end();
  }
  EXPECT_EQ(composition->duration(), ends);
  EXPECT_NEAR(composition->duration().seconds(), 16.570 + 9.443, 0.001);
  const auto generator = composition->makeImageGenerator();
  ASSERT_TRUE(generator);
  // The second track was inserted before the first.
  const FrameResult second = generator->copyFrame(seconds(1));
  ASSERT_TRUE(second.picture);
  EXPECT_EQ(second.picture->width(), 480);
  const FrameResult first = generator->copyFrame(seconds(20));
  ASSERT_TRUE(first.picture);
  EXPECT_EQ(first.picture->width(), 320);
}

TEST(Composition, AMovieWhosePicturesBeginLateShowsThemLikeItself) {
  for (const char* name : {"edit_list_positive_shift.mp4", "prog_8s.mp4", "sample_fragmented.mp4"}) {
    const auto movie = loaded(dataFile(name));
    ASSERT_TRUE(movie) << name;
    const auto composition = Composition::make();
    ASSERT_TRUE(
        composition->insertTimeRange({MediaTime::zero(), movie->duration()}, movie, MediaTime::zero(), nullptr));
    const auto own = movie->makeImageGenerator();
    const auto composed = composition->makeImageGenerator();
    ASSERT_TRUE(own && composed) << name;
    for (const auto& time : {MediaTime::zero(), seconds(5, 100), seconds(12, 10)}) {
      const FrameResult expected = own->copyFrame(time);
      const FrameResult result = composed->copyFrame(time);
      ASSERT_TRUE(expected.picture && result.picture) << name << time.description() << result.error;
      EXPECT_EQ(result.actualTime, expected.actualTime) << name << time.description();
    }
  }
}

}  // namespace
}  // namespace vistrelle::testing
