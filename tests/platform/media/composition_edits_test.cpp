#include <gtest/gtest.h>

#include <limits>

#include "tests/platform/media/composition_sources.h"
#include "vistrelle/platform/media/segment_list.h"

namespace vistrelle::testing {
namespace {

using platform::Asset;
using platform::Composition;
using platform::CompositionTrack;
using platform::MediaTime;
using platform::MediaType;
using platform::Segment;
using platform::Size;
using platform::TimeRange;
using platform::Track;

std::shared_ptr<NumberedTrack> source(int seconds, int start = 0, MediaType type = MediaType::video) {
  return std::make_shared<NumberedTrack>(1, seconds, 0, start, type);
}
std::shared_ptr<Asset> movie(std::vector<std::shared_ptr<Track>> tracks, MediaTime duration) {
  return std::make_shared<MovieOfTracks>(std::move(tracks), duration);
}
std::shared_ptr<CompositionTrack> trackOf(const std::shared_ptr<Track>& from, const TimeRange& piece) {
  const auto track = Composition::make()->addMutableTrack(from->mediaType(), 0);
  EXPECT_TRUE(track->insertTimeRange(piece, from, MediaTime::zero(), nullptr));
  return track;
}

/// "t 0+2 1+2": source 0 for 2 seconds laid at 1 for 2; "-" for empty.
std::string told(const std::vector<Segment>& segments) {
  std::string text;
  const auto number = [](const MediaTime& time) {
    std::string shown = std::to_string(time.value);
    if (time.scale != 1 && time.value % time.scale == 0) return std::to_string(time.value / time.scale);
    if (time.scale != 1) shown += "/" + std::to_string(time.scale);
    return shown;
  };
  for (const Segment& segment : segments) {
    if (!text.empty()) text += ", ";
    if (segment.track) text += number(segment.source.start) + "+" + number(segment.source.duration) + " at ";
    if (!segment.track) text += "- at ";
    text += number(segment.target.start) + "+" + number(segment.target.duration);
    EXPECT_TRUE(segment.track || segment.source == segment.target);
  }
  return text;
}

// ---- one track --------------------------------------------------------------------------------------

TEST(CompositionRemoval, TakesOutTheMiddleAndMovesTheRest) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->removeTimeRange(rangeFrom(2, 3));
  EXPECT_EQ(told(track->segments()), "0+2 at 0+2, 5+5 at 2+5");
  track->removeTimeRange(rangeFrom(1, 2));
  EXPECT_EQ(told(track->segments()), "0+1 at 0+1, 6+4 at 1+4");
  track->removeTimeRange(rangeFrom(0, 100));
  EXPECT_EQ(told(track->segments()), "");
}

TEST(CompositionRemoval, IgnoresWhatLiesOutside) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->removeTimeRange(rangeFrom(-3, 4));
  EXPECT_EQ(told(track->segments()), "1+9 at 0+9");
  track->removeTimeRange(rangeFrom(7, std::numeric_limits<std::int64_t>::max()));
  EXPECT_EQ(told(track->segments()), "1+7 at 0+7");
  for (const TimeRange& nothing : {rangeFrom(7, 1), rangeFrom(-2, 2), rangeFrom(3, 0), rangeFrom(2, -1),
                                   TimeRange::invalid(), TimeRange{MediaTime::indefinite(), timeOf(1)}}) {
    track->removeTimeRange(nothing);
    EXPECT_EQ(told(track->segments()), "1+7 at 0+7");
  }
  track->removeTimeRange({timeOf(5), MediaTime::positiveInfinity()});
  EXPECT_EQ(told(track->segments()), "1+5 at 0+5");
}

TEST(CompositionRemoval, NeighbouringEmptyStretchesBecomeOne) {
  const auto track = Composition::make()->addMutableTrack(MediaType::video, 0);
  track->insertTimeRange(rangeFrom(0, 2), source(9), timeOf(3), nullptr);
  track->insertTimeRange(rangeFrom(0, 2), source(9), timeOf(8), nullptr);
  EXPECT_EQ(told(track->segments()), "- at 0+3, 0+2 at 3+2, - at 5+3, 0+2 at 8+2");
  track->removeTimeRange(rangeFrom(3, 2));
  EXPECT_EQ(told(track->segments()), "- at 0+6, 0+2 at 6+2");
}

