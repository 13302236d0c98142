#include "vistrelle/movie/loader.h"

#include <gtest/gtest.h>

#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using platform::MediaType;
using testing::CountingClock;
using testing::FakeAsset;
using testing::FakeLibrary;
using testing::FakeTrack;
using testing::RecordingLog;
using testing::ScratchFolder;
using testing::videoMovie;
using Lines = std::vector<std::string>;

constexpr std::chrono::microseconds kSlice{333'333};

class Loader : public ::testing::Test {
 protected:
  Loader() { record.clear(); }
  ~Loader() override {
    MYMOVIEset(nullptr);
    MYMOVIEpathSet(std::nullopt);
    MYMOVIEVIEWset(nullptr);
    MYMOVIEVIEWpathSet(std::nullopt);
    MYMOVIEEDITset(nullptr);
  }

  std::string file(const std::string& name) const { return folder.write(name, "movie"); }
  std::string add(const std::string& name, std::shared_ptr<platform::Asset> movie) {
    const std::string path = file(name);
    library->movies[path] = std::move(movie);
    return path;
  }

  ScratchFolder folder;
  std::shared_ptr<FakeLibrary> library = std::make_shared<FakeLibrary>();
  std::shared_ptr<CountingClock> clock = std::make_shared<CountingClock>();
  platform::Installed<platform::MediaLibrary> libraryInstalled{platform::mediaLibrary(), library};
  platform::Installed<platform::Clock> clockInstalled{platform::clock(), clock};
  RecordingLog record;
};

TEST_F(Loader, SlotsStartEmptyAndKeepWhatASetterGives) {
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_FALSE(MYMOVIEVIEWget());
  EXPECT_FALSE(MYMOVIEEDITget());
  const auto movie = videoMovie(5);
  MYMOVIEpathSet("/a");
  MYMOVIEset(movie);
  EXPECT_EQ(MYMOVIEget(), movie);
  EXPECT_EQ(MYMOVIEpathGet(), "/a");
  MYMOVIEset(nullptr);
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_EQ(MYMOVIEpathGet(), "/a");
  MYMOVIEpathSet(std::nullopt);
  EXPECT_FALSE(MYMOVIEpathGet().has_value());
  MYMOVIEVIEWset(movie);
  MYMOVIEVIEWpathSet("/b");
  EXPECT_EQ(MYMOVIEVIEWget(), movie);
  EXPECT_EQ(MYMOVIEVIEWpathGet(), "/b");
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_TRUE(record.lines().empty());
}

TEST_F(Loader, LoadedFlag) {
  movieLoadedFlagSet(true);
  EXPECT_TRUE(movieLoadedFlag());
  movieLoadedFlagSet(false);
  EXPECT_FALSE(movieLoadedFlag());
}

TEST_F(Loader, ReleasesLogTheirWordsOnce) {
  MYMOVIEset(videoMovie(1));
  MYMOVIEpathSet("/a");
  MYMOVIErelease();
  MYMOVIErelease();
  EXPECT_EQ(record.lines(), (Lines{"MYMOVIE             : loaded", "MYMOVIE             : no more loaded"}));
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_FALSE(MYMOVIEpathGet().has_value());

  record.clear();
  MYMOVIEVIEWset(videoMovie(1));
  MYMOVIEVIEWpathSet("/a");
  MYMOVIEVIEWrelease();
  MYMOVIEVIEWrelease();
  EXPECT_EQ(record.lines(), (Lines{"MYMOVIEVIEW         : loaded", "MYMOVIEVIEW         : no more loaded"}));
  EXPECT_FALSE(MYMOVIEVIEWget());
  EXPECT_FALSE(MYMOVIEVIEWpathGet().has_value());

  record.clear();
  MYMOVIEEDITset(platform::Composition::make());
  EXPECT_TRUE(MYMOVIEEDITget());
  MYMOVIEEDITrelease();
  MYMOVIEEDITrelease();
  EXPECT_EQ(record.lines(), (Lines{"MYMOVIEEDIT         : loaded", "MYMOVIEEDIT         : no more loaded"}));
  EXPECT_FALSE(MYMOVIEEDITget());
}

TEST_F(Loader, ReleaseLetsTheMovieGo) {
  auto movie = videoMovie(1);
  const std::weak_ptr<FakeAsset> watch = movie;
  const std::string path = add("a.mov", std::move(movie));
  ASSERT_TRUE(MYMOVIEinstantiate(path, false, false));
  library->movies.clear();
  EXPECT_FALSE(watch.expired());
  MYMOVIErelease();
  EXPECT_TRUE(watch.expired());
}

TEST_F(Loader, LinesOfAnOrdinaryLoad) {
  const auto movie = videoMovie(5);
  const std::string path = add("a.mov", movie);
  EXPECT_TRUE(MYMOVIEinstantiate(path, false, false));
  auto lines = record.lines();
  // The handler speaks on its own thread.
  EXPECT_EQ(std::erase(lines, "load(ed)Movie !"), 1U);
  EXPECT_EQ(lines,
            (Lines{"MYMOVIEinstantiate  - deb : " + path, "     movie new path : '" + path + "'…",
                   "loadMovie           : asynchronously loading…", "      loading ended : after 0.0 seconds",
                   "[loadMovie tracks]  : (1) " + tracksDescription(movie->trackList), "MYMOVIEinstantiate  :-) fin"}));
  EXPECT_EQ(MYMOVIEget(), movie);
  EXPECT_EQ(MYMOVIEpathGet(), path);
  EXPECT_TRUE(movieLoadedFlag());
  EXPECT_EQ(movie->requestedKeys, (Lines{"playable", "hasProtectedContent", "tracks", "duration"}));
  EXPECT_EQ(movie->requestedKeys, movieLoadKeys());
  EXPECT_EQ(clock->sleeps, 0);
  EXPECT_EQ(clock->elapsed().count(), 0);
}

TEST_F(Loader, VerboseLoadNamesTheNewPath) {
  const std::string path = add("a.mov", videoMovie(5));
  RecordingLog verbose(true);
  EXPECT_TRUE(MYMOVIEinstantiate(path, false, false));
  EXPECT_TRUE(verbose.has("nouveau             :-) " + path));
}

TEST_F(Loader, ViewFlagChoosesTheSlotAndPreciseIsPassedOn) {
  const std::string path = add("a.mov", videoMovie(5));
  EXPECT_TRUE(MYMOVIEinstantiate(path, true, true));
  EXPECT_TRUE(library->lastOptions.preciseTiming);
  EXPECT_TRUE(MYMOVIEVIEWget());
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(path));
  EXPECT_FALSE(library->lastOptions.preciseTiming);
  EXPECT_TRUE(MYMOVIEget());
  MYMOVIEVIEWrelease();
  EXPECT_TRUE(MYMOVIEVIEWinstantiate(path));
  EXPECT_EQ(MYMOVIEVIEWpathGet(), path);
}

