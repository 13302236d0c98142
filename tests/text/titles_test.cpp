#include "vistrelle/text/titles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle {
namespace {

using platform::Date;
using platform::OptionalText;
using testing::RecordingLog;
using testing::ScratchFolder;

constexpr std::int64_t kFirstOfMarch = 1425213296;  // 2015-03-01 12:34:56 UTC

Date dateAt(std::int64_t seconds) {
  return Date(std::chrono::seconds(seconds));
}

std::string fileOfMarch(const ScratchFolder& folder, const std::string& name) {
  const std::string path = folder.write(name, "x");
  const timespec times[2] = {{kFirstOfMarch, 0}, {kFirstOfMarch, 0}};
  EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
  return path;
}

TEST(Pathes2Titles, SuffixesAndUnderscores) {
  EXPECT_EQ(pathes2Titles("/tmp/My_Film-PAL.mov", std::nullopt), "My Film");
  EXPECT_EQ(pathes2Titles("My__Long___Film-NV.mov", std::nullopt), "My Long Film");
  EXPECT_EQ(pathes2Titles("Film-NF.mov", std::nullopt), "Film");
  EXPECT_EQ(pathes2Titles("Film-PAL-NF.mov", std::nullopt), "Film-PAL");  // each suffix is tried once, in order
  EXPECT_EQ(pathes2Titles("Film-NF-PAL.mov", std::nullopt), "Film");
  EXPECT_EQ(pathes2Titles("Film-pal.mov", std::nullopt), "Film-pal");
  EXPECT_EQ(pathes2Titles("_Été_ .mov", std::nullopt), "Été");
}

TEST(Pathes2Titles, ExtraSuffixesGoFirst) {
  const std::vector<std::string> extra = {"-VF", ""};
  EXPECT_EQ(pathes2Titles("Film-PAL-VF.mov", extra), "Film");
  EXPECT_EQ(pathes2Titles("Film-VF-PAL.mov", extra), "Film-VF");
}

TEST(Pathes2Titles, CutAtTheFirstOccurrence) {
  EXPECT_EQ(pathes2Titles("A-PAL-B-PAL.mov", std::nullopt), "A");
}

TEST(Pathes2Titles, NothingLeftGivesTheFileName) {
  EXPECT_EQ(pathes2Titles("/tmp/-PAL.mov", std::nullopt), "-PAL");
  EXPECT_EQ(pathes2Titles("/tmp/___.mov", std::nullopt), "___");
  EXPECT_EQ(pathes2Titles(std::nullopt, std::nullopt), std::nullopt);
  EXPECT_EQ(pathes2Titles("", std::nullopt), std::nullopt);
}

TEST(Pathes2Titles, RecordingBundlesAreLifted) {
  EXPECT_EQ(pathes2Titles("/tmp/My_Show.eyetv/0001.mpg", std::nullopt), "My Show");
}

TEST(Pathes2Titles, LogsWhenVerbose) {
  RecordingLog log(true);
  pathes2Titles("a_b.mov", std::nullopt);
  EXPECT_EQ(log.lines().front(), "pathes2Titles - begin");
  EXPECT_TRUE(log.has("suffixesMa : (\n    \"-PAL\",\n    \"-NV\",\n    \"-NF\"\n)"));
  EXPECT_TRUE(log.has("str def : a b"));
  EXPECT_EQ(log.lines().back(), "pathes2Titles - end");
  pathes2Titles("-PAL.mov", std::nullopt);
  EXPECT_TRUE(log.has("str def : nil"));
}

TEST(Pathes2Titles, QuietWhenNotVerbose) {
  RecordingLog log(false);
  pathes2Titles("a__b-PAL.mov", std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

TEST(TrimPathStr, CleansAndCuts) {
  RecordingLog log;
  EXPECT_EQ(trimPathStr("/tmp/a`b:c.mov", 99), "/tmp/ab-c.mov");
  EXPECT_EQ(trimPathStr("/tmp/abcdef.mov", 3), "/tmp/abc.mov");
  EXPECT_EQ(trimPathStr("éàü.mov", 2), "éà.mov");
  EXPECT_EQ(trimPathStr("name", 99), "name");
  EXPECT_EQ(trimPathStr("/name", 2), "/na");
  EXPECT_EQ(trimPathStr("a:b.mov", 0), "");  // no name takes no extension
  EXPECT_EQ(trimPathStr(std::nullopt, 9), std::nullopt);
  EXPECT_TRUE(log.lines().empty());
}

TEST(TrimPathStr, TooLongAnExtensionIsLost) {
  RecordingLog log(false);
  EXPECT_EQ(trimPathStr("/tmp/name.1234567890123", 99), "/tmp/name");
  EXPECT_EQ(log.lines(), std::vector<std::string>{
                             "trimPathStr() oops! :-( too many chars, post-'.' was not an ext (1234567890123)"});
  EXPECT_EQ(trimPathStr("/tmp/name.123456789012", 99), "/tmp/name.123456789012");
}

TEST(MasterName, ShortPaths) {
  EXPECT_EQ(masterName("a.mov"), "a_MASTER.mov");
  EXPECT_EQ(masterName("a"), "a_MASTER");
  EXPECT_EQ(masterName("/v/x.y.mov"), "/v/x.y_MASTER.mov");
  EXPECT_EQ(masterName("12345678901234567890.mov"), "12345678901234567890_MASTER.mov");  // 27 characters
  EXPECT_EQ(masterName(std::nullopt), std::nullopt);
}

TEST(MasterName, LongPathsAreShortened) {
  EXPECT_EQ(masterName("123456789012345678901.mov"), "12345678901234567890_MASTER.mov");
  EXPECT_EQ(masterName("/Volumes/Disk/Movies/My.Film: one.mov"), "/Volumes/Disk/Movies/My_Film- one_MASTER.mov");
  EXPECT_EQ(masterName("/Volumes/Disk/Movies/abcdefghijklmnopqrstuvwxyz"),
            "/Volumes/Disk/Movies/abcdefghijklmnopqrst_MASTER");
}

TEST(DateCreation, OfAFile) {
  const ScratchFolder folder;
  const std::string path = fileOfMarch(folder, "a.mov");
  EXPECT_EQ(dateCreation(path, std::nullopt, true), "2015-03-01 12:34:56");
  EXPECT_EQ(dateCreation(path, std::nullopt, false), "2015-03-01");
  EXPECT_EQ(dateCreation(path, dateAt(0), false), "2015-03-01");  // the date argument is not looked at
  EXPECT_EQ(dateCreation(folder.path() + "/x/../a.mov", std::nullopt, true), "2015-03-01 12:34:56");
  EXPECT_EQ(dateCreation(folder.file("missing"), dateAt(0), true), std::nullopt);
}

TEST(DateCreation, OfADate) {
  EXPECT_EQ(dateCreation(std::nullopt, dateAt(kFirstOfMarch), true), "2015-03-01 12:34:56");
  EXPECT_EQ(dateCreation("", dateAt(kFirstOfMarch), false), "2015-03-01");
  EXPECT_EQ(dateCreation(std::nullopt, std::nullopt, true), std::nullopt);
}

TEST(DateCreation, LogsWhenVerbose) {
  const ScratchFolder folder;
  const std::string path = fileOfMarch(folder, "a.mov");
  RecordingLog log(true);
  dateCreation(path, std::nullopt, false);
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"path : " + path, "dico (creation date) : 2015-03-01 12:34:56 +0000",
                                                   "dateCreation        : 2015-03-01 12:34:56 +0000",
                                                   "dateCreation        : 2015-03-01"}));
}

