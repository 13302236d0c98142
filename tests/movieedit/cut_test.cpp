#include "vistrelle/movieedit/cut.h"

#include <cstdlib>
#include <filesystem>

#include "tests/movieedit/edit_fixture.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using platform::MediaType;
using platform::OptionalText;
using testing::FakeAsset;
using testing::RecordingLog;
using Lines = std::vector<std::string>;

class Cut : public testing::EditTest {
 protected:
  std::string destination() const { return folder.file("out.mov"); }
  bool cut(const std::shared_ptr<platform::Asset>& movie, std::int64_t keep, double start) {
    return movieCutForceSize(add("src.mov", movie), destination(), keep, start);
  }
};

/// Says one length the first time, another ever after.
class ChangingAsset : public FakeAsset {
 public:
  MediaTime duration() const override { return asked_++ == 0 ? length : later; }
  MediaTime later = MediaTime::make(5, 1);

 private:
  mutable int asked_ = 0;
};

std::shared_ptr<ChangingAsset> changingMovie(double later) {
  const auto movie = std::make_shared<ChangingAsset>();
  movie->trackList.push_back(testing::videoTrack(0, 10));
  movie->later = MediaTime::makeWithSeconds(later, 1000);
  return movie;
}

// ---- copies -----------------------------------------------------------------------------------------

TEST_F(Cut, EditCopyFillsTheSlotWithTheWholeMovie) {
  const auto movie = movieOf(10, 9.5);
  EXPECT_TRUE(getMYMOVIEEDIT(movie));
  const Composition edit = MYMOVIEEDITget();
  ASSERT_TRUE(edit);
  EXPECT_EQ(told(edit, 0), "0+10 at 0+10");
  EXPECT_EQ(told(edit, 1), "0+9.5 at 0+9.5");
  EXPECT_TRUE(inOrder(record.lines(), {"src duration        : 10.000", "dst duration        : 10.000",
                                       "getMYMOVIEEDIT()    : " + edit->description() + " (duration=10.000)"}));
}

TEST_F(Cut, EditCopySaysItsLengthsOnlyWhenVerbose) {
  const RecordingLog quiet;
  EXPECT_TRUE(getMYMOVIEEDIT(movieOf(10, 0)));
  EXPECT_TRUE(quiet.lines().empty());
}

TEST_F(Cut, EditCopyOfAnotherLengthIsRefusedAndTheSlotStays) {
  EXPECT_FALSE(getMYMOVIEEDIT(changingMovie(9.89)));
  EXPECT_FALSE(MYMOVIEEDITget());
  EXPECT_TRUE(record.has("getMYMOVIEEDIT()    : (null) (duration=0.000)"));
  // With an earlier composition in the slot the refusal is not seen, as intended.
  const Composition earlier = platform::Composition::make();
  MYMOVIEEDITset(earlier);
  EXPECT_TRUE(getMYMOVIEEDIT(changingMovie(9.89)));
  EXPECT_EQ(MYMOVIEEDITget(), earlier);
  EXPECT_TRUE(getMYMOVIEEDIT(changingMovie(9.91)));
  EXPECT_NE(MYMOVIEEDITget(), earlier);
}

TEST_F(Cut, EditCopyThatCannotBeMadeLogsTheError) {
  const Composition earlier = platform::Composition::make();
  MYMOVIEEDITset(earlier);
  const auto trackless = std::make_shared<FakeAsset>();
  EXPECT_FALSE(getMYMOVIEEDIT(trackless));
  EXPECT_TRUE(record.has("error : the movie has no track"));
  EXPECT_EQ(MYMOVIEEDITget(), earlier);
  const auto endless = movieOf(10, 0);
  endless->length = MediaTime::indefinite();
  EXPECT_FALSE(getMYMOVIEEDIT(endless));
  EXPECT_TRUE(record.has("error : the time range is invalid"));
  EXPECT_FALSE(getMYMOVIEEDIT(nullptr));
}

TEST_F(Cut, CompositionOfAMovie) {
  EXPECT_FALSE(mutableCompositionOf(nullptr));
  const Composition composition = mutableCompositionOf(movieOf(10, 0));
  ASSERT_TRUE(composition);
  EXPECT_EQ(told(composition), "0+10 at 0+10");
  EXPECT_FALSE(MYMOVIEEDITget());
  EXPECT_EQ(record.lines(), (Lines{"src duration        : 10.000", "dst duration        : 10.000"}));
  record.clear();
  EXPECT_EQ(mutableCompositionOf(composition), composition);
  EXPECT_TRUE(record.lines().empty());
  EXPECT_FALSE(mutableCompositionOf(changingMovie(9.89)));
  EXPECT_FALSE(mutableCompositionOf(std::make_shared<FakeAsset>()));
  EXPECT_TRUE(record.has("error : the movie has no track"));
}

