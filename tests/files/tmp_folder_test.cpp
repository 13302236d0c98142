#include <sys/stat.h>
#include <unistd.h>

#include "tests/files/files_fixture.h"
#include "vistrelle/platform/bundle/bundle.h"

namespace vistrelle {
namespace {

using namespace testing;
using Lines = std::vector<std::string>;

class NamedBundle : public platform::Bundle {
 public:
  OptionalText name() const override { return "Mirelund"; }
  std::string resourcePath() const override { return "/"; }
  OptionalText pathForResource(std::string_view, std::string_view) const override { return std::nullopt; }
  std::string localizedString(std::string_view key, std::string_view, std::string_view) const override {
    return std::string(key);
  }
};

using TmpFolder = FilesTest;

TEST_F(TmpFolder, isNamedAfterTheBundle) {
  tmpFolderSet("");
  EXPECT_EQ("/private/tmp/(null)", tmpFolderPath());
  const platform::Installed<platform::Bundle> installed(platform::mainBundle(), std::make_shared<NamedBundle>());
  EXPECT_EQ("/private/tmp/Mirelund", tmpFolderPath());
}

TEST_F(TmpFolder, theLastOneInstalledCounts) {
  tmpFolderSet("/first");
  tmpFolderSet("/second");
  EXPECT_EQ("/second", tmpFolderPath());
  EXPECT_EQ("/second", tmpFolderPath());
}

TEST_F(TmpFolder, isMadeClosedToOthers) {
  RecordingLog log;
  tmpFolderSet("~/cache/vistrelle");
  EXPECT_FALSE(exists(home() + "/cache"));
  EXPECT_TRUE(tmpFolderReady());
  EXPECT_EQ(fs::perms(0700), fs::status(home() + "/cache/vistrelle").permissions());
  EXPECT_TRUE(tmpFolderReady());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TmpFolder, thatCannotBeMadeIsOneLogLine) {
  tmpFolderSet(scratch.write("file", "") + "/below");
  RecordingLog log;
  EXPECT_FALSE(tmpFolderReady());
  EXPECT_EQ(Lines{"tmpFolderPath       :-( not made: Not a directory (20): '" + scratch.file("file/below") + "'"},
            log.lines());
}

TEST_F(TmpFolder, thatSomebodyElsePreparedIsRefused) {
  if (!isAdministrator()) GTEST_SKIP() << "folders of another user need the administrator";
  const std::string theirs = scratch.makeFolder("theirs");
  ASSERT_EQ(0, ::chown(theirs.c_str(), 65534, 65534));
  const std::string open = scratch.makeFolder("open");
  fs::permissions(open, fs::perms(0777));
  const std::string sticky = scratch.makeFolder("sticky");
  fs::permissions(sticky, fs::perms(01777));
  fs::create_directory_symlink(sticky, scratch.file("their-link"));
  ASSERT_EQ(0, ::lchown(scratch.file("their-link").c_str(), 65534, 65534));
  fs::create_directory_symlink(sticky, scratch.file("own-link"));
  for (const std::string& path : {theirs, open, scratch.file("their-link")}) {
    tmpFolderSet(path);
    RecordingLog log;
    EXPECT_FALSE(tmpFolderReady()) << path;
    EXPECT_EQ(Lines{"tmpFolderPath       :-( not private: '" + path + "'"}, log.lines());
  }
  for (const std::string& path : {sticky, scratch.file("own-link")}) {
    tmpFolderSet(path);
    EXPECT_TRUE(tmpFolderReady()) << path;
  }
}

}  // namespace
}  // namespace vistrelle