TEST(DateCreationForTouch, CompactForm) {
  RecordingLog log(true);
  EXPECT_EQ(dateCreationForTouch("2015-03-01 12:34:56 +0000"), "201503011234.56");
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"myDateCreationStr = 20150301 12:34:56", "myDateCreationStr = 20150301 123456",
                                      "myDateCreationStr = 20150301123456", "dateCreationForTouch: 201503011234.56"}));
  EXPECT_EQ(dateCreationForTouch(std::nullopt), std::nullopt);
}

TEST(DateCreationForTouch, OtherLengths) {
  RecordingLog log(false);
  EXPECT_EQ(dateCreationForTouch("2015-03-01"), "20150301");
  EXPECT_EQ(dateCreationForTouch("2015-03-01 12:34"), "201503011234");
  EXPECT_EQ(dateCreationForTouch("a:b"), "a:b");  // not above 8 characters: colons stay
  EXPECT_EQ(dateCreationForTouch(""), "");
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{"dateCreationForTouch: 20150301", "dateCreationForTouch: 201503011234",
                                      "dateCreationForTouch: a:b", "dateCreationForTouch: "}));
}

TEST(DateCreation2Name, ClipsAndIds) {
  const ScratchFolder folder;
  const std::string path = fileOfMarch(folder, "clips/b/My Clip.mov");
  RecordingLog log(false);
  EXPECT_EQ(dateCreation2Name(path, false), "clip-2015-03-01 12;34;56-My Clip");
  EXPECT_EQ(dateCreation2Name(path, true), "2015-03-01 12;34;56 (id) My Clip");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"dateCreation2iMovieN…", "dateCreation2iMovieN…"}));
  EXPECT_EQ(dateCreation2Name(std::nullopt, true), std::nullopt);
}