TEST_F(Loader, AbsentPath) {
  EXPECT_FALSE(MYMOVIEinstantiate(std::nullopt, false, false));
  EXPECT_EQ(record.lines(), Lines{"MYMOVIEinstantiate  - deb : -"});
}

TEST_F(Loader, MissingFileEmptiesAFilledSlot) {
  const std::string path = add("a.mov", videoMovie(5));
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(path));
  record.clear();
  const std::string missing = folder.file("missing.mov");
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(missing));
  EXPECT_EQ(record.lines(), (Lines{"MYMOVIEinstantiate  - deb : " + missing,
                                   "MYMOVIEinstantiate  :-( fin - no file at path : " + missing,
                                   "MYMOVIE             : loaded", "MYMOVIE             : no more loaded"}));
  EXPECT_FALSE(MYMOVIEget());
}

TEST_F(Loader, MissingFileForTheViewSlotLeavesTheOther) {
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", videoMovie(5))));
  EXPECT_FALSE(MYMOVIEVIEWinstantiate(folder.file("missing.mov")));
  EXPECT_TRUE(MYMOVIEget());
}

TEST_F(Loader, SamePathTwiceIsReusedWithoutAWait) {
  const std::string path = add("a.mov", videoMovie(5));
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(path));
  record.clear();
  clock->waits = 0;
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(folder.path() + "//./a.mov"));
  EXPECT_EQ(record.lines(), (Lines{"MYMOVIEinstantiate  - deb : " + folder.path() + "//./a.mov",
                                   "         same movie : re-use '" + path + "'"}));
  EXPECT_EQ(clock->waits, 0);
  EXPECT_EQ(library->opened, Lines{path});
}

TEST_F(Loader, AnotherPathReplacesTheMovie) {
  const std::string first = add("a.mov", videoMovie(5));
  const std::string second = add("b.mov", videoMovie(6));
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(first));
  record.clear();
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(second));
  const auto lines = record.lines();
  ASSERT_GE(lines.size(), 5U);
  EXPECT_EQ(lines[1], "          new movie : replace old '" + first + "'");
  EXPECT_EQ(lines[2], "MYMOVIE             : loaded");
  EXPECT_EQ(lines[3], "MYMOVIE             : no more loaded");
  EXPECT_EQ(lines[4], "     movie new path : '" + second + "'…");
  EXPECT_EQ(lines.back(), "MYMOVIEinstantiate  :-) fin");
  EXPECT_EQ(MYMOVIEpathGet(), second);
}

