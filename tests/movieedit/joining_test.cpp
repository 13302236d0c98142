#include "vistrelle/movieedit/joining.h"

#include <chrono>
#include <limits>

#include "tests/movieedit/edit_fixture.h"
#include "vistrelle/movieedit/cut.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using testing::FakeAsset;
using testing::RecordingLog;
using Lines = std::vector<std::string>;

class Joining : public testing::EditTest {
 protected:
  std::string destination(const std::string& name = "out.mov") const { return folder.file(name); }
};

TEST_F(Joining, RatesWithTheSameWholeQuotientChangeNothing) {
  const Composition movie = movieToRescale(movieOf(10, 10), 25, 24);
  ASSERT_TRUE(movie);
  EXPECT_EQ(told(movie, 0), "0+10 at 0+10");
  EXPECT_EQ(told(movie, 1), "0+10 at 0+10");
  EXPECT_EQ(record.lines(), (Lines{"movieToRescale     ts : in=25 dst=24", "src duration        : 10.000",
                                   "dst duration        : 10.000", "mutableComposition : " + movie->description(),
                                   "movies duration     : in=10.000 -> rescaled=10.000"}));
}

TEST_F(Joining, WholeFactorsStretchAllTracks) {
  const Composition movie = movieToRescale(movieOf(10, 9), 50, 24);
  ASSERT_TRUE(movie);
  EXPECT_EQ(told(movie, 0), "0+10 at 0+20");
  EXPECT_EQ(told(movie, 1), "0+9 at 0+18");
  EXPECT_TRUE(record.has("movies duration     : in=10.000 -> rescaled=20.000"));
  EXPECT_EQ(told(movieToRescale(movieOf(10, 0), -75, -25)), "0+10 at 0+30");
}

TEST_F(Joining, AFactorOfZeroLeavesNothing) {
  const Composition movie = movieToRescale(movieOf(10, 0), 24, 25);
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->duration(), MediaTime::zero());
  EXPECT_TRUE(record.has("movies duration     : in=10.000 -> rescaled=0.000"));
}

TEST_F(Joining, FactorsThatNoMovieCanTakeChangeNothing) {
  constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
  EXPECT_EQ(told(movieToRescale(movieOf(10, 0), -50, 24)), "0+10 at 0+10");
  EXPECT_EQ(told(movieToRescale(movieOf(10, 0), kLeast, -1)), "0+10 at 0+10");
  EXPECT_EQ(told(movieToRescale(movieOf(10, 0), kLeast, 1)), "0+10 at 0+10");
}

TEST_F(Joining, NothingToRescaleGivesNothing) {
  EXPECT_FALSE(movieToRescale(nullptr, 25, 24));
  EXPECT_FALSE(movieToRescale(movieOf(10, 0), 0, 24));
  EXPECT_FALSE(movieToRescale(movieOf(10, 0), 25, 0));
  EXPECT_TRUE(record.lines().empty());
  EXPECT_FALSE(movieToRescale(std::make_shared<FakeAsset>(), 25, 24));
  EXPECT_TRUE(inOrder(record.lines(), {"movieToRescale     ts : in=25 dst=24", "mutableComposition : (null)"}));
}

TEST_F(Joining, ACompositionIsItselfRescaled) {
  const Composition movie = mutableCompositionOf(movieOf(10, 0));
  EXPECT_EQ(movieToRescale(movie, 2, 1), movie);
  EXPECT_EQ(movie->duration(), MediaTime::make(20, 1));
}

TEST_F(Joining, RescaledMovieIsExported) {
  EXPECT_TRUE(movieToRescaleExport(movieOf(10, 0), 2, 1, destination()));
  EXPECT_EQ(exports->records.back()->preset, platform::kPresetPassthrough);
  EXPECT_EQ(told(exported()), "0+10 at 0+20");
  EXPECT_FALSE(movieToRescaleExport(movieOf(10, 0), 0, 1, destination()));
  exports->fails = true;
  EXPECT_FALSE(movieToRescaleExport(movieOf(10, 0), 2, 1, destination("other.mov")));
}

// ---- concatenation ----------------------------------------------------------------------------------

TEST_F(Joining, ThreeTimesTenSecondsAreThirty) {
  ASSERT_TRUE(moviesConcatenate(movieOf(10, 10), nullptr, 3, destination()));
  EXPECT_EQ(told(exported(), 0), "0+10 at 0+10, 0+10 at 10+10, 0+10 at 20+10");
  EXPECT_EQ(told(exported(), 1), "0+10 at 0+10, 0+10 at 10+10, 0+10 at 20+10");
  EXPECT_EQ(exports->records.back()->preset, platform::kPresetPassthrough);
  EXPECT_TRUE(inOrder(
      record.lines(),
      {"moviesConcatenate   - begin", "moviesConcatenate   - mutableComposition: <Composition: 2 tracks>",
       "pass #1 : 10.000", "pass #2 : 20.000", "pass #+1 : 30.000", "moviesConcatenate   - final duration (*3)=30.000",
       "moviesConcatenate   - end->export…(" + destination() + ")"}));
}

