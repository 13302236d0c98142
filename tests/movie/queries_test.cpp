#include "vistrelle/movie/queries.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "vistrelle/platform/media/composition.h"

namespace vistrelle {
namespace {

using platform::AssetKind;
using platform::MediaTime;
using platform::MediaType;
using platform::TimeRange;
using testing::FakeAsset;
using testing::FakeTrack;
using testing::RecordingLog;
using testing::videoTrack;

std::shared_ptr<FakeAsset> movieOf(std::vector<std::shared_ptr<platform::Track>> tracks) {
  auto movie = std::make_shared<FakeAsset>();
  movie->trackList = std::move(tracks);
  return movie;
}

std::shared_ptr<FakeTrack> clip(float rate, double seconds) {
  auto track = videoTrack(0, seconds);
  track->frameRate = rate;
  return track;
}

void expectThirds(const TimeRange& range, std::int64_t start, std::int64_t duration) {
  EXPECT_EQ(range.start.value, start);
  EXPECT_EQ(range.start.scale, 3);
  EXPECT_EQ(range.duration.value, duration);
  EXPECT_EQ(range.duration.scale, 3);
}

TEST(Tracks, AbsentMovieOrNoTrackGivesNothing) {
  EXPECT_FALSE(movieTracks(nullptr).has_value());
  EXPECT_FALSE(movieTrackTypes(nullptr, kAllTracks).has_value());
  EXPECT_FALSE(movieTracks(movieOf({})).has_value());
}

TEST(Tracks, TypeNumbersChooseTheTracks) {
  const auto audio = std::make_shared<FakeTrack>(MediaType::audio);
  const auto video = std::make_shared<FakeTrack>(MediaType::video);
  const auto subtitle = std::make_shared<FakeTrack>(MediaType::subtitle);
  const auto text = std::make_shared<FakeTrack>(MediaType::text);
  const auto movie = movieOf({audio, video, subtitle, text});
  EXPECT_EQ(movieTracks(movie)->size(), 4U);
  EXPECT_EQ(movieTrackTypes(movie, -1)->size(), 4U);
  EXPECT_EQ(*movieTrackTypes(movie, 0), TrackList{audio});
  EXPECT_EQ(*movieTrackTypes(movie, 1), TrackList{video});
  EXPECT_EQ(*movieTrackTypes(movie, 2), TrackList{subtitle});
  EXPECT_EQ(*movieTrackTypes(movie, 7), TrackList{subtitle});
  EXPECT_EQ(*movieTrackTypes(movie, -2), TrackList{subtitle});
  EXPECT_FALSE(movieTrackTypes(movieOf({audio}), 1).has_value());
}

TEST(Duration, AbsentMovieIsSilentZero) {
  RecordingLog record(true);
  EXPECT_EQ(movieDuration(nullptr), 0.0);
  EXPECT_TRUE(record.lines().empty());
}

TEST(Duration, QuietLinesOfAUrlAsset) {
  RecordingLog record;
  const auto movie = movieOf({});
  movie->length = MediaTime::make(10923, 1000);
  EXPECT_DOUBLE_EQ(movieDuration(movie), 10.923);
  EXPECT_EQ(record.lines(), std::vector<std::string>{"avUtils movieDurati…- begin"});
}

TEST(Duration, VerboseLinesOfAUrlAsset) {
  RecordingLog record(true);
  const auto movie = movieOf({});
  movie->length = MediaTime::make(21, 2);
  EXPECT_DOUBLE_EQ(movieDuration(movie), 10.5);
  EXPECT_EQ(record.lines(), (std::vector<std::string>{"avUtils movieDurati…- begin", "          someMovie :-)",
                                                      "          someMovie : <movie>", "!AVComposition…",
                                                      "videoDuration       : 21/2 == 10.500"}));
}

TEST(Duration, ZeroValuePrintsAsNothing) {
  RecordingLog record(true);
  const auto movie = movieOf({});
  movie->length = MediaTime::make(0, 600);
  EXPECT_EQ(movieDuration(movie), 0.0);
  EXPECT_TRUE(record.has("videoDuration       : /600 == 0.000"));
}

TEST(Duration, CompositionsAndOtherAssets) {
  RecordingLog record(true);
  const auto movie = movieOf({});
  movie->assetKind = AssetKind::composition;
  EXPECT_DOUBLE_EQ(movieDuration(movie), 10.0);
  EXPECT_TRUE(record.has("AVComposition"));
  record.clear();
  movie->assetKind = AssetKind::other;
  EXPECT_DOUBLE_EQ(movieDuration(movie), 10.0);
  EXPECT_TRUE(record.has("!AVComposition…"));
}

TEST(Duration, OfARealCompositionIsExact) {
  const auto composition = platform::Composition::make();
  const auto track = composition->addMutableTrack(MediaType::video, 0);
  std::string error;
  ASSERT_TRUE(
      track->insertTimeRange({MediaTime::zero(), MediaTime::make(7, 2)}, videoTrack(0, 5), MediaTime::zero(), &error))
      << error;
  EXPECT_DOUBLE_EQ(movieDuration(composition), 3.5);
}

TEST(Duration, UnknownObjectIsZeroWithALine) {
  RecordingLog record;
  EXPECT_EQ(movieDuration(std::make_shared<FakeTrack>(MediaType::video)), 0.0);
  EXPECT_TRUE(record.has("avUtils > movieDuration : class not yet handeled yet : <track>"));
}

TEST(Duration, OfAnIndefiniteTimeIsNotANumber) {
  RecordingLog record(true);
  const auto movie = movieOf({});
  movie->length = MediaTime::invalid();
  EXPECT_TRUE(std::isnan(movieDuration(movie)));
  EXPECT_TRUE(record.has("videoDuration       : /0 == nan"));
}

TEST(Range, TenPointNineSeconds) {
  expectThirds(movieTracksTimeRange(movieOf({videoTrack(0, 10.9)}), 1), 0, 32);
}

TEST(Range, ShortTrackIsRaisedToAThirdOfASecond) {
  expectThirds(movieTracksTimeRange(movieOf({videoTrack(0, 0.2)}), 1), 0, 1);
}

TEST(Range, LateStartStaysAtZeroAndCountsToTheEnd) {
  expectThirds(movieTracksTimeRange(movieOf({videoTrack(2, 5)}), 1), 0, 21);
}

TEST(Range, NegativeStartIsKept) {
  expectThirds(movieTracksTimeRange(movieOf({videoTrack(-1.5, 5), videoTrack(0, 2)}), 1), -4, 10);
}

TEST(Range, NoTrackOfTheTypeIsInvalid) {
  RecordingLog record;
  EXPECT_FALSE(movieTracksTimeRange(movieOf({videoTrack(0, 5)}), 0).isValid());
  EXPECT_EQ(record.lines(), std::vector<std::string>{"movieTypeTra… range :-( invalid (no available track type=0)"});
}

TEST(Range, VerboseLines) {
  const auto movie = movieOf({videoTrack(0, 10.9), videoTrack(2, 5)});
  RecordingLog record(true);
  movieTracksTimeRange(movie, 1);
  const auto lines = record.lines();
  ASSERT_EQ(lines.size(), 7U);
  EXPECT_EQ(lines[0], "avUtils movieTypeTr…- begin");
  EXPECT_EQ(lines[1], "movieTypeTra… tracks : " + tracksDescription(movie->trackList));
  EXPECT_EQ(lines[2], "#0 currTrack        : <track>");
  EXPECT_EQ(lines[3], "stream#0            : from:0.00 - duration: 10.900");
  EXPECT_EQ(lines[4], "#1 currTrack        : <track>");
  EXPECT_EQ(lines[5], "stream#1            : from:2.00 - duration: 5.000");
  EXPECT_EQ(lines[6], "avUtils movieVideoT…: from 0.000 to (start+)10.900");
  EXPECT_NE(lines[1].find("<track>"), std::string::npos);
}

TEST(Range, QuietRunLogsNothing) {
  RecordingLog record;
  movieTracksTimeRange(movieOf({videoTrack(0, 10.9)}), 1);
  EXPECT_TRUE(record.lines().empty());
}

TEST(Range, StartThatIsNotANumberDropsEarlierTracks) {
  RecordingLog record;
  const auto broken = videoTrack(0, 4.5);
  broken->range.start = MediaTime::invalid();
  const auto never = videoTrack(0, 100);
  expectThirds(movieTracksTimeRange(movieOf({videoTrack(1, 50), broken, never}), 1), 0, 13);
  EXPECT_EQ(never->rangeReads, 0);
  EXPECT_EQ(record.lines(), (std::vector<std::string>{"              'nan' :-(  from:nan - duration: 4.500",
                                                      "                    :-(( from:0.00 - duration: 4.500"}));
}

TEST(Range, DurationThatIsNotANumberComesFromTheMovie) {
  RecordingLog record;
  const auto broken = videoTrack(2, 0);
  broken->range.duration = MediaTime::invalid();
  const auto movie = movieOf({broken});
  movie->length = MediaTime::make(15, 2);
  expectThirds(movieTracksTimeRange(movie, 1), 6, 22);
  EXPECT_TRUE(record.has("avUtils movieDurati…- begin"));
  EXPECT_TRUE(record.has("                    :-(( from:2.00 - duration: 7.500"));
}

TEST(Range, FallbackHasNoFloor) {
  const auto broken = videoTrack(0, 0.2);
  broken->range.start = MediaTime::invalid();
  expectThirds(movieTracksTimeRange(movieOf({broken}), 1), 0, 0);
}

TEST(Range, FallbackWithoutAnyDurationIsInvalid) {
  RecordingLog record;
  const auto broken = std::make_shared<FakeTrack>(MediaType::video);
  const auto movie = movieOf({broken});
  movie->length = MediaTime::zero();
  EXPECT_FALSE(movieTracksTimeRange(movie, 1).isValid());
  EXPECT_TRUE(record.has("movieTypeTra… range :-( (durationCurr=nan|0)"));
  movie->length = MediaTime::indefinite();
  EXPECT_FALSE(movieTracksTimeRange(movie, 1).isValid());
}

TEST(Framerate, HighRateOverHalfASecondIsRejected) {
  RecordingLog record;
  EXPECT_EQ(movieFramerate(movieOf({clip(60.0F, 0.5)})), 0.0F);
  EXPECT_EQ(record.lines(), (std::vector<std::string>{"#0 framerateFloat   = 60.000", "tracksDurationSecFl…= 0.333",
                                                      "Framerate           :-("}));
}

TEST(Framerate, HighRateOverTwoSecondsIsKept) {
  RecordingLog record;
  EXPECT_EQ(movieFramerate(movieOf({clip(60.0F, 2)})), 60.0F);
  EXPECT_TRUE(record.has("tracksDurationSecFl…= 2.000"));
  EXPECT_TRUE(record.has("Framerate           : 60.000000"));
}

TEST(Framerate, ThirtyFramesNeedNoLength) {
  EXPECT_EQ(movieFramerate(movieOf({clip(30.0F, 0.5)})), 30.0F);
}

TEST(Framerate, NoVideoTrackGivesZero) {
  RecordingLog record;
  EXPECT_EQ(movieFramerate(movieOf({std::make_shared<FakeTrack>(MediaType::audio)})), 0.0F);
  EXPECT_TRUE(record.has("tracksDurationSecFl…= nan"));
  EXPECT_TRUE(record.has("Framerate           :-("));
}

TEST(Framerate, LimitsAreComparedInDoublePrecision) {
  // As floats 0.11 is a little below and 30.2 a little above the limit; a comparison of floats would find them equal.
  EXPECT_EQ(movieFramerate(movieOf({clip(0.11F, 5)})), 0.0F);
  EXPECT_EQ(movieFramerate(movieOf({clip(30.2F, 0.5)})), 0.0F);
  EXPECT_EQ(movieFramerate(movieOf({clip(0.12F, 5)})), 0.12F);
  EXPECT_EQ(movieFramerate(movieOf({clip(0.1F, 5)})), 0.0F);
}

TEST(Framerate, LastVideoTrackCounts) {
  RecordingLog record;
  EXPECT_EQ(movieFramerate(movieOf({clip(24.0F, 5), clip(12.5F, 5)})), 12.5F);
  EXPECT_TRUE(record.has("#0 framerateFloat   = 24.000"));
  EXPECT_TRUE(record.has("#1 framerateFloat   = 12.500"));
}

}  // namespace
}  // namespace vistrelle
