#include <sys/stat.h>
#include <unistd.h>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/guarded.h"

namespace vistrelle {
namespace {

using namespace testing;
using Lines = std::vector<std::string>;

const std::string dirnameAlert = "alerte de sécurité dirname";
const std::string jokerAlert = "alerte de sécurité joker";

using Removal = FilesTest;

TEST_F(Removal, filesAndFoldersGo) {
  scratch.write("people/bob/Movies/a.jpg", "");
  scratch.write("tree/b/c", "");
  RecordingLog log;
  EXPECT_TRUE(rmCocoa("~/Movies/a.jpg"));
  EXPECT_FALSE(exists(home() + "/Movies/a.jpg"));
  EXPECT_TRUE(rmCocoa(scratch.file("tree")));
  EXPECT_FALSE(exists(scratch.file("tree")));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(desktop->recycled.empty());
}

TEST_F(Removal, ofWhatIsNotThereIsTrue) {
  EXPECT_TRUE(rmCocoa(scratch.file("missing")));
  EXPECT_TRUE(rmCocoa(""));
  EXPECT_FALSE(rmCocoa(std::nullopt));
}

TEST_F(Removal, ofALinkOnlyTheLinkGoes) {
  scratch.write("kept/file", "x");
  fs::create_symlink("kept", scratch.file("link"));
  fs::create_symlink("missing", scratch.file("dangling"));
  EXPECT_TRUE(rmCocoa(scratch.file("link")));
  EXPECT_TRUE(rmCocoa(scratch.file("dangling")));
  EXPECT_FALSE(exists(scratch.file("link")));
  EXPECT_FALSE(exists(scratch.file("dangling")));
  EXPECT_EQ("x", readFile(scratch.file("kept/file")));
}

TEST_F(Removal, ofAnUnreadableFileLeavesItAndIsTrue) {
  const std::string file = scratch.write("a", "");
  fs::permissions(file, fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0777));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    RecordingLog log;
    EXPECT_TRUE(rmCocoa(file));
    EXPECT_EQ(Lines{"Cocoa:exists!!!     :-( " + file}, log.lines());
    EXPECT_TRUE(exists(file));
  }));
}

TEST_F(Removal, whatCannotBeRemovedGoesToTheTrash) {
  const std::string file = scratch.write("a", "");
  WithFailures with;
  with.files->failRemove = true;
  RecordingLog log;
  EXPECT_FALSE(rmCocoa(file));
  EXPECT_EQ((Lines{"File current        :-( not deleted 1", "File current        :-/ …to trash",
                   "File current        :-( failure"}),
            log.lines());
  EXPECT_EQ(Lines{scratch.path() + " a"}, desktop->recycled);
}

TEST_F(Removal, isTrueWhenTheTrashTookIt) {
  class Taking : public platform::Workspace {
   public:
    void noteFileSystemChanged(const std::string&) override {}
    bool recycle(const std::string& folder, const std::vector<std::string>& names) override {
      for (const std::string& name : names) fs::remove_all(folder + "/" + name);
      return true;
    }
    bool openFile(const std::string&, const std::string&) override { return false; }
    bool openUrl(const platform::Url&) override { return false; }
    bool displayIsAccelerated() override { return false; }
  };
  const platform::Installed<platform::Workspace> installed(platform::workspace(), std::make_shared<Taking>());
  const std::string file = scratch.write("a", "");
  WithFailures with;
  with.files->failRemove = true;
  RecordingLog log;
  EXPECT_TRUE(rmCocoa(file));
  EXPECT_EQ((Lines{"File current        :-( not deleted 1", "File current        :-/ …to trash"}), log.lines());
}

