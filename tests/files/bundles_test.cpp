#include "vistrelle/files/bundles.h"

#include <sys/stat.h>

#include "tests/files/files_fixture.h"

namespace vistrelle {
namespace {

using namespace testing;

using Bundles = FilesTest;

TEST_F(Bundles, aFileDirectlyInARecordingIsTheRecording) {
  EXPECT_EQ("/d/Show.eyetv", EyetvBundle("/d/Show.eyetv/movie.mpg"));
  EXPECT_EQ("/d/Show.eyetvsched", EyetvBundle("/d/Show.eyetvsched/movie.mpg"));
  EXPECT_EQ("/d/Show.eyetv/x/y/movie.mpg", EyetvBundle("/d/Show.eyetv/x/y/movie.mpg"));
  EXPECT_EQ("/d/Show.eyetv", EyetvBundle("/d/Show.eyetv"));
  EXPECT_EQ("/d/a.mov", EyetvBundle("/d/a.mov"));
  EXPECT_EQ("", EyetvBundle(""));
  EXPECT_FALSE(EyetvBundle(std::nullopt));
}

TEST_F(Bundles, displayName) {
  EXPECT_EQ("Show", fichier_nom("/d/Show.eyetv/movie.mpg"));
  EXPECT_EQ("a.b", fichier_nom("/d/a.b.mov"));
  EXPECT_EQ("movie", fichier_nom("/d/Show.eyetv/x/movie.mpg"));
  EXPECT_EQ("bob", fichier_nom("~"));
  EXPECT_FALSE(fichier_nom(std::nullopt));
}

TEST_F(Bundles, containingFolder) {
  EXPECT_EQ("/d", fichier_dirname("/d/Show.eyetv/movie.mpg"));
  EXPECT_EQ("/d/Show.eyetv/x", fichier_dirname("/d/Show.eyetv/x/movie.mpg"));
  EXPECT_EQ("/Volumes/Disk", fichier_dirname("/Volumes/Disk/a.mov"));
  EXPECT_EQ("/Volumes", fichier_dirname("/Volumes/a.mov"));
  EXPECT_EQ("", fichier_dirname(std::nullopt));
  EXPECT_EQ("", fichier_dirname("a"));
  EXPECT_EQ("/", fichier_dirname("/"));
  EXPECT_EQ(home(), fichier_dirname("~/a.mov"));
}

TEST_F(Bundles, containingFolderOfAProjectsExport) {
  EXPECT_EQ("/d", fichier_dirname("/d/Film.iMovieProject/Shared Movies/iDVD"));
  // The last 33 characters go wherever the marker stands: here ".../iDVD/Film.mov" loses its end.
  const std::string deeper = "/d/Film.iMovieProject/Shared Movies/iDVD/Film.mov";
  EXPECT_EQ(fs::path(deeper.substr(0, deeper.size() - 33)).parent_path().string(), fichier_dirname(deeper));
  // Characters, not bytes.
  EXPECT_EQ("/d", fichier_dirname("/d/Fi.iMovieProject/Shared Movies/iDVD/éééé"));
  EXPECT_EQ("/d", containingFolder("/d/Fi.iMovieProject/Shared Movies/iDVD/éééé"));
}

TEST_F(Bundles, title) {
  EXPECT_EQ("Show", bundleTitleOfPath("/d/Show.eyetv/x/movie.mpg"));
  EXPECT_EQ("Show", bundleTitleOfPath("/d/Show.eyetvsched/movie.mpg"));
  EXPECT_EQ("Film", bundleTitleOfPath("/d/Film.iMovieProject/Show.eyetv/movie.mpg"));
  EXPECT_EQ("A", bundleTitleOfPath("/d/A.eyetv/B.eyetv/movie.mpg"));
  EXPECT_EQ("a", bundleTitleOfPath("/d/a.mov"));
  EXPECT_EQ("bob", bundleTitleOfPath("~"));
  EXPECT_FALSE(bundleTitleOfPath(std::nullopt));
}

TEST_F(Bundles, logLines) {
  RecordingLog log(true);
  EyetvBundle("/d/Show.eyetv/a.mpg");
  EXPECT_EQ(
      (std::vector<std::string>{"EyetvBundle    start: /d/Show.eyetv/a.mpg", "EyetvBundle      end: '/d/Show.eyetv'"}),
      log.lines());
  log.clear();
  fichier_nom("/d/a.mov");
  EXPECT_EQ((std::vector<std::string>{"fichier_nom         - begin - /d/a.mov", "EyetvBundle    start: /d/a.mov",
                                      "EyetvBundle      end: '/d/a.mov'", "fichier_nom         - end   - a"}),
            log.lines());
  log.clear();
  fichier_dirname("/d/Film.iMovieProject/Shared Movies/iDVD");
  EXPECT_EQ((std::vector<std::string>{"bundle imovie        : /d/Film", "EyetvBundle    start: /d/Film",
                                      "EyetvBundle      end: '/d/Film'", "fichier_dirname     - end   - /d"}),
            log.lines());
  log.clear();
  bundleTitleOfPath("/d/a.mov");
  EXPECT_EQ(std::vector<std::string>{"input               : /d/a.mov"}, log.lines());
  log.clear();
  EyetvBundle(std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Bundles, firstFileOfAnExtension) {
  const std::string folder = scratch.makeFolder("Show.eyetv");
  scratch.write("Show.eyetv/a.EYETVR", "");
  scratch.write("Show.eyetv/b.txt", "");
  RecordingLog log(true);
  EXPECT_EQ("", fileFromFolder(folder, "eyetvr"));
  EXPECT_TRUE(log.hasContaining("lsFolder : ("));
  EXPECT_TRUE(log.has("fileFromFolder str : "));
  log.clear();
  scratch.write("Show.eyetv/c.eyetvr", "");
  EXPECT_EQ(folder + "/c.eyetvr", fileFromFolder(folder, "eyetvr"));
  EXPECT_TRUE(log.has("fichier: c.eyetvr, extension : eyetvr"));
  EXPECT_TRUE(log.has("fileFromFolder str : " + folder + "/c.eyetvr"));
  EXPECT_EQ(folder + "//c.eyetvr", fileFromFolder(folder + "/", "eyetvr"));
  EXPECT_EQ("", fileFromFolder(scratch.file("missing"), "eyetvr"));
  EXPECT_EQ("", fileFromFolder(std::nullopt, "eyetvr"));
}

class Duration : public FilesTest {
 protected:
  float durationOf(const std::string& description) {
    scratch.write("Show.eyetv/Show.eyetvr", description);
    return eyetvBundleDuration(movie);
  }
  const std::string movie = scratch.write("Show.eyetv/movie.mpg", "");
};

TEST_F(Duration, isFoundInTheDescription) {
  EXPECT_EQ(1799.5f, durationOf("<dict><key>actual duration</key><real>1799.5</real></dict>"));
  EXPECT_EQ(1799.5f, durationOf("<key>actual start</key><real>1</real>\n\t<key>actual duration</key>\n\t\t"
                                "<real>1799.5</real>\n\t<key>actual duration</key><real>2</real>"));
}

TEST_F(Duration, blanksBetweenKeyAndValueHideIt) {
  // Line ends and tabs go, a run of blanks becomes one.
  EXPECT_EQ(0, durationOf("<key>actual duration</key> <real>1799.5</real>"));
  EXPECT_EQ(12, durationOf("<key>actual    duration</key><real>12</real>"));
}

TEST_F(Duration, withoutValueIsZero) {
  EXPECT_EQ(0, durationOf(""));
  EXPECT_EQ(0, durationOf("<key>actual duration</key><real>1799.5"));
  EXPECT_EQ(0, durationOf("<key>duration</key><real>1799.5</real>"));
  EXPECT_EQ(0, durationOf("\xff<key>actual duration</key><real>1799.5</real>"));
}

TEST_F(Duration, ofAScheduledRecording) {
  scratch.write("Next.eyetvsched/x.eyetvr", "<key>actual duration</key><real>60</real>");
  EXPECT_EQ(60, eyetvBundleDuration(scratch.file("Next.eyetvsched/movie.mpg")));
}

TEST_F(Duration, withoutADescriptionIsNotReadable) {
  RecordingLog log;
  EXPECT_EQ(0, eyetvBundleDuration(movie));
  EXPECT_EQ(std::vector<std::string>{"bundledVideoEyetvDura- not readable"}, log.lines());
}

TEST_F(Duration, ofAFolderOrPipeInItsPlaceIsNotRead) {
  RecordingLog log;
  scratch.makeFolder("Show.eyetv/Show.eyetvr");
  EXPECT_EQ(0, eyetvBundleDuration(movie));
  EXPECT_EQ(std::vector<std::string>{"bundledVideoEyetvDura- no read"}, log.lines());
  fs::remove(scratch.file("Show.eyetv/Show.eyetvr"));
  ASSERT_EQ(0, ::mkfifo(scratch.file("Show.eyetv/Show.eyetvr").c_str(), 0600));
  EXPECT_EQ(0, eyetvBundleDuration(movie));
  EXPECT_EQ(2, log.count("bundledVideoEyetvDura- no read"));
}

TEST_F(Duration, outsideARecordingIsZeroWithoutAWord) {
  RecordingLog log(true);
  EXPECT_EQ(0, eyetvBundleDuration(scratch.write("plain.mpg", "")));
  EXPECT_EQ(0, eyetvBundleDuration(std::nullopt));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Duration, logLines) {
  scratch.write("Show.eyetv/Show.eyetvr", "<key>actual duration</key><real>1799.5</real>");
  RecordingLog log(true);
  eyetvBundleDuration(movie);
  const auto lines = log.lines();
  ASSERT_GE(lines.size(), 3u);
  EXPECT_EQ("bundledVideoEyetvDura- begin", lines[0]);
  EXPECT_EQ("input               : " + movie, lines[1]);
  EXPECT_EQ("input               : " + scratch.file("Show.eyetv/"), lines[2]);
  EXPECT_TRUE(log.has("pathStrEyetvr         : " + scratch.file("Show.eyetv//Show.eyetvr")));
  EXPECT_EQ("returnFloat          : 1799.500000", lines.back());
}

}  // namespace
}  // namespace vistrelle