TEST_F(Joining, OnceIsTheMovieUnchanged) {
  ASSERT_TRUE(moviesConcatenate(movieOf(10, 0), nullptr, 1, destination()));
  EXPECT_EQ(told(exported()), "0+10 at 0+10");
  EXPECT_FALSE(record.hasContaining("pass #1"));
}

TEST_F(Joining, ExtensionsAreTakenExactly) {
  EXPECT_FALSE(moviesConcatenate(movieOf(10, 0), nullptr, 1, destination("out.MOV")));
  EXPECT_TRUE(record.has("moviesConcatenate   - end->export…(" + destination("out.MOV") + ")"));
  EXPECT_FALSE(moviesConcatenate(movieOf(10, 0), nullptr, 1, destination("out.mp4")));
  EXPECT_FALSE(moviesConcatenate(movieOf(10, 0), nullptr, 1, destination("mov")));
  EXPECT_FALSE(moviesConcatenate(movieOf(10, 0), nullptr, 1, std::nullopt));
  EXPECT_TRUE(exports->records.empty());
  EXPECT_TRUE(moviesConcatenate(movieOf(10, 10), nullptr, 1, destination("out.wav")));
  EXPECT_EQ(exports->records.back()->preset, platform::kPresetAppleM4A);
}

TEST_F(Joining, ASecondMovieIsAppendedAndTheCountIgnored) {
  ASSERT_TRUE(moviesConcatenate(movieOf(10, 9), movieOf(0, 4), 7, destination()));
  EXPECT_EQ(told(exported(), 0), "0+10 at 0+10");
  EXPECT_EQ(told(exported(), 1), "0+9 at 0+9, - at 9+1, 0+4 at 10+4");
  EXPECT_EQ(exported()->duration(), MediaTime::make(14, 1));
  EXPECT_FALSE(record.hasContaining("mutableComposition:"));
  EXPECT_TRUE(moviesConcatenate(movieOf(10, 0), movieOf(5, 0), 0, destination()));
  EXPECT_EQ(told(exported()), "0+10 at 0+10, 0+5 at 10+5");
}

TEST_F(Joining, NothingToJoinGivesFalse) {
  EXPECT_FALSE(moviesConcatenate(nullptr, movieOf(1, 0), 1, destination()));
  EXPECT_FALSE(moviesConcatenate(movieOf(1, 0), nullptr, 0, destination()));
  EXPECT_EQ(record.lines(), (Lines{"moviesConcatenate   - begin", "moviesConcatenate   - begin"}));
  EXPECT_FALSE(moviesConcatenate(std::make_shared<FakeAsset>(), nullptr, 2, destination()));
  EXPECT_FALSE(moviesConcatenate(std::make_shared<FakeAsset>(), movieOf(1, 0), 2, destination()));
  EXPECT_FALSE(moviesConcatenate(movieOf(1, 0), std::make_shared<FakeAsset>(), 2, destination()));
  EXPECT_TRUE(exports->records.empty());
}

TEST_F(Joining, ALengthThatIsNotTheWantedOneIsRefused) {
  EXPECT_FALSE(moviesConcatenate(movieOf(10, 0), nullptr, -1, destination()));
  EXPECT_TRUE(record.has("moviesConcatenate   - final duration (*-1)=10.000"));
  EXPECT_TRUE(exports->records.empty());
}

TEST_F(Joining, TheWantedLengthIsOfSinglePrecision) {
  // Counts as 30,000,000 seconds: thrice that is three seconds short of what there is.
  EXPECT_FALSE(moviesConcatenate(movieOf(30'000'001, 0), nullptr, 3, destination()));
  EXPECT_TRUE(moviesConcatenate(movieOf(30'000'000, 0), nullptr, 3, destination()));
}

TEST_F(Joining, ACompositionIsRepeatedAsItWas) {
  const Composition movie = mutableCompositionOf(movieOf(10, 0));
  ASSERT_TRUE(moviesConcatenate(movie, nullptr, 3, destination()));
  EXPECT_EQ(told(movie), "0+10 at 0+10, 0+10 at 10+10, 0+10 at 20+10");
  ASSERT_TRUE(moviesConcatenate(movie, movie, 0, destination()));
  EXPECT_EQ(movie->duration(), MediaTime::make(60, 1));
}

TEST_F(Joining, ManyRepeatsTakeNoLongerEach) {
  const RecordingLog quiet;
  const auto started = std::chrono::steady_clock::now();
  EXPECT_TRUE(moviesConcatenate(movieOf(10, 9), nullptr, 10'000, destination()));
  EXPECT_EQ(segmentsOf(exported(), 0).size(), 10'000U);
  EXPECT_EQ(segmentsOf(exported(), 1).size(), 19'999U);
  EXPECT_EQ(exported()->duration(), MediaTime::make(100'000, 1));
  EXPECT_TRUE(moviesConcatenate(mutableCompositionOf(movieOf(10, 9)), nullptr, 10'000, destination("b.mov")));
  EXPECT_EQ(exported()->duration(), MediaTime::make(100'000, 1));
  // Laying all of it down anew each time takes minutes.
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
}

}  // namespace
}  // namespace vistrelle
