#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <filesystem>

#include "tests/platform/export/mov_tables.h"
#include "tests/platform/export/passthrough_fixture.h"
#include "tests/support/mov_boxes.h"

namespace vistrelle::testing {
namespace {

using platform::Composition;
using platform::MediaTime;
using platform::mov::fourCc;

std::shared_ptr<Composition> joined(const std::vector<std::string>& paths) {
  auto composition = Composition::make();
  for (const std::string& path : paths) {
    const auto movie = loaded(path);
    EXPECT_TRUE(movie) << path;
    EXPECT_TRUE(
        composition->insertTimeRange({MediaTime::zero(), movie->duration()}, movie, composition->duration(), nullptr));
  }
  return composition;
}

std::string h264(const std::string& name, int offset, const std::vector<std::string>& more = {}) {
  return clip(name, {numberedPictures(50, "25", offset), {"-c:v", "libx264", "-preset", "veryfast", "-g", "12"}, more});
}

TEST(PassthroughJoin, differentParameterSetsShareATrack) {
  const ScratchFolder folder;
  const auto composition =
      joined({h264("join1.mov", 0), h264("join2.mp4", 100, {"-bf", "0", "-profile:v", "baseline"})});
  composition->removeTimeRange(range(15, 10, 10));
  const Written written = writeTo(*composition, folder.file("joined.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  Shown expected = shownBy({{0, 1.5}, {0.5, 1.5, 1.5, 100}}, 25);
  expectShows(written.path, expected, 3);
  const auto tables = tablesOf(written.path);
  ASSERT_EQ(tables.tracks.size(), 1U);
  EXPECT_EQ(tables.tracks[0].descriptions.size(), 2U);
  expectReadable(written.path);
}

// One track with both would be the first coding's alone to libavformat ("multiple fourcc not supported") and an error
// to GStreamer; two tracks lie side by side with empty stretches where the other one is.
TEST(PassthroughJoin, otherCodingsTakeAFurtherTrack) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> codings{
      {"other.mov", {"-c:v", "mjpeg", "-q:v", "3"}},
      {"other.mp4", {"-c:v", "mpeg4", "-q:v", "3", "-bf", "2"}},
      {"other.prores.mov", {"-c:v", "prores_ks", "-profile:v", "0"}},
      {"other.hevc.mp4",
       {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "log-level=error", "-tag:v", "hvc1"}}};
  for (const auto& [name, coding] : codings) {
    SCOPED_TRACE(name);
    const ScratchFolder folder;
    const std::string other = clip(name, {numberedPictures(50, "25", 100), coding});
    const auto composition = joined({h264("join1.mov", 0), other, h264("join1.mov", 0)});
    const Written written = writeTo(*composition, folder.file("joined.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    const auto tables = tablesOf(written.path);
    ASSERT_EQ(tables.tracks.size(), 2U);
    EXPECT_EQ(tables.tracks[1].edits.front().mediaTime, -1);
    EXPECT_EQ(tables.tracks[1].edits.front().duration, 2U * tables.timeScale);
    expectDecodes(written.path, shownBy({{0, 2}, {0, 0, 2, -1}, {0, 2}}, 25));
    expectDecodes(written.path, shownBy({{0, 0, 2, -1}, {0, 2, 2, 100}}, 25), 1);
    expectReadable(written.path);
  }
}

TEST(PassthroughJoin, soundOfAnotherRateTakesAFurtherTrack) {
  const ScratchFolder folder;
  const std::vector<std::string> sine{"-f", "lavfi", "-i", "sine=duration=1:sample_rate=48000"};
  const auto composition = joined({clip("one.mov", {sine, {"-c:a", "pcm_s16le"}}),
                                   clip("other.wav", {sine, {"-c:a", "pcm_s16le", "-ar", "44100"}})});
  const Written written = writeTo(*composition, folder.file("joined.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const DecodedMovie movie = decoded(written.path);
  ASSERT_EQ(movie.sound.size(), 2U);
  EXPECT_EQ(movie.sound.at(0).size(), 48000U);
  EXPECT_EQ(movie.sound.at(1).size(), 44100U);
  expectReadable(written.path);
}

TEST(PassthroughJoin, aacInOneMovieAfterAnother) {
  const ScratchFolder folder;
  const std::string path = clip("both.mp4", {numberedPictures(50),
                                             {"-f", "lavfi", "-i", "sine=duration=2:sample_rate=48000"},
                                             {"-c:v", "libx264", "-c:a", "aac", "-shortest"}});
  const auto composition = joined({path, path, path});
  const Written written = writeTo(*composition, folder.file("joined.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  expectShows(written.path, shownBy({{0, 2}, {0, 2}, {0, 2}}, 25), 6);
  const DecodedMovie movie = decoded(written.path);
  ASSERT_EQ(movie.sound.size(), 1U);
  EXPECT_NEAR(static_cast<double>(movie.sound.begin()->second.size()), 6 * 48000, 3 * 1024);
  expectReadable(written.path);
}

TEST(PassthroughHeaders, sampleEntriesSurviveByteForByte) {
  const ScratchFolder folder;
  const std::string path = clip("tags.mov", {numberedPictures(50),
                                             {"-c:v", "libx264", "-colorspace", "bt709", "-color_primaries", "bt709",
                                              "-color_trc", "bt709", "-aspect", "16:9", "-movflags", "write_colr"}});
  const auto composition = whole(loaded(path));
  composition->removeTimeRange(range(0, 1));
  const Written written = writeTo(*composition, folder.file("tags.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const auto before = tablesOf(path);
  const auto after = tablesOf(written.path);
  EXPECT_EQ(before.tracks[0].descriptions, after.tracks[0].descriptions);
  EXPECT_EQ(before.tracks[0].header.width, after.tracks[0].header.width);
  EXPECT_EQ(before.tracks[0].header.height, after.tracks[0].header.height);
  expectReadable(written.path);
}

TEST(PassthroughHeaders, rotationSurvives) {
  const ScratchFolder folder;
  const std::string path = dataFile("rotated_video.mp4");
  const Written written = writeTo(*whole(loaded(path)), folder.file("rotated.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const auto before = tablesOf(path);
  const auto after = tablesOf(written.path);
  const auto isVideo = [](const auto& track) { return track.header.handler == fourCc("vide"); };
  EXPECT_EQ(std::ranges::find_if(before.tracks, isVideo)->header.matrix,
            std::ranges::find_if(after.tracks, isVideo)->header.matrix);
}

TEST(PassthroughHeaders, theTimecodeStartsAtTheCut) {
  const ScratchFolder folder;
  const std::string path =
      clip("timecode.mov", {numberedPictures(100), {"-c:v", "libx264", "-timecode", "01:00:00:00"}});
  const auto composition = whole(loaded(path));
  composition->removeTimeRange(range(0, 12, 10));
  const Written written = writeTo(*composition, folder.file("timecode.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const RunResult probe = runProgram({"ffprobe", "-v", "error", "-select_streams", "v:0", "-show_entries",
                                      "stream_tags=timecode", "-of", "csv=p=0", written.path});
  EXPECT_EQ(probe.output, "01:00:01:05\n");
  expectShows(written.path, shownBy({{1.2, 2.8}}, 25), 2.8);
  expectReadable(written.path);
}

std::string tagged(const std::string& name) {
  return h264(name, 0, {"-metadata", "title=A day at sea", "-metadata", "location=+48.1000-002.3000/"});
}
std::string tagOf(const std::string& path, const std::string& tag) {
  return runProgram({"ffprobe", "-v", "error", "-show_entries", "format_tags=" + tag, "-of", "csv=p=0", path}).output;
}

TEST(PassthroughHeaders, titleAndPlaceOfTheMovieStay) {
  const ScratchFolder folder;
  for (const std::string name : {"tagged.mov", "tagged.mp4"}) {
    const auto composition = whole(loaded(tagged(name)));
    composition->removeTimeRange(range(0, 1));
    const Written written = writeTo(*composition, folder.file("written.mov"));
    ASSERT_TRUE(written.succeeded) << written.error;
    EXPECT_EQ(tagOf(written.path, "title"), "A day at sea\n") << name;
    EXPECT_EQ(tagOf(written.path, "location"), tagOf(tagged(name), "location")) << name;
    EXPECT_NE(tagOf(written.path, "location"), "") << name;
    expectReadable(written.path);
  }
}

TEST(PassthroughHeaders, aJoinOfSeveralMoviesHasNoTitle) {
  const ScratchFolder folder;
  const auto composition = joined({tagged("tagged.mov"), h264("join1.mov", 0)});
  const Written written = writeTo(*composition, folder.file("written.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  EXPECT_EQ(tagOf(written.path, "title"), "\n");
}

TEST(PassthroughHeaders, chapterListsOfTheWholeMovieAreLeftOut) {
  const ScratchFolder folder;
  const std::string notes = clipFolder().write(
      "list.txt", ";FFMETADATA1\ntitle=kept\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=1500\nEND=2000\ntitle=late\n");
  const std::string path = clip("list.mp4", {numberedPictures(50), {"-i", notes, "-map_metadata", "1", "-map", "0:v"}});
  ASSERT_NE(readFile(path).find("chpl"), std::string::npos);
  const Written written = writeTo(*whole(loaded(path)), folder.file("written.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  EXPECT_EQ(readFile(written.path).find("chpl"), std::string::npos);
  EXPECT_EQ(tagOf(written.path, "title"), "kept\n");
}

TEST(PassthroughHeaders, chaptersInTheRangeAreKept) {
  const ScratchFolder folder;
  const std::string notes =
      clipFolder().write("chapters.txt",
                         ";FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=0\nEND=1000\ntitle=one\n"
                         "[CHAPTER]\nTIMEBASE=1/1000\nSTART=1000\nEND=2500\ntitle=two\n"
                         "[CHAPTER]\nTIMEBASE=1/1000\nSTART=2500\nEND=4000\ntitle=three\n");
  const std::string path = clip(
      "chapters.mov", {numberedPictures(100), {"-i", notes, "-map_metadata", "1", "-map", "0:v", "-c:v", "libx264"}});
  const auto composition = whole(loaded(path));
  composition->removeTimeRange(range(0, 15, 10));
  const Written written = writeTo(*composition, folder.file("chapters.mov"));
  ASSERT_TRUE(written.succeeded) << written.error;
  const RunResult probe = runProgram({"ffprobe", "-v", "error", "-show_chapters", "-of", "compact=p=0", written.path});
  EXPECT_EQ(probe.output.find("title=one"), std::string::npos);
  EXPECT_NE(probe.output.find("start_time=0.000000|end=1000"), std::string::npos) << probe.output;
  EXPECT_NE(probe.output.find("title=two"), std::string::npos) << probe.output;
  EXPECT_NE(probe.output.find("start_time=1.000000"), std::string::npos) << probe.output;
  EXPECT_NE(probe.output.find("title=three"), std::string::npos) << probe.output;
}

TEST(PassthroughFailure, aFullDiskIsReported) {
  const ScratchFolder folder;
  if (::mount("tmpfs", folder.path().c_str(), "tmpfs", 0, "size=64k") != 0)
    GTEST_SKIP() << "no disk can be mounted here";
  const std::string path = clip("large.mov", {numberedPictures(50), {"-c:v", "rawvideo", "-pix_fmt", "uyvy422"}});
  const Written written = writeTo(*loaded(path), folder.file("full.mov"));
  ::umount2(folder.path().c_str(), MNT_DETACH);
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the movie cannot be written: No space left on device");
}

TEST(PassthroughFailure, aMovieCutWithinASampleIsReported) {
  const ScratchFolder folder;
  const std::string path = clip("front.mov", {numberedPictures(50), {"-c:v", "prores_ks", "-movflags", "faststart"}});
  const std::string bytes = readFile(path);
  const std::string cut = folder.write("cut.mov", bytes.substr(0, bytes.size() * 2 / 3));
  const auto movie = loaded(cut);
  ASSERT_TRUE(movie);
  const Written written = writeTo(*movie, folder.file("written.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the movie ends within a sample");
}

// Its second picture comes after 21,617,279,499,872,256 s; what is left after an edit has an end that no number holds.
TEST(PassthroughFailure, anEndBeyondAllNumbersIsReported) {
  const ScratchFolder folder;
  const auto movie = loaded(std::string(VISTRELLE_SOURCE_DIR) + "/fuzz/corpus/passthrough/end_beyond_numbers.ivf");
  ASSERT_TRUE(movie);
  const auto composition = whole(movie);
  const auto seconds = [](double count) { return MediaTime::makeWithSeconds(count, 600); };
  composition->removeTimeRange({seconds(14051231674916966.0), seconds(108086397499361.28)});
  EXPECT_EQ(composition->duration(), MediaTime::positiveInfinity());
  const Written written = writeTo(*composition, folder.file("written.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the movie is too long");
}

// The sound alone would be a success without the pictures.
TEST(PassthroughFailure, aTrackWhoseSamplesHaveNoPlacesIsReported) {
  const ScratchFolder folder;
  const std::string path =
      clip("with_sound.mp4",
           {numberedPictures(10),
            {"-f", "lavfi", "-i", "sine=duration=0.4", "-c:v", "mpeg4", "-c:a", "aac", "-map", "0:v", "-map", "1:a"}});
  std::string bytes = readFile(path);
  const std::size_t spread = bytes.find("stsc");  // the pictures' track comes first
  ASSERT_NE(spread, std::string::npos);
  bytes[spread] = 'x';
  const auto movie = loaded(folder.write("damaged.mp4", bytes));
  ASSERT_TRUE(movie);
  const Written written = writeTo(*movie, folder.file("written.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the tables of track 1 cannot be read");
}

TEST(PassthroughFailure, samplesAtTheEndOfAllNumbersAreReported) {
  const ScratchFolder folder;
  std::string movie = readFile(clip("plain.mov", {numberedPictures(10)}));
  const std::size_t places = movie.find("stco");
  ASSERT_NE(places, std::string::npos);
  const std::size_t count = static_cast<std::uint8_t>(movie.at(places + 11));
  movie.replace(places, 4, "free");
  std::string far = bigEndian(0, 4) + bigEndian(count, 4);
  for (std::size_t i = 0; i < count; ++i) far += bigEndian(0x7fffffffffffffff - i, 8);
  ASSERT_TRUE(insertMovBox(movie, {"moov", "trak", "mdia", "minf", "stbl"}, movBox("co64", far)));
  const auto asset = loaded(folder.write("far.mov", movie));
  ASSERT_TRUE(asset);
  const Written written = writeTo(*asset, folder.file("written.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the movie ends within a sample");
}

TEST(PassthroughFailure, theSourceMayGoWhileItIsCopied) {
  const ScratchFolder folder;
  const std::string path =
      folder.write("gone.mov", readFile(clip("small.mov", {numberedPictures(50), {"-c:v", "prores_ks"}})));
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  int asked = 0;
  const Written written = writeTo(*movie, folder.file("written.mov"), &platform::writePassthrough, [&] {
    if (++asked == 2) {
      EXPECT_TRUE(std::filesystem::remove(path));
    }
    return false;
  });
  EXPECT_GE(asked, 2);
  ASSERT_TRUE(written.succeeded) << written.error;
  expectDecodes(written.path, shownBy({{0, 2}}, 25));
}

// Offsets into another file would make noise of what stands there in this one.
TEST(PassthroughFailure, soundInAnotherFileIsRefused) {
  const ScratchFolder folder;
  const std::string path =
      clip("both.mov",
           {numberedPictures(50), {"-f", "lavfi", "-i", "sine=duration=2"}, {"-c:v", "mpeg4", "-c:a", "pcm_s16le"}});
  std::string bytes = readFile(path);
  const std::size_t sound = bytes.find("smhd");
  ASSERT_NE(sound, std::string::npos);
  const std::size_t entry = bytes.find("url ", bytes.find("dref", sound));
  ASSERT_NE(entry, std::string::npos);
  ASSERT_EQ(bytes[entry + 7], 1);
  bytes[entry + 7] = 0;
  const auto movie = loaded(folder.write("outside.mov", bytes));
  ASSERT_TRUE(movie);
  const Written written = writeTo(*movie, folder.file("written.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the samples of track 2 cannot be reached");
}

TEST(PassthroughFailure, cancellationEndsIt) {
  const ScratchFolder folder;
  const auto movie = loaded(clip("large.mov", {numberedPictures(50), {"-c:v", "rawvideo", "-pix_fmt", "uyvy422"}}));
  int asked = 0;
  const Written written =
      writeTo(*movie, folder.file("cancelled.mov"), &platform::writePassthrough, [&asked] { return ++asked > 2; });
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "cancelled");
}

TEST(PassthroughFailure, nothingToWriteIsAnError) {
  const ScratchFolder folder;
  const Written written = writeTo(*Composition::make(), folder.file("empty.mov"));
  EXPECT_FALSE(written.succeeded);
  EXPECT_EQ(written.error, "the movie has no samples");
}

TEST(PassthroughCodings, theFirstOneWithoutASampleEntryIsNamed) {
  std::string reason;
  EXPECT_TRUE(platform::canPassThrough(*loaded(h264("join1.mov", 0)), &reason)) << reason;
  const auto theora = loaded(clip("vorbis.ogg", {{"-f", "lavfi", "-i", "sine=duration=1"}, {"-c:a", "libvorbis"}}));
  ASSERT_TRUE(theora);
  EXPECT_FALSE(platform::canPassThrough(*theora, &reason));
  EXPECT_EQ(reason, "'vorbis' of track 1 has no sample entry in a QuickTime movie");
  EXPECT_FALSE(platform::canPassThrough(*whole(theora), nullptr));
}

}  // namespace
}  // namespace vistrelle::testing