TEST(CompositionScaling, StretchesTheTargetOnly) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->scaleTimeRange(rangeFrom(2, 3), timeOf(6));
  EXPECT_EQ(told(track->segments()), "0+2 at 0+2, 2+3 at 2+6, 5+5 at 8+5");
  track->scaleTimeRange(rangeFrom(0, 13), timeOf(26));
  EXPECT_EQ(told(track->segments()), "0+2 at 0+4, 2+3 at 4+12, 5+5 at 16+10");
}

TEST(CompositionScaling, AScaledPieceIsCutInProportion) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->scaleTimeRange(rangeFrom(0, 10), timeOf(30));
  track->removeTimeRange(rangeFrom(10, 5));
  EXPECT_EQ(told(track->segments()), "0+10/3 at 0+10, 5+5 at 10+15");
  track->insertTimeRange(rangeFrom(0, 1), source(1), timeOf(1), nullptr);
  EXPECT_EQ(told(track->segments()), "0+1/3 at 0+1, 0+1 at 1+1, 1/3+3 at 2+9, 5+5 at 11+15");
}

TEST(CompositionScaling, WhatATrackHasOfTheRangeIsScaledInProportion) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->scaleTimeRange(rangeFrom(5, 20), timeOf(40));
  EXPECT_EQ(told(track->segments()), "0+5 at 0+5, 5+5 at 5+10");
}

TEST(CompositionScaling, NothingToDoOrNothingPossibleChangesNothing) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->scaleTimeRange(rangeFrom(2, 3), timeOf(3));
  track->scaleTimeRange(rangeFrom(2, 3), timeOf(-3));
  track->scaleTimeRange(rangeFrom(2, 3), MediaTime::indefinite());
  track->scaleTimeRange(rangeFrom(2, 3), timeOf(std::numeric_limits<std::int64_t>::max()));
  track->scaleTimeRange(rangeFrom(20, 3), timeOf(6));
  track->scaleTimeRange(rangeFrom(2, 0), timeOf(6));
  track->scaleTimeRange(TimeRange::invalid(), timeOf(6));
  EXPECT_EQ(told(track->segments()), "0+10 at 0+10");
}

TEST(CompositionScaling, WhatIsToLastNothingGoes) {
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  track->scaleTimeRange(rangeFrom(2, 3), MediaTime::zero());
  EXPECT_EQ(told(track->segments()), "0+2 at 0+2, 5+5 at 2+5");
}

TEST(CompositionInsertion, IsClippedToTheSamplesAndKeepsTheirDistance) {
  const auto late = source(4, 3);  // samples from 3 to 7
  EXPECT_EQ(told(trackOf(late, rangeFrom(0, 10))->segments()), "- at 0+3, 3+4 at 3+4");
  EXPECT_EQ(told(trackOf(late, rangeFrom(2, 3))->segments()), "- at 0+1, 3+2 at 1+2");
  EXPECT_EQ(told(trackOf(late, rangeFrom(5, 9))->segments()), "5+2 at 0+2");
  EXPECT_EQ(told(trackOf(late, rangeFrom(8, 2))->segments()), "");
  EXPECT_EQ(told(trackOf(late, rangeFrom(0, 3))->segments()), "");
}

TEST(CompositionInsertion, ATrackOfACompositionIsLaidDownAsItsSources) {
  const auto inner = source(10);
  const auto nested = trackOf(inner, rangeFrom(0, 10));
  nested->scaleTimeRange(rangeFrom(0, 10), timeOf(20));
  nested->insertTimeRange(rangeFrom(0, 1), source(1), timeOf(25), nullptr);
  const auto outer = trackOf(nested, rangeFrom(4, 22));
  EXPECT_EQ(told(outer->segments()), "2+8 at 0+16, - at 16+5, 0+1 at 21+1");
  EXPECT_EQ(outer->segments()[0].track, inner);
  EXPECT_TRUE(nested->insertTimeRange(rangeFrom(0, 2), nested, timeOf(2), nullptr));
  EXPECT_EQ(told(nested->segments()), "0+1 at 0+2, 0+1 at 2+2, 1+9 at 4+18, - at 22+5, 0+1 at 27+1");
}