// ---- movieCut ---------------------------------------------------------------------------------------

TEST_F(Cut, RemovesALengthFromTheHead) {
  const Composition movie = mutableCompositionOf(movieOf(100, 0));
  record.clear();
  EXPECT_TRUE(movieCut(movie, 0, 50, 10));
  EXPECT_EQ(told(movie), "5+95 at 0+95");
  EXPECT_EQ(record.lines(), (Lines{"movieCut            - begin", "movieCut            - from: 0/10 to: 50/10",
                                   "src duration        : 100.000000", "dst duration        : 95.000",
                                   "100.000 - 5.000    =? 95.000"}));
}

TEST_F(Cut, QuietCutKeepsItsMainLines) {
  const Composition movie = mutableCompositionOf(movieOf(100, 0));
  const RecordingLog quiet;
  EXPECT_TRUE(movieCut(movie, 0, 50, 10));
  EXPECT_EQ(quiet.lines(),
            (Lines{"movieCut            - begin", "src duration        : 100.000000", "100.000 - 5.000    =? 95.000"}));
}

TEST_F(Cut, RemovesTheTailWhenTheRangeRunsPastTheEnd) {
  const Composition movie = mutableCompositionOf(movieOf(100, 0));
  EXPECT_TRUE(movieCut(movie, 30'000, 100'000, 1000));
  EXPECT_EQ(told(movie), "0+30 at 0+30");
}

TEST_F(Cut, TheSecondValueIsALengthToTheRemovalAndAnEndToTheCheck) {
  const Composition movie = mutableCompositionOf(movieOf(100, 0));
  // 5 seconds go from 10 on; the check expects -5.
  EXPECT_FALSE(movieCut(movie, 10, 5, 1));
  EXPECT_EQ(told(movie), "0+10 at 0+10, 15+85 at 10+85");
  EXPECT_TRUE(record.has("100.000 - -5.000    =? 95.000"));
}

TEST_F(Cut, TheCheckAllowsASecond) {
  // A second goes from 0.5 on; the check expects half a second, then a whole one less.
  EXPECT_TRUE(movieCut(mutableCompositionOf(movieOf(100, 0)), 5, 10, 10));
  EXPECT_TRUE(movieCut(mutableCompositionOf(movieOf(100, 0)), 10, 20, 10));
  EXPECT_FALSE(movieCut(mutableCompositionOf(movieOf(100, 0)), 11, 20, 10));
}

