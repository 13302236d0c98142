#include "vistrelle/movieedit/mux.h"

#include <filesystem>
#include <limits>

#include "tests/movieedit/edit_fixture.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::MediaTime;
using platform::MediaType;
using testing::RecordingLog;
using Lines = std::vector<std::string>;
using Paths = std::vector<std::string>;

class Mux : public testing::EditTest {
 protected:
  std::string cutSoundPath() const { return folder.file("private/audioCutted.mov"); }
  /// The movie that the library opens once the cut sound was written.
  std::shared_ptr<testing::FakeAsset> expectCutSound(double seconds) {
    const auto cut = movieOf(seconds, seconds);
    library->movies[cutSoundPath()] = cut;
    return cut;
  }
  static std::shared_ptr<platform::Track> sourceOf(const Composition& movie, std::size_t track) {
    for (const auto& segment : segmentsOf(movie, track)) {
      if (segment.track) return segment.track;
    }
    return nullptr;
  }
};

TEST_F(Mux, PicturesAndSoundLieSideBySideFromZero) {
  const auto pictures = movieOf(10, 0);
  const auto sound = movieOf(0, 8);
  const Paths paths{add("v.mov", pictures), add("a.m4a", sound)};
  const Composition movie = muxAvQt(paths, std::nullopt);
  ASSERT_TRUE(movie);
  ASSERT_EQ(movie->tracks().size(), 2U);
  EXPECT_EQ(movie->tracks()[0]->mediaType(), MediaType::video);
  EXPECT_EQ(movie->tracks()[1]->mediaType(), MediaType::audio);
  EXPECT_EQ(told(movie, 0), "0+10 at 0+10");
  EXPECT_EQ(told(movie, 1), "0+8 at 0+8");
  EXPECT_EQ(movie->duration(), MediaTime::make(10, 1));
  EXPECT_EQ(MYMOVIEget(), sound);
  EXPECT_TRUE(
      inOrder(record.lines(),
              {"muxAvQt             : " + platform::description(paths) + "\nnil",
               "ma : " + platform::description(paths), "MYMOVIE : <movie>",
               "vTracks #0 : <track> (10000 / 1000 = 10.000000) ", "mutableCompo… tmp   : <Composition: 1 tracks>",
               "MYMOVIE             : no more loaded", "aTracks #0 : <track> (8000 / 1000 = 8.000000) ",
               "aTracks #0          : <track> (8.000000) ", "mutableCompo… tmp   : <Composition: 2 tracks>"}));
}

TEST_F(Mux, EveryTrackOfEveryMovieGetsItsOwn) {
  const auto rich = movieOf(10, 10);
  rich->trackList.push_back(testing::videoTrack(0, 7));
  rich->trackList.push_back(std::make_shared<testing::FakeTrack>(MediaType::audio, testing::rangeOf(1, 5)));
  rich->trackList.push_back(std::make_shared<testing::FakeTrack>(MediaType::text, testing::rangeOf(0, 5)));
  const Composition movie = muxAvQt(Paths{add("a.mov", rich), add("b.mov", movieOf(4, 4))}, std::nullopt);
  ASSERT_TRUE(movie);
  ASSERT_EQ(movie->tracks().size(), 6U);
  EXPECT_EQ(told(movie, 0), "0+10 at 0+10");
  EXPECT_EQ(told(movie, 1), "0+7 at 0+7");
  EXPECT_EQ(told(movie, 2), "0+10 at 0+10");
  EXPECT_EQ(told(movie, 3), "- at 0+1, 1+5 at 1+5");
  EXPECT_EQ(told(movie, 4), "0+4 at 0+4");
  EXPECT_EQ(told(movie, 5), "0+4 at 0+4");
}

TEST_F(Mux, MissingAndUnreadableFilesAreLeftOut) {
  const std::string good = add("a.mov", movieOf(4, 0));
  const std::string bad = folder.write("bad.mov", "no movie");
  const Composition movie = muxAvQt(Paths{folder.file("none.mov"), bad, good}, std::nullopt);
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->tracks().size(), 1U);
  EXPECT_TRUE(record.has("ma : " + platform::description(Paths{bad, good})));
  // None that can be read: still a composition, without tracks.
  const Composition empty = muxAvQt(Paths{bad}, std::nullopt);
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->tracks().empty());
}

TEST_F(Mux, BothMovieSlotsAreEmptiedBeforeEachMovie) {
  const std::string path = add("a.mov", movieOf(4, 0));
  MYMOVIEset(movieOf(1, 0));
  MYMOVIEpathSet(path);  // not used again, though it is the same path
  MYMOVIEVIEWset(movieOf(1, 0));
  ASSERT_TRUE(muxAvQt(Paths{path, folder.write("bad.mov", "no movie")}, std::nullopt));
  EXPECT_FALSE(MYMOVIEVIEWget());
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_EQ(record.count("MYMOVIE             : no more loaded"), 2);
  EXPECT_FALSE(record.hasContaining("same movie"));
}