TEST(CompositionInsertion, ALengthThatNoTimeCanSayIsRefused) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  const auto track = trackOf(source(10), rangeFrom(0, 10));
  std::string error;
  EXPECT_FALSE(track->insertTimeRange(rangeFrom(0, 10), source(10), timeOf(kMost - 3), &error));
  EXPECT_EQ(error, "the track would be too long");
  EXPECT_EQ(told(track->segments()), "0+10 at 0+10");
}

// ---- exactness --------------------------------------------------------------------------------------

TEST(CompositionExactness, LengthsOfManyRatesAddUpExactly) {
  const auto track = Composition::make()->addMutableTrack(MediaType::video, 0);
  const std::int32_t scales[] = {30000, 44100, 48000, 90000, 12800, 600, 11025};
  // Each piece 1/scale short of a second, then one that makes it up.
  MediaTime at = MediaTime::zero();
  for (int round = 0; round < 2; ++round) {
    for (const std::int32_t scale : scales) {
      const std::int64_t length = round == 0 ? scale - 1 : scale + 1;
      ASSERT_TRUE(track->insertTimeRange(rangeFrom(0, length, scale), source(10), at, nullptr));
      at = track->segments().back().target.end();
    }
  }
  EXPECT_EQ(at, timeOf(14));
  EXPECT_EQ(at.flags & MediaTime::kHasBeenRounded, 0U);
}

TEST(CompositionExactness, SumsAreRoundedOnlyWhereNoScaleHoldsThem) {
  // The least common scale is 3528000000, beyond 32 bits.
  const MediaTime odd = timeOf(1, 1000000) + timeOf(1, 141120000);
  EXPECT_NE(odd.flags & MediaTime::kHasBeenRounded, 0U);
  EXPECT_EQ(odd, timeOf(142, 141120000));
  const MediaTime even = timeOf(1, 1000000) + timeOf(2, 141120000);
  EXPECT_EQ(even.flags & MediaTime::kHasBeenRounded, 0U);
  EXPECT_EQ(even, timeOf(1789, 1764000000));
}

TEST(CompositionExactness, RoundingIsFlaggedAndStaysSmall) {
  const MediaTime third = platform::scaled(timeOf(1, 2147483647), timeOf(1), timeOf(3));
  EXPECT_NE(third.flags & MediaTime::kHasBeenRounded, 0U);
  const MediaTime exact = platform::scaled(timeOf(1, 30000), timeOf(7), timeOf(1001));
  EXPECT_EQ(exact, timeOf(1, 30000 * 143));
  EXPECT_EQ(exact.flags & MediaTime::kHasBeenRounded, 0U);
  EXPECT_EQ(platform::scaled(timeOf(6, 25), timeOf(-3), timeOf(2)).description(), "{-9/25 = -0.360}");
  EXPECT_EQ(platform::scaled(timeOf(6, 25), timeOf(3), timeOf(-2)).description(), "{-9/25 = -0.360}");
  EXPECT_EQ(platform::scaled(timeOf(6, 25), timeOf(0), timeOf(2)), MediaTime::zero());
  EXPECT_FALSE(platform::scaled(timeOf(1), timeOf(1), timeOf(0)).isValid());
  EXPECT_FALSE(platform::scaled(MediaTime::indefinite(), timeOf(1), timeOf(1)).isValid());
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(platform::scaled(timeOf(kMost), timeOf(kMost, 7), timeOf(kMost, 7)), timeOf(kMost));
  EXPECT_EQ(platform::scaled(timeOf(kMost), timeOf(kMost), timeOf(1)), MediaTime::positiveInfinity());
  EXPECT_EQ(platform::scaled(timeOf(-kMost), timeOf(kMost), timeOf(1)), MediaTime::negativeInfinity());
  // Scales without a common factor: off by half a nanosecond at most.
  const MediaTime odd = platform::scaled(timeOf(1000, 300007), timeOf(1, 49999), timeOf(1, 49991));
  EXPECT_NE(odd.flags & MediaTime::kHasBeenRounded, 0U);
  EXPECT_NEAR(odd.seconds(), 1000.0 / 300007 * 49991 / 49999, 5e-10);
}