TEST_F(Cut, TheRemovedLengthIsOfSinglePrecision) {
  EXPECT_TRUE(movieCut(mutableCompositionOf(movieOf(2'000'000, 0)), 0, 1'234'567'891, 1000));
  EXPECT_TRUE(record.has("2000000.000 - 1234567.875    =? 765432.109"));
}

TEST_F(Cut, AMovieThatIsNoCompositionIsLeftAlone) {
  const auto movie = movieOf(100, 0);
  EXPECT_FALSE(movieCut(movie, 0, 50, 10));
  EXPECT_EQ(movie->duration(), MediaTime::make(100, 1));
  EXPECT_TRUE(record.has("src duration        : 100.000000"));
  EXPECT_FALSE(record.hasContaining("=?"));
  record.clear();
  EXPECT_FALSE(movieCut(nullptr, 0, 50, 10));
  EXPECT_EQ(record.lines(), (Lines{"movieCut            - begin"}));
}

TEST_F(Cut, ATimescaleThatIsNoneRemovesNothing) {
  const Composition movie = mutableCompositionOf(movieOf(100, 0));
  EXPECT_FALSE(movieCut(movie, 0, 50, 0));
  EXPECT_TRUE(movieCut(movie, 0, 50, 4'294'967'296));
  EXPECT_TRUE(movieCut(movie, 0, 5, -10));
  EXPECT_EQ(told(movie), "0+100 at 0+100");
  EXPECT_TRUE(movieCut(movie, -1, 0, 10));
  EXPECT_TRUE(record.has("movieCut            - from: 18446744073709551615/10 to: 0/10"));
}

// ---- movieCutForceSize ------------------------------------------------------------------------------

TEST_F(Cut, HeadAndTailAreCutToTheTenth) {
  ASSERT_TRUE(cut(movieOf(100, 100), 30, 12.34));
  EXPECT_EQ(told(exported(), 0), "12.3+30 at 0+30");
  EXPECT_EQ(told(exported(), 1), "12.3+30 at 0+30");
  EXPECT_EQ(exports->records.back()->preset, platform::kPresetPassthrough);
  EXPECT_EQ(exports->records.back()->path, destination());
  EXPECT_FALSE(MYMOVIEget());
  ASSERT_TRUE(MYMOVIEEDITget());
  EXPECT_EQ(told(MYMOVIEEDITget()), "12.3+30 at 0+30");
  const std::string source = folder.file("src.mov");
  EXPECT_TRUE(inOrder(
      record.lines(),
      {"----------", "movieCutForceSize   - begin", "src -> dst          : '" + source + "' -> '" + destination() + "'",
       "getMYMOVIEEDIT()    : " + MYMOVIEEDITget()->description(), "srcDurationFloat     = 100.000000",
       "movieCutForceSize   :-) src long enough: 100.000 (cut from:12.34 to:42.34)", "cutDebutDouble      : 12.340000",
       "Duration before cut : 100.000", "movieCut            - from: 0/10 to: 123/10", "Duration after cut  : 87.700",
       "la_fin_a_conserver   : 30", "Duration before cut2: 87.700",
       "movieCut            - from: 30000/1000 to: 87700/1000", "Duration after cut2 : 30.000",
       "MYMOVIE             : no more loaded", "movieCutForceSize   :-) fin", "----------"}));
}

TEST_F(Cut, TheStartIsCutToTheTenthBelow) {
  ASSERT_TRUE(cut(movieOf(100, 0), 30, 12.39));
  EXPECT_EQ(told(exported()), "12.3+30 at 0+30");
}

TEST_F(Cut, TheLengthIsTakenInSinglePrecision) {
  ASSERT_TRUE(cut(movieOf(16'777.217, 0), 30, 0));
  EXPECT_TRUE(record.has("srcDurationFloat     = 16777.216797"));
  // 2^24 + 1 seconds count as 2^24, so that keeping all of them is too much.
  ASSERT_TRUE(cut(movieOf(16'777'217, 0), 16'777'217, 0));
  EXPECT_TRUE(record.has("movieCutForceSize   - src too short to be cutted!"));
}

TEST_F(Cut, QuietCutForceSizeSaysNoDetails) {
  const RecordingLog quiet;
  ASSERT_TRUE(cut(movieOf(100, 0), 30, 12.34));
  ASSERT_TRUE(cut(movieOf(100, 0), 60, -50));
  for (const char* text : {"src -> dst", "(duration=", "cutDebutDouble", "Duration before", "Duration after",
                           "la_fin_a_conserver", "dst duration"}) {
    EXPECT_FALSE(quiet.hasContaining(text)) << text;
  }
  EXPECT_TRUE(quiet.has("getMYMOVIEEDIT()    : <Composition: 1 tracks>"));
  EXPECT_TRUE(quiet.has("movieCutForceSize   :-) src long enough: 100.000 (cut from:12.34 to:42.34)"));
  EXPECT_TRUE(quiet.has("movieCutForceSize   …"));
}

TEST_F(Cut, AStartBelowATenthCutsNoHead) {
  ASSERT_TRUE(cut(movieOf(100, 0), 30, 0.05));
  EXPECT_EQ(told(exported()), "0+30 at 0+30");
  EXPECT_FALSE(record.hasContaining("cutDebutDouble"));
}

TEST_F(Cut, KeepingZeroCutsNoTail) {
  ASSERT_TRUE(cut(movieOf(100, 0), 0, 0.05));
  EXPECT_EQ(told(exported()), "0+100 at 0+100");
  EXPECT_FALSE(record.has("movieCut            - begin"));
  ASSERT_TRUE(cut(movieOf(100, 0), 0, 0.1));
  EXPECT_EQ(told(exported()), "0.1+99.9 at 0+99.9");
}

TEST_F(Cut, ASourceThatIsTooShortIsExportedWhole) {
  ASSERT_TRUE(cut(movieOf(100, 0), 120, 10));
  EXPECT_EQ(told(exported()), "0+100 at 0+100");
  EXPECT_TRUE(record.has("movieCutForceSize   - src too short to be cutted!"));
  EXPECT_FALSE(record.has("movieCutForceSize   …"));
  EXPECT_FALSE(record.has("movieCut            - begin"));
}

TEST_F(Cut, ATooShortSourceWithANegativeStartLosesTenths) {
  ASSERT_TRUE(cut(movieOf(100, 0), 60, -50));
  EXPECT_EQ(told(exported()), "6+94 at 0+94");
  EXPECT_TRUE(inOrder(record.lines(), {"movieCutForceSize   - src too short to be cutted!", "movieCutForceSize   …",
                                       "movieCut            - from: 0/10 to: 60/10", "Duration after cut  : 94.000"}));
}

TEST_F(Cut, AFailedCutOfATooShortSourceClearsTheMovie) {
  EXPECT_FALSE(cut(movieOf(100, 0), -50, -200));
  EXPECT_TRUE(exports->records.empty());
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_TRUE(MYMOVIEEDITget());
  EXPECT_TRUE(inOrder(record.lines(), {"MYMOVIE             : no more loaded",
                                       "movieCutForceSize   :-( end (cut failure)", "----------"}));
}

TEST_F(Cut, AFailedHeadCutClearsTheComposition) {
  EXPECT_FALSE(cut(movieOf(100, 0), 0, 200));
  EXPECT_TRUE(MYMOVIEget());
  EXPECT_FALSE(MYMOVIEEDITget());
  EXPECT_TRUE(inOrder(record.lines(),
                      {"MYMOVIEEDIT         : no more loaded", "movieCutForceSize   :-( end (failure)", "----------"}));
}

TEST_F(Cut, AFailedTailCutClearsTheComposition) {
  EXPECT_FALSE(cut(movieOf(100, 0), 30, 80));
  EXPECT_TRUE(MYMOVIEget());
  EXPECT_FALSE(MYMOVIEEDITget());
  EXPECT_TRUE(record.has("movieCutForceSize   :-( end (complementary cut failure)"));
  EXPECT_TRUE(exports->records.empty());
}

TEST_F(Cut, AFailedExportClearsTheComposition) {
  exports->fails = true;
  EXPECT_FALSE(cut(movieOf(100, 0), 30, 0));
  EXPECT_TRUE(MYMOVIEget());
  EXPECT_FALSE(MYMOVIEEDITget());
  EXPECT_TRUE(inOrder(record.lines(), {"MYMOVIEEDIT         : no more loaded",
                                       "movieCutForceSize   :-( fin (echec Export)", "----------"}));
}

TEST_F(Cut, AnOldDestinationIsRemovedFirst) {
  folder.write("out.mov", "old");
  ASSERT_TRUE(cut(movieOf(100, 0), 30, 0));
  EXPECT_FALSE(exports->records.back()->wasThere);
  EXPECT_EQ(exports->records.back()->path, destination());
  EXPECT_TRUE(record.hasContaining("rmCocoa             - begin"));
  EXPECT_EQ(testing::readFile(destination()).size(), 2048U);
}

TEST_F(Cut, TheSourceItselfAsDestinationStaysUntilItIsReplaced) {
  const std::string path = add("src.mov", movieOf(100, 0));
  exports->fails = true;
  EXPECT_FALSE(movieCutForceSize(path, path, 30, 0));
  EXPECT_EQ(testing::readFile(path), "movie");
  exports->fails = false;
  EXPECT_TRUE(movieCutForceSize(path, path, 30, 0));
  EXPECT_NE(exports->records.back()->path, path);
  EXPECT_EQ(testing::readFile(path).size(), 2048U);
}

TEST_F(Cut, AFolderThatHoldsTheSourceIsRefused) {
  const std::string path = add("inner/src.mov", movieOf(100, 0));
  EXPECT_FALSE(movieCutForceSize(path, folder.file("inner"), 30, 0));
  EXPECT_EQ(testing::readFile(path), "movie");
  EXPECT_TRUE(record.has("movieCutForceSize   :-( destination holds the source"));
  EXPECT_TRUE(exports->records.empty());
}

TEST_F(Cut, TheHomeFolderIsExpandedInBothPaths) {
  const char* home = std::getenv("HOME");
  const std::string former = home != nullptr ? home : "";
  ::setenv("HOME", folder.path().c_str(), 1);
  add("src.mov", movieOf(100, 0));
  EXPECT_TRUE(movieCutForceSize("~/src.mov", "~/out.mov", 30, 0));
  if (home != nullptr) ::setenv("HOME", former.c_str(), 1);
  if (home == nullptr) ::unsetenv("HOME");
  EXPECT_EQ(exports->records.back()->path, destination());
  EXPECT_TRUE(record.has("src -> dst          : '" + folder.file("src.mov") + "' -> '" + destination() + "'"));
}

TEST_F(Cut, WhatCannotBeLoadedOrNamedGivesFalse) {
  EXPECT_FALSE(movieCutForceSize(folder.file("none.mov"), destination(), 30, 0));
  EXPECT_FALSE(movieCutForceSize(std::nullopt, destination(), 30, 0));
  EXPECT_TRUE(exports->records.empty());
  const std::string path = add("src.mov", movieOf(100, 0));
  EXPECT_FALSE(movieCutForceSize(path, std::nullopt, 30, 0));
  EXPECT_TRUE(record.has("movieCutForceSize   :-( fin (echec Export)"));
}

TEST_F(Cut, AMovieThatCannotBeCopiedEndsTheCut) {
  const auto endless = movieOf(10, 0);
  endless->length = MediaTime::indefinite();
  EXPECT_FALSE(cut(endless, 5, 0));
  EXPECT_TRUE(record.has("error : the time range is invalid"));
  EXPECT_FALSE(record.hasContaining("srcDurationFloat"));
}

}  // namespace
}  // namespace vistrelle