TEST_F(Mux, WithoutAnyPathThereIsNothing) {
  EXPECT_FALSE(muxAvQt(std::nullopt, Dictionary{{"a0_id", 1}}));
  EXPECT_FALSE(muxAvQt(Paths{}, std::nullopt));
  EXPECT_FALSE(muxAvQt(Paths{folder.file("none.mov")}, std::nullopt));
  EXPECT_TRUE(
      record.has("muxAvQt             : nil\n" + platform::description(platform::Value(Dictionary{{"a0_id", 1}}))));
  EXPECT_EQ(record.count("ma : " + platform::description(Paths{})), 3);
}

TEST_F(Mux, APositiveOffsetDelaysEveryAudioTrack) {
  const Paths paths{add("v.mov", movieOf(10, 0)), add("a.m4a", movieOf(0, 8)), add("b.m4a", movieOf(0, 3))};
  const Composition movie = muxAvQt(paths, Dictionary{{"a0_id", 1}, {"a1_offsetMs", 500}, {"v_offsetMs", 99}});
  ASSERT_TRUE(movie);
  EXPECT_EQ(told(movie, 0), "0+10 at 0+10");
  EXPECT_EQ(told(movie, 1), "- at 0+0.5, 0+8 at 0.5+8");
  EXPECT_EQ(told(movie, 2), "- at 0+0.5, 0+3 at 0.5+3");
  EXPECT_TRUE(record.has("offsetAKey          : a1_offsetMs"));
  EXPECT_FALSE(record.hasContaining("v_offsetMs:"));
}

TEST_F(Mux, OffsetsAreReadFromTextsToo) {
  const Paths paths{add("a.m4a", movieOf(0, 8))};
  const Composition movie = muxAvQt(paths, Dictionary{{"a0_id", "3"}, {"a3_offsetMs", "250 ms"}});
  EXPECT_EQ(told(movie), "- at 0+0.25, 0+8 at 0.25+8");
}

TEST_F(Mux, WithoutANumberNoOffsetCounts) {
  const Paths paths{add("a.m4a", movieOf(0, 8))};
  for (const Dictionary& offsets :
       {Dictionary{{"a0_offsetMs", 500}, {"a1_offsetMs", 500}},
        Dictionary{{"a0_id", std::numeric_limits<std::int64_t>::max()}, {"a9223372036854775807_offsetMs", 500}},
        Dictionary{{"a0_id", 2}, {"a1_offsetMs", 500}}, Dictionary{{"a0_id", 1}, {"a1_offsetMs", 0}}}) {
    EXPECT_EQ(told(muxAvQt(paths, offsets)), "0+8 at 0+8");
  }
}

TEST_F(Mux, ANegativeOffsetCutsTheBeginningOfTheSound) {
  const auto cut = expectCutSound(7.799);
  const Paths paths{add("v.mov", movieOf(10, 0)), add("a.mov", movieOf(8, 8))};
  const Dictionary offsets{{"a0_id", 1}, {"a1_offsetMs", -200}, {"v_offsetMs", 7}};
  const Composition movie = muxAvQt(paths, offsets);
  ASSERT_TRUE(movie);
  ASSERT_EQ(exports->records.size(), 1U);
  EXPECT_EQ(exports->records[0]->path, cutSoundPath());
  EXPECT_EQ(exports->records[0]->preset, platform::kPresetPassthrough);
  EXPECT_EQ(told(exports->records[0]->movie, 1), "0.201+7.799 at 0+7.799");
  ASSERT_EQ(movie->tracks().size(), 3U);
  EXPECT_EQ(told(movie, 2), "0+7.799 at 0+7.799");
  EXPECT_EQ(sourceOf(movie, 2), cut->trackList[1]);
  EXPECT_TRUE(std::filesystem::exists(cutSoundPath()));
  EXPECT_FALSE(MYMOVIEVIEWget());
  EXPECT_FALSE(MYMOVIEEDITget());
  EXPECT_TRUE(inOrder(record.lines(), {"offsetAKey          : a1_offsetMs", "offsetMsAInt        = -200",
                                       "movieCut            - from: 0/1000 to: 201/1000", "movieCut()          :-)",
                                       "MYMOVIEVIEW         : no more loaded", "MYMOVIEEDIT         : no more loaded",
                                       "offsetAKey:nil, v_offsetMs:7", "aTracks #0          : <track> (7.799000) "}));
}