TEST(CompositionExactness, PiecesOfAnOddScaleStillFollowEachOtherWithoutAGap) {
  const auto track = trackOf(source(100), rangeFrom(0, 100));
  for (const std::int32_t prime : {30011, 49999, 49991, 65521, 32749}) {
    track->scaleTimeRange(rangeFrom(prime / 7, prime, prime), timeOf(prime / 3, 25));
    track->removeTimeRange(rangeFrom(prime / 5, prime / 3, prime));
  }
  MediaTime end = MediaTime::zero();
  for (const Segment& segment : track->segments()) {
    EXPECT_EQ(segment.target.start, end);
    EXPECT_GT(segment.target.duration, MediaTime::zero());
    end = segment.target.end();
  }
}

// ---- facts ------------------------------------------------------------------------------------------

TEST(CompositionFacts, AreThoseOfTheSources) {
  const auto first = source(4);
  const auto second = source(4);
  const platform::FormatDescription h264{"avc1", 64, 48, {0, 0, 64, 48}};
  const platform::FormatDescription other{"avc1", 32, 48, {0, 0, 32, 48}};
  first->code = "mdia";
  first->formats = {h264};
  first->size = {100, 50};
  first->enabled = false;
  second->formats = {other, h264};
  const auto composition = Composition::make();
  const auto track = composition->addMutableTrack(MediaType::video, 0);
  EXPECT_EQ(track->mediaTypeCode(), "vide");
  EXPECT_EQ(track->naturalSize(), Size());
  EXPECT_TRUE(track->isEnabled());
  EXPECT_TRUE(track->formatDescriptions().empty());
  track->insertTimeRange(rangeFrom(0, 4), first, timeOf(1), nullptr);
  EXPECT_EQ(track->mediaTypeCode(), "mdia");
  EXPECT_EQ(composition->naturalSize(), (Size{100, 50}));
  EXPECT_FALSE(track->isEnabled());
  track->insertTimeRange(rangeFrom(0, 4), second, timeOf(5), nullptr);
  EXPECT_TRUE(track->isEnabled());
  const auto formats = track->formatDescriptions();
  ASSERT_EQ(formats.size(), 2U);
  EXPECT_EQ(formats[0].width, 64);
  EXPECT_EQ(formats[1].width, 32);
}

TEST(CompositionFacts, DetailsAreThoseOfTheFirstSourceButForLengthsAndClocks) {
  const auto first = source(4);
  first->told.codec = "h264";
  first->told.rotation = 90;
  first->told.frameRate.emplace();
  first->told.headerDuration = timeOf(4);
  first->told.decodedDuration = timeOf(4);
  first->told.startTimecode = "01:00:00:00";
  const auto track = trackOf(first, rangeFrom(0, 4));
  EXPECT_EQ(track->details().codec, "h264");
  EXPECT_EQ(track->details().rotation, 90);
  EXPECT_TRUE(track->details().frameRate);
  EXPECT_FALSE(track->details().headerDuration.isValid());
  EXPECT_FALSE(track->details().decodedDuration.isValid());
  EXPECT_FALSE(track->details().startTimecode);
  track->insertTimeRange(rangeFrom(0, 4), source(4), timeOf(4), nullptr);
  EXPECT_EQ(track->details().codec, "h264");
  EXPECT_FALSE(track->details().frameRate);
  const auto slower = trackOf(first, rangeFrom(0, 4));
  slower->scaleTimeRange(rangeFrom(0, 4), timeOf(8));
  EXPECT_FALSE(slower->details().frameRate);
  EXPECT_FALSE(Composition::make()->addMutableTrack(MediaType::video, 0)->details().codec);
}

TEST(CompositionFacts, ASlowerTrackShowsFewerFramesASecond) {
  const auto track = trackOf(std::make_shared<NumberedTrack>(30, 300, 0), rangeFrom(0, 10));
  track->scaleTimeRange(rangeFrom(0, 10), timeOf(20));
  EXPECT_FLOAT_EQ(track->nominalFrameRate(), 15.0F);
}