TEST_F(Loader, SlotFilledByItsSetterIsReplaced) {
  MYMOVIEset(videoMovie(5));
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", videoMovie(6))));
  EXPECT_TRUE(record.has("          new movie : replace old 'nil'"));
}

TEST_F(Loader, AssetThatCannotBeMade) {
  const std::string path = file("a.mov");
  MYMOVIEset(videoMovie(5));
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(path));
  EXPECT_EQ(record.lines().back(), "MYMOVIEinstantiate  :-( end (error instantiate)");
  EXPECT_FALSE(MYMOVIEget());
}

TEST_F(Loader, NoTrackAtAll) {
  const auto movie = std::make_shared<FakeAsset>();
  const std::string path = add("a.mov", movie);
  MYMOVIEset(videoMovie(5));
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(path));
  EXPECT_EQ(record.lines().back(), "Error instantiate   :-( no (usable) track");
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_EQ(movie->cancellations, 0);
}

TEST_F(Loader, ProtectedMovieIsKept) {
  const auto movie = videoMovie(5);
  movie->isProtected = true;
  movie->playable = false;
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_TRUE(record.has("Error instantiate   :-/ protected file (DRM=1), keep loaded to collect its informations…"));
  EXPECT_EQ(MYMOVIEget(), movie);
}

constexpr const char* kTryVideoOnly =
    "Error instantiate   :-/ file is not (yet?) readable, try to load v tracks only… (isPlayable=0)";

TEST_F(Loader, VideoTracksThatPlayAloneSaveAMovieThatDoesNot) {
  const auto movie = videoMovie(5);
  auto sound = std::make_shared<FakeTrack>(MediaType::audio, testing::rangeOf(0, 5));
  sound->decodable = false;
  movie->trackList.push_back(sound);
  movie->playable = false;
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_TRUE(record.has(kTryVideoOnly));
  EXPECT_TRUE(record.has("mutableComposition  : isPlayable ? 1 (duration=5.000)"));
  EXPECT_EQ(MYMOVIEget(), movie);
}

TEST_F(Loader, VideoTracksThatDoNotPlayAloneAreRefused) {
  const auto movie = videoMovie(5);
  std::static_pointer_cast<FakeTrack>(movie->trackList[0])->decodable = false;
  movie->playable = false;
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_EQ(record.lines().back(), "init v tracks only  :-( mutableComposition playable=0");
  EXPECT_FALSE(MYMOVIEget());
}

TEST_F(Loader, UnplayableMovieWithoutVideoIsRefused) {
  const auto movie = std::make_shared<FakeAsset>();
  movie->trackList.push_back(std::make_shared<FakeTrack>(MediaType::audio, testing::rangeOf(0, 5)));
  movie->playable = false;
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_EQ(record.lines().back(), "init v tracks only  :-( mutableComposition playable=0");
}

TEST_F(Loader, InsertionErrorIsReportedFirst) {
  const auto movie = videoMovie(5);
  movie->playable = false;
  movie->length = MediaTime::invalid();
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  const std::string last = record.lines().back();
  EXPECT_EQ(last.rfind("init v tracks only  :-( ", 0), 0U);
  EXPECT_GT(last.size(), std::string("init v tracks only  :-( ").size());
  EXPECT_EQ(last.find("playable="), std::string::npos);
}

TEST_F(Loader, EndInTheFifthPassReportsAThirdOfASecondAPass) {
  const auto movie = videoMovie(5);
  movie->loadsAtOnce = false;
  // Two waits a pass: the ninth is the first of pass 4.
  clock->beforeWait = [&movie](int wait) {
    if (wait == 9) movie->finishLoading();
  };
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_TRUE(record.has("      loading ended : after 1.3 seconds"));
  EXPECT_EQ(clock->waits, 9);
  EXPECT_EQ(clock->waitLengths, std::set<std::chrono::microseconds>{kSlice});
  EXPECT_EQ(clock->elapsed(), 8 * kSlice);
}

TEST_F(Loader, EndInASecondWaitIsSeenInTheNextPass) {
  const auto movie = videoMovie(5);
  movie->loadsAtOnce = false;
  clock->beforeWait = [&movie](int wait) {
    if (wait == 2) movie->finishLoading();
  };
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_TRUE(record.has("      loading ended : after 0.3 seconds"));
  EXPECT_EQ(clock->waits, 3);
}

TEST_F(Loader, LoadingThatNeverEndsCostsSixtyWaitsAndIsCalledOff) {
  const auto movie = std::make_shared<FakeAsset>();
  movie->loadsAtOnce = false;
  EXPECT_FALSE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_EQ(clock->waits, 60);
  EXPECT_EQ(clock->elapsed(), 60 * kSlice);
  EXPECT_FALSE(record.hasContaining("loading ended"));
  EXPECT_EQ(record.lines().back(), "Error instantiate   :-( no (usable) track");
  EXPECT_GE(movie->cancellations, 1);
  EXPECT_FALSE(movieLoadedFlag());
  // The end that the calling off brought about is no loaded movie.
  EXPECT_FALSE(record.has("load(ed)Movie !"));
}