TEST_F(Mux, OnlyTheFirstAudioTrackIsCut) {
  expectCutSound(7);
  const auto twoSounds = movieOf(0, 8);
  twoSounds->trackList.push_back(std::make_shared<testing::FakeTrack>(MediaType::audio, testing::rangeOf(0, 6)));
  const Paths paths{add("a.mov", twoSounds), add("b.mov", movieOf(0, 5))};
  const Composition movie = muxAvQt(paths, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -200}});
  ASSERT_TRUE(movie);
  EXPECT_EQ(exports->records.size(), 1U);
  EXPECT_EQ(told(movie, 0), "0+7 at 0+7");
  EXPECT_EQ(told(movie, 1), "0+6 at 0+6");
  EXPECT_EQ(told(movie, 2), "0+5 at 0+5");
}

TEST_F(Mux, AnOldCutSoundIsRemovedFirst) {
  expectCutSound(7);
  folder.write("private/audioCutted.mov", "old");
  muxAvQt(Paths{add("a.mov", movieOf(0, 8))}, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -200}});
  ASSERT_EQ(exports->records.size(), 1U);
  EXPECT_FALSE(exports->records[0]->wasThere);
  EXPECT_EQ(exports->records[0]->path, cutSoundPath());  // and no name beside it
}

TEST_F(Mux, ACutThatCannotBeExportedOrReadLeavesTheSoundWhole) {
  const Paths paths{add("a.mov", movieOf(0, 8))};
  const Dictionary offsets{{"a0_id", 1}, {"a1_offsetMs", -200}};
  exports->fails = true;
  EXPECT_EQ(told(muxAvQt(paths, offsets)), "0+8 at 0+8");
  exports->fails = false;
  EXPECT_EQ(told(muxAvQt(paths, offsets)), "0+8 at 0+8");
  EXPECT_FALSE(MYMOVIEEDITget());
}

TEST_F(Mux, ACutThatFailsLeavesTheSoundWholeAtZero) {
  const Paths paths{add("a.mov", movieOf(0, 8))};
  // More than there is: the check of the cut fails.
  const Composition movie = muxAvQt(paths, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -60'000}});
  EXPECT_EQ(told(movie), "0+8 at 0+8");
  EXPECT_TRUE(exports->records.empty());
  EXPECT_FALSE(record.has("movieCut()          :-)"));
  EXPECT_TRUE(record.has("offsetAKey:-60000, v_offsetMs:nil"));
  EXPECT_TRUE(MYMOVIEEDITget());  // emptied only after a cut that succeeds
  const Composition least =
      muxAvQt(paths, Dictionary{{"a0_id", 1}, {"a1_offsetMs", std::numeric_limits<std::int64_t>::min()}});
  EXPECT_EQ(told(least), "0+8 at 0+8");
}

TEST_F(Mux, WithoutATemporaryFolderTheSoundStaysWhole) {
  tmpFolderSet(folder.write("file", "") + "/below");
  const Composition movie =
      muxAvQt(Paths{add("a.mov", movieOf(0, 8))}, Dictionary{{"a0_id", 1}, {"a1_offsetMs", -200}});
  EXPECT_EQ(told(movie), "0+8 at 0+8");
  EXPECT_TRUE(record.hasContaining("tmpFolderPath       :-( not made"));
}

TEST_F(Mux, ATrackThatCannotBeInsertedIsLoggedAndSkipped) {
  const auto endless = movieOf(10, 10);
  endless->length = MediaTime::indefinite();
  const Composition movie = muxAvQt(Paths{add("a.mov", endless)}, std::nullopt);
  ASSERT_TRUE(movie);
  EXPECT_EQ(told(movie, 0), "");
  EXPECT_TRUE(record.has("muxAvQt vTrack error:-( the time range is invalid"));
  EXPECT_TRUE(record.has("muxAvQt aTrack error:-( the time range is invalid"));
}

TEST_F(Mux, ExportWritesTheComposition) {
  const Paths paths{add("v.mov", movieOf(10, 0)), add("a.m4a", movieOf(0, 8))};
  EXPECT_TRUE(muxAvQtExport(paths, folder.file("out.mov"), std::nullopt));
  EXPECT_EQ(exports->records.back()->preset, platform::kPresetPassthrough);
  EXPECT_EQ(told(exported(), 1), "0+8 at 0+8");
  EXPECT_TRUE(record.has("mutableCompo… final : <Composition: 2 tracks>"));
  EXPECT_FALSE(muxAvQtExport(Paths{}, folder.file("out.mov"), std::nullopt));
  EXPECT_TRUE(record.has("mutableCompo… final : (null)"));
}

TEST_F(Mux, QuietMuxSaysOnlyThePaths) {
  const Paths paths{add("a.mov", movieOf(0, 8))};
  const RecordingLog quiet;
  muxAvQt(paths, std::nullopt);
  EXPECT_TRUE(quiet.has("ma : " + platform::description(paths)));
  EXPECT_FALSE(quiet.hasContaining("Tracks #"));
  EXPECT_FALSE(quiet.hasContaining("muxAvQt "));
}

}  // namespace
}  // namespace vistrelle