TEST(DateCreation2Name, ColonsOfTheNameGoToo) {
  const ScratchFolder folder;
  EXPECT_EQ(dateCreation2Name(fileOfMarch(folder, "b/a::b.mov"), false), "clip-2015-03-01 12;34;56-a;b");
}

TEST(DateCreation2Name, MissingFileHasNoDate) {
  const ScratchFolder folder;
  EXPECT_EQ(dateCreation2Name(folder.file("b/c.mov"), false), "clip-(null)-c");
}

TEST(DateCreation2Name, LogsWhenVerbose) {
  const ScratchFolder folder;
  const std::string path = fileOfMarch(folder, "clips/b/c.mov");
  folder.makeFolder("clips/PLAYLIST");
  RecordingLog log(true);
  dateCreation2Name(path, false);
  EXPECT_TRUE(log.has("dateCreation2Name   - 1: " + path));
  EXPECT_TRUE(log.has("dateCreation2Name   - 2: " + folder.file("clips")));
  EXPECT_TRUE(log.hasContaining("dateCreation2Name   - a : (\n"));
  EXPECT_TRUE(log.has("dateCreation2Name   - folderPLAYLIST : " + folder.file("clips/PLAYLIST")));
  EXPECT_TRUE(log.has("dateCreation2Name   - str : " + folder.file("clips/PLAYLIST")));
  EXPECT_TRUE(log.has("str line 0 : " + folder.file("clips/PLAYLIST")));
  EXPECT_TRUE(log.has("dateCreation2Name   - 2"));
  EXPECT_TRUE(log.has("dstPathNameStr = 2015-03-01 12:34:56"));
  EXPECT_TRUE(log.has("dstPathNameStr = clip-2015-03-01 12:34:56-c"));
  EXPECT_EQ(log.lines().back(), "dstPathNameStr = clip-2015-03-01 12;34;56-c");
}

TEST(DateCreation2Name, APlaylistLineIsLookedForInTheFoldersPath) {
  const ScratchFolder folder;
  const std::string path = fileOfMarch(folder, "x\nc : 1999-12-31/b/c.mov");
  folder.makeFolder("x\nc : 1999-12-31/PLAYLIST");
  EXPECT_EQ(dateCreation2Name(path, false), "clip-1999-12-31/PLAYLIST-c");
}

}  // namespace
}  // namespace vistrelle