TEST_F(Loader, MovieWithTracksIsAcceptedThoughLoadingNeverEnds) {
  const auto movie = videoMovie(5);
  movie->loadsAtOnce = false;
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  EXPECT_EQ(movie->cancellations, 0);
  EXPECT_EQ(record.lines().back(), "MYMOVIEinstantiate  :-) fin");
  movie->finishLoading();
  EXPECT_TRUE(record.has("load(ed)Movie !"));
  EXPECT_TRUE(movieLoadedFlag());
}

TEST_F(Loader, UnfinishedMovieIsCalledOffWhenItsSlotIsEmptied) {
  const auto movie = videoMovie(5);
  movie->loadsAtOnce = false;
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(add("a.mov", movie)));
  MYMOVIErelease();
  EXPECT_EQ(movie->cancellations, 1);
  EXPECT_FALSE(record.has("load(ed)Movie !"));

  const auto second = videoMovie(5);
  second->loadsAtOnce = false;
  ASSERT_TRUE(MYMOVIEinstantiateCurrent(add("b.mov", second)));
  MYMOVIEset(movie);
  EXPECT_EQ(second->cancellations, 1);
}

/// Its loading cannot be called off: it ends when it pleases.
class StubbornAsset : public testing::ForwardingAsset {
 public:
  using ForwardingAsset::ForwardingAsset;
  void cancelLoading() override {}
};

TEST_F(Loader, LateEndOfAnEarlierLoadingDoesNotEndALaterOne) {
  const auto stalled = std::make_shared<FakeAsset>();
  stalled->loadsAtOnce = false;
  ASSERT_FALSE(MYMOVIEinstantiateCurrent(add("a.mov", std::make_shared<StubbornAsset>(stalled))));
  record.clear();

  const auto slow = videoMovie(5);
  slow->loadsAtOnce = false;
  clock->waits = 0;
  clock->beforeWait = [&](int wait) {
    if (wait == 2) stalled->finishLoading();
    if (wait == 5) slow->finishLoading();
  };
  EXPECT_TRUE(MYMOVIEinstantiateCurrent(add("b.mov", slow)));
  EXPECT_TRUE(record.has("      loading ended : after 0.7 seconds"));
  EXPECT_EQ(record.count("load(ed)Movie !"), 1);
}

TEST_F(Loader, MovieLoadRefusesAnAbsentPath) {
  EXPECT_FALSE(movieLoad(std::nullopt));
  EXPECT_EQ(record.lines(), Lines{"movie no input      :-( nil"});
}

TEST_F(Loader, MovieLoadReusesTheLoadedMovie) {
  const std::string path = add("a.mov", videoMovie(5));
  EXPECT_TRUE(movieLoad(path));
  EXPECT_EQ(record.lines().back(), "movie loaded        :-) " + path);
  record.clear();
  const std::string other = folder.path() + "/./a.mov";
  EXPECT_TRUE(movieLoad(other));
  EXPECT_EQ(record.lines(), Lines{"movie re-used       :-) " + other});
}

TEST_F(Loader, MovieLoadOfAMissingFileKeepsTheSlot) {
  ASSERT_TRUE(movieLoad(add("a.mov", videoMovie(5))));
  record.clear();
  EXPECT_FALSE(movieLoad(folder.path() + "/x/../missing.mov"));
  EXPECT_EQ(record.lines(), Lines{"movie no valid path :-( " + folder.file("missing.mov")});
  EXPECT_TRUE(MYMOVIEget());
}

TEST_F(Loader, MovieLoadOfAnUnreadableFile) {
  const std::string path = file("a.mov");
  EXPECT_FALSE(movieLoad(path));
  EXPECT_EQ(record.lines().back(), "movie not readable  :-( " + path);
}

TEST_F(Loader, FramerateAtPath) {
  const std::string path = add("a.mov", videoMovie(5));
  EXPECT_EQ(movieFramerateAtPath(path, 1), 25.0F);
  EXPECT_EQ(MYMOVIEpathGet(), path);
  EXPECT_EQ(movieFramerateAtPath(folder.file("missing.mov"), 0), 0.0F);
}

TEST_F(Loader, PathsAreBytes) {
  const std::string path = add("a b'%s\xFF\n\".mov", videoMovie(5));
  EXPECT_TRUE(movieLoad(path));
  EXPECT_EQ(MYMOVIEpathGet(), path);
  EXPECT_TRUE(record.has("movie loaded        :-) " + path));
}

}  // namespace
}  // namespace vistrelle