TEST(CompositionFacts, PicturesComeFromTheFirstEnabledVideoTrack) {
  const auto hidden = std::make_shared<NumberedTrack>(1, 5, 100);
  const auto shown = std::make_shared<NumberedTrack>(1, 5, 200);
  hidden->enabled = false;
  const auto composition = Composition::make();
  composition->addMutableTrack(MediaType::video, 0);
  composition->addMutableTrack(MediaType::video, 0)->insertTimeRange(rangeFrom(0, 5), hidden, timeOf(0), nullptr);
  EXPECT_EQ(numberOf(composition->makeImageGenerator()->copyFrame(timeOf(2))), 102);
  composition->addMutableTrack(MediaType::video, 0)->insertTimeRange(rangeFrom(0, 5), shown, timeOf(0), nullptr);
  EXPECT_EQ(numberOf(composition->makeImageGenerator()->copyFrame(timeOf(2))), 202);
}

// ---- whole movies -----------------------------------------------------------------------------------

TEST(CompositionOfMovies, TwoMoviesStartTogetherInAllTracks) {
  // The sound of the first is shorter than its pictures, that of the second starts late.
  const auto sound1 = source(9, 0, MediaType::audio);
  const auto sound2 = source(6, 1, MediaType::audio);
  const auto composition = Composition::make();
  const auto first = movie({source(10), sound1}, timeOf(10));
  const auto second = movie({sound2, source(8)}, timeOf(8));
  ASSERT_TRUE(composition->insertTimeRange({timeOf(0), first->duration()}, first, timeOf(0), nullptr));
  EXPECT_EQ(composition->duration(), timeOf(10));
  ASSERT_TRUE(composition->insertTimeRange({timeOf(0), second->duration()}, second, composition->duration(), nullptr));
  const auto tracks = composition->mutableTracks();
  ASSERT_EQ(tracks.size(), 2U);
  EXPECT_EQ(told(tracks[0]->segments()), "0+10 at 0+10, 0+8 at 10+8");
  EXPECT_EQ(told(tracks[1]->segments()), "0+9 at 0+9, - at 9+2, 1+6 at 11+6");
  EXPECT_EQ(composition->duration(), timeOf(18));
}

TEST(CompositionOfMovies, InsertedInTheMiddleEveryTrackMovesAlike) {
  const auto composition = Composition::make();
  const auto whole = movie({source(10), source(10, 0, MediaType::audio)}, timeOf(10));
  const auto silent = movie({source(3)}, timeOf(4));
  composition->insertTimeRange(rangeFrom(0, 10), whole, timeOf(0), nullptr);
  ASSERT_TRUE(composition->insertTimeRange(rangeFrom(1, 100), silent, timeOf(5), nullptr));
  const auto tracks = composition->mutableTracks();
  ASSERT_EQ(tracks.size(), 2U);
  EXPECT_EQ(told(tracks[0]->segments()), "0+5 at 0+5, 1+2 at 5+2, - at 7+1, 5+5 at 8+5");
  EXPECT_EQ(told(tracks[1]->segments()), "0+5 at 0+5, - at 5+3, 5+5 at 8+5");
}

TEST(CompositionOfMovies, EachTrackIsUsedOnceAndNewOnesKeepTheirNumbers) {
  const auto picture = source(4);
  const auto sound1 = source(4, 0, MediaType::audio);
  const auto sound2 = source(4, 0, MediaType::audio);
  picture->id = 3;
  sound1->id = 7;
  sound2->id = 9;
  const auto composition = Composition::make();
  composition->addMutableTrack(MediaType::audio, 9);
  ASSERT_TRUE(
      composition->insertTimeRange(rangeFrom(0, 4), movie({picture, sound1, sound2}, timeOf(4)), timeOf(0), nullptr));
  const auto tracks = composition->mutableTracks();
  ASSERT_EQ(tracks.size(), 3U);
  EXPECT_EQ(tracks[0]->trackId(), 9);
  EXPECT_EQ(tracks[0]->segments().front().track, sound1);
  EXPECT_EQ(tracks[1]->trackId(), 3);
  EXPECT_EQ(tracks[2]->trackId(), 1);
  EXPECT_EQ(tracks[2]->segments().front().track, sound2);
}