TEST_F(Removal, logLines) {
  scratch.write("people/bob/a", "");
  const std::string file = home() + "/a";
  RecordingLog log(true);
  EXPECT_TRUE(rmCocoa("~/a"));
  EXPECT_EQ("rmCocoa             - begin - ~/a", log.lines().front());
  EXPECT_TRUE(log.has("File current        : exists: " + file));
  EXPECT_TRUE(log.has("rmCocoa             - pre-fin"));
  EXPECT_EQ("rmCocoa             - end - " + file, log.lines().back());
  EXPECT_EQ(file, desktop->noted.back());
  log.clear();
  EXPECT_TRUE(rmCocoa(file));
  EXPECT_TRUE(log.has("rmCocoa d           : nil"));
  const std::string error = "No such file or directory (2): '" + file + "'";
  EXPECT_TRUE(log.has("Cocoa:does not exist:-/ ERR: " + error + " (" + file + ")"));
  EXPECT_EQ("Cocoa:does not exist;-) ERR: " + error + " (" + file + ")", log.lines().back());
  log.clear();
  fs::create_symlink("missing", file);
  EXPECT_TRUE(rmCocoa(file));
  EXPECT_EQ("Cocoa:does not exist;-) ERR: nil (" + file + ")", log.lines().back());
  log.clear();
  EXPECT_FALSE(rmCocoa(std::nullopt));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Removal, describesTheVolumeOfAnUnreadableFile) {
  const std::string file = scratch.write("a", "");
  fs::permissions(file, fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0777));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    RecordingLog log(true);
    EXPECT_TRUE(rmCocoa(file));
    EXPECT_TRUE(log.hasContaining("rmCocoa d           : {\n    NSFileSystemFreeNodes = "));
    EXPECT_TRUE(log.hasContaining(" […]"));
    EXPECT_EQ("rmCocoa             - end - " + file, log.lines().back());
  }));
}

using Refusal = FilesTest;

TEST_F(Refusal, piecesOfTheHomePathAreSilent) {
  WithoutHarm harmless;
  RecordingLog log;
  for (const std::string& path : {std::string("~"), std::string("~/"), home(), home() + "/", std::string("bob"),
                                  std::string("people"), std::string("/"), scratch.file("people")}) {
    EXPECT_FALSE(rmCocoa(path)) << path;
  }
  EXPECT_TRUE(log.lines().empty());
  EXPECT_TRUE(harmless.files->removed.empty());
}

TEST_F(Refusal, piecesOfTheUsersFolderAreSilent) {
  WithoutHarm harmless;
  RecordingLog log;
  for (const char* path : {"/Users", "Users", "/Users/", "/Users/root"}) {
    if (std::string(path) == "/Users/root" && !isAdministrator()) continue;
    EXPECT_FALSE(rmCocoa(path)) << path;
  }
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Refusal, aTrailingSlashTakesTwoCharacters) {
  WithoutHarm harmless;
  // "…/peopleX/" is looked for as "…/people", a piece of the home path; without the slash it is no piece.
  EXPECT_FALSE(rmCocoa(scratch.file("peopleX/")));
  EXPECT_TRUE(harmless.files->removed.empty());
  EXPECT_TRUE(rmCocoa(scratch.file("peopleX")));
  EXPECT_EQ(Lines{scratch.file("peopleX")}, harmless.files->removed);
  EXPECT_TRUE(rmCocoa("a/"));  // nothing is left to look for
}

TEST_F(Refusal, aTrailingSlashTakesCharactersAndNoPartsOfThem) {
  WithoutHarm harmless;
  ::setenv("HOME", scratch.file("people/é").c_str(), 1);
  RecordingLog log;
  EXPECT_FALSE(rmCocoa(scratch.file("people/éé/")));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Refusal, volumesAndTopFoldersAlert) {
  WithoutHarm harmless;
  for (const char* path : {"/Volumes/Disk", "/Volumes/*", "/*", "/etc", "/Volumes/a.mov", "/Users/somebody-else",
                           "/Volumes/Show.eyetv/a"}) {
    RecordingLog log;
    EXPECT_FALSE(rmCocoa(path)) << path;
    EXPECT_EQ(Lines{dirnameAlert}, log.lines()) << path;
  }
  EXPECT_TRUE(harmless.files->removed.empty());
}

TEST_F(Refusal, devicesAndStandardStreamsAlert) {
  WithoutHarm harmless;
  for (const char* path : {"/dev/null", "/dev/stdout", "/dev/tty", "/dev/fd", "//dev/./null", "/proc/../dev/null"}) {
    RecordingLog log;
    EXPECT_FALSE(rmCocoa(path)) << path;
    EXPECT_EQ(Lines{dirnameAlert}, log.lines()) << path;
  }
  EXPECT_TRUE(harmless.files->removed.empty());
  RecordingLog log;
  rmCocoa("/dev/shm/film.mov");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Refusal, wildcardsAlert) {
  WithoutHarm harmless;
  for (const char* path : {"*", "*.mov", "*/a", "/Volumes/Users/*", "/Volumes/Users/*/a"}) {
    RecordingLog log;
    EXPECT_FALSE(rmCocoa(path)) << path;
    EXPECT_EQ(Lines{jokerAlert}, log.lines()) << path;
  }
  EXPECT_TRUE(harmless.files->removed.empty());
  EXPECT_TRUE(rmCocoa(scratch.file("*")));
}