TEST(CompositionOfMovies, TracksOfOtherKindsAreNotMixed) {
  const auto sprite = source(4, 0, MediaType::other);
  const auto tween = source(4, 0, MediaType::other);
  sprite->code = "sprt";
  tween->code = "twen";
  const auto composition = Composition::make();
  composition->insertTimeRange(rangeFrom(0, 4), movie({sprite}, timeOf(4)), timeOf(0), nullptr);
  composition->insertTimeRange(rangeFrom(0, 4), movie({tween, sprite}, timeOf(4)), timeOf(4), nullptr);
  ASSERT_EQ(composition->tracks().size(), 2U);
  EXPECT_EQ(told(composition->mutableTracks()[0]->segments()), "0+4 at 0+4, 0+4 at 4+4");
  EXPECT_EQ(told(composition->mutableTracks()[1]->segments()), "- at 0+4, 0+4 at 4+4");
  EXPECT_EQ(composition->tracks()[1]->mediaTypeCode(), "twen");
}

TEST(CompositionOfMovies, AMovieCanBeInsertedIntoItself) {
  const auto composition = Composition::make();
  composition->insertTimeRange(rangeFrom(0, 4), movie({source(4), source(3, 0, MediaType::audio)}, timeOf(4)),
                               timeOf(0), nullptr);
  ASSERT_TRUE(composition->insertTimeRange(rangeFrom(0, 4), composition, timeOf(2), nullptr));
  const auto tracks = composition->mutableTracks();
  EXPECT_EQ(told(tracks[0]->segments()), "0+2 at 0+2, 0+4 at 2+4, 2+2 at 6+2");
  EXPECT_EQ(told(tracks[1]->segments()), "0+2 at 0+2, 0+3 at 2+3, - at 5+1, 2+1 at 6+1");
}

TEST(CompositionOfMovies, ADurationBeyondAllTracksIsKept) {
  const auto composition = Composition::make();
  const auto longer = movie({source(4), source(3, 0, MediaType::audio)}, timeOf(6));
  ASSERT_TRUE(composition->insertTimeRange(rangeFrom(0, 6), longer, timeOf(0), nullptr));
  EXPECT_EQ(composition->duration(), timeOf(6));
  EXPECT_EQ(told(composition->mutableTracks()[0]->segments()), "0+4 at 0+4, - at 4+2");
  EXPECT_EQ(told(composition->mutableTracks()[1]->segments()), "0+3 at 0+3");
}

TEST(CompositionOfMovies, RangesAreClippedToTheMovie) {
  const auto composition = Composition::make();
  const auto four = movie({source(4)}, timeOf(4));
  EXPECT_TRUE(composition->insertTimeRange(rangeFrom(-2, 5), four, timeOf(0), nullptr));
  EXPECT_EQ(told(composition->mutableTracks()[0]->segments()), "0+3 at 0+3");
  EXPECT_TRUE(composition->insertTimeRange(rangeFrom(4, 5), four, timeOf(0), nullptr));
  EXPECT_TRUE(composition->insertTimeRange(rangeFrom(0, 0), four, timeOf(0), nullptr));
  EXPECT_EQ(composition->duration(), timeOf(3));
}

TEST(CompositionOfMovies, WhatCannotBeInsertedChangesNothing) {
  const auto composition = Composition::make();
  const auto four = movie({source(4)}, timeOf(4));
  const auto refused = [&composition](const TimeRange& range, const std::shared_ptr<Asset>& what, MediaTime at) {
    std::string error;
    const bool inserted = composition->insertTimeRange(range, what, at, &error);
    return !inserted && !error.empty() && composition->tracks().empty();
  };
  EXPECT_TRUE(refused(rangeFrom(0, 4), nullptr, timeOf(0)));
  EXPECT_TRUE(refused(rangeFrom(0, 4), movie({}, timeOf(4)), timeOf(0)));
  EXPECT_TRUE(refused(rangeFrom(0, -4), four, timeOf(0)));
  EXPECT_TRUE(refused(TimeRange::invalid(), four, timeOf(0)));
  EXPECT_TRUE(refused({timeOf(0), MediaTime::positiveInfinity()}, four, timeOf(0)));
  EXPECT_TRUE(refused(rangeFrom(0, 4), four, timeOf(-1)));
  EXPECT_TRUE(refused(rangeFrom(0, 4), four, MediaTime::invalid()));
  EXPECT_TRUE(refused(rangeFrom(0, 4), four, timeOf(std::numeric_limits<std::int64_t>::max() - 1)));
  EXPECT_FALSE(composition->insertTimeRange(rangeFrom(0, 4), nullptr, timeOf(0), nullptr));
}

TEST(CompositionOfMovies, RemovalAndScalingReachAllTracks) {
  const auto composition = Composition::make();
  composition->insertTimeRange(rangeFrom(0, 10), movie({source(10), source(8, 1, MediaType::audio)}, timeOf(10)),
                               timeOf(0), nullptr);
  composition->removeTimeRange(rangeFrom(0, 3));
  composition->scaleTimeRange(rangeFrom(0, 7), timeOf(14));
  EXPECT_EQ(told(composition->mutableTracks()[0]->segments()), "3+7 at 0+14");
  EXPECT_EQ(told(composition->mutableTracks()[1]->segments()), "3+6 at 0+12");
  EXPECT_EQ(composition->duration(), timeOf(14));
}

// ---- pictures of scaled pieces ----------------------------------------------------------------------

TEST(CompositionPicturesOfScaledPieces, FramesLastLongerOrShorter) {
  const auto composition = Composition::make();
  composition->addMutableTrack(MediaType::video, 0)
      ->insertTimeRange(rangeFrom(0, 4), std::make_shared<NumberedTrack>(25, 100, 0), timeOf(0), nullptr);
  composition->scaleTimeRange(rangeFrom(0, 1), timeOf(3));
  composition->scaleTimeRange(rangeFrom(3, 2), timeOf(1));
  const auto generator = composition->makeImageGenerator();
  for (int i = 0; i < 75; ++i) {
    const auto result = generator->copyFrame(timeOf(i, 25));
    EXPECT_EQ(numberOf(result), i / 3);
    EXPECT_EQ(result.actualTime, timeOf(i / 3 * 3, 25));
  }
  for (int i = 0; i < 25; ++i) EXPECT_EQ(numberOf(generator->copyFrame(timeOf(75 + i, 25))), 25 + 2 * i);
  for (int i = 0; i < 25; ++i) EXPECT_EQ(numberOf(generator->copyFrame(timeOf(100 + i, 25))), 75 + i);
}

/// A source whose generator takes the nearest of 100 ticks a second, as movies do.
class TickedTrack : public NumberedTrack {
 public:
  using NumberedTrack::NumberedTrack;
  std::unique_ptr<platform::ImageGenerator> makeImageGenerator() const override;
};
class TickedGenerator : public platform::ImageGenerator {
 public:
  explicit TickedGenerator(std::unique_ptr<platform::ImageGenerator> exact) : exact_(std::move(exact)) {}
  void setAppliesPreferredTrackTransform(bool) override {}
  void setApertureMode(platform::ApertureMode) override {}
  void announce(std::span<const MediaTime>) override {}
  platform::FrameResult copyFrame(const MediaTime& time) override { return exact_->copyFrame(time.convertedTo(100)); }

 private:
  std::unique_ptr<platform::ImageGenerator> exact_;
};
std::unique_ptr<platform::ImageGenerator> TickedTrack::makeImageGenerator() const {
  return std::make_unique<TickedGenerator>(NumberedTrack::makeImageGenerator());
}

TEST(CompositionPicturesOfScaledPieces, AFrameIsNotShownBeforeItsTimeThoughTheSourceRounds) {
  const auto composition = Composition::make();
  composition->addMutableTrack(MediaType::video, 0)
      ->insertTimeRange(rangeFrom(0, 4), std::make_shared<TickedTrack>(25, 100, 0), timeOf(0), nullptr);
  composition->scaleTimeRange(rangeFrom(0, 4), timeOf(400));
  const auto generator = composition->makeImageGenerator();
  // Frame 1 begins at 4; 3.9 is nearer to its tick than to the one before.
  EXPECT_EQ(numberOf(generator->copyFrame(timeOf(39, 10))), 0);
  EXPECT_EQ(numberOf(generator->copyFrame(timeOf(4))), 1);
  EXPECT_EQ(numberOf(generator->copyFrame(timeOf(0))), 0);
}

}  // namespace
}  // namespace vistrelle::testing