TEST_F(Refusal, theAuthoringAreaSkipsTheLastTwoRulesOnly) {
  WithoutHarm harmless;
  RecordingLog log;
  EXPECT_TRUE(rmCocoa("/ZRKauthoring"));
  EXPECT_TRUE(rmCocoa("/ZRKauthoring-2/*"));
  EXPECT_EQ(2u, harmless.files->removed.size());
  ::setenv("HOME", "/ZRKauthoring/bob", 1);
  EXPECT_FALSE(rmCocoa("/ZRKauthoring"));
  EXPECT_FALSE(rmCocoa("/ZRKauthoring/bob"));
  EXPECT_TRUE(log.lines().empty());
  // And it is no way around: this is another folder.
  EXPECT_FALSE(rmCocoa("/ZRKauthoring/../etc"));
  EXPECT_EQ(Lines{dirnameAlert}, log.lines());
  EXPECT_EQ(2u, harmless.files->removed.size());
}

TEST_F(Refusal, foldersOfHomesAndVolumesAlert) {
  WithoutHarm harmless;
  for (const char* path : {"/home/nobody-here", "/media/usb", "/mnt/disk", "/run/media/bob/stick", "/run/media/bob",
                           "//mnt//disk", "/mnt/./disk", "/usr/../mnt/disk/", "/mnt", "/home"}) {
    RecordingLog log;
    EXPECT_FALSE(rmCocoa(path)) << path;
    EXPECT_EQ(Lines{dirnameAlert}, log.lines()) << path;
  }
  EXPECT_TRUE(harmless.files->removed.empty());
  EXPECT_TRUE(rmCocoa("/mnt/disk/film.mov"));
}

TEST_F(Refusal, theHomeInEverySpellingAndTheFoldersAboveAlert) {
  WithoutHarm harmless;
  scratch.makeFolder("people/bob/Movies");
  fs::create_symlink(home(), scratch.file("link"));
  fs::create_symlink(scratch.file("people"), scratch.file("above"));
  const std::string root = scratch.path();
  for (const std::string& path :
       {root + "//people/bob", root + "/./people/bob", root + "/people/bob/.", root + "/people/bob/Movies/..",
        root + "/people/../people/bob", root + "/link", root + "/link/", root + "/above/bob", root + "/people/.",
        root + "/people/bob/..", root + "/above/", root + "/above/.", root, root + "//", std::string("~/."),
        std::string("~/Movies/.."), std::string("~/..")}) {
    RecordingLog log;
    EXPECT_FALSE(rmCocoa(path)) << path;
    EXPECT_TRUE(log.lines().empty() || log.lines() == Lines{dirnameAlert}) << path;
  }
  EXPECT_TRUE(harmless.files->removed.empty());
  // A link to a folder above the home is a link.
  EXPECT_FALSE(rmCocoa(root + "/above"));
  EXPECT_EQ(Lines{root + "/above"}, harmless.files->removed);
}

TEST_F(Refusal, theRecordedHomeIsProtectedWhateverHomeSays) {
  WithoutHarm harmless;
  RecordingLog log;
  const char* recorded = isAdministrator() ? "~root/." : "/home/./";
  EXPECT_FALSE(rmCocoa(recorded));
  EXPECT_TRUE(harmless.files->removed.empty());
}

TEST_F(Refusal, relativePathsCountFromTheCurrentFolder) {
  WithoutHarm harmless;
  EXPECT_TRUE(inChild([&] {
    RecordingLog log;
    ASSERT_EQ(0, ::chdir(home().c_str()));
    for (const char* path : {".", "./", "..", "../.", "../../people", "../../../../../../etc"}) {
      EXPECT_FALSE(rmCocoa(path)) << path;
    }
    ASSERT_EQ(0, ::chdir("/"));
    EXPECT_FALSE(rmCocoa("etc"));
    EXPECT_FALSE(rmCocoa("./mnt/disk"));
    EXPECT_TRUE(harmless.files->removed.empty());
  }));
}

TEST_F(Refusal, aZeroByteHidesNothing) {
  EXPECT_TRUE(rmCocoa(home() + std::string("\0junk", 5)));  // names nothing, so it was never there
  EXPECT_TRUE(exists(home()));
}

}  // namespace
}  // namespace vistrelle
