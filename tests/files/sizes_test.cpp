#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/files/files_fixture.h"
#include "vistrelle/files/queries.h"

namespace vistrelle {
namespace {

using namespace testing;

using Sizes = FilesTest;

TEST_F(Sizes, ofAFileInEachUnit) {
  const std::string file = scratch.write("people/bob/a", std::string(1536, 'x'));
  for (const std::string& path : {file, std::string("~/a")}) {
    EXPECT_EQ(1.5, poidsFile(path, "K"));
    EXPECT_EQ(1.5, poidsFile(path, "k"));
    for (const char* unit : {"o", "O", "B", "b", "X", ""}) EXPECT_EQ(1536, poidsFile(path, unit)) << unit;
    EXPECT_EQ(1536, poidsFile(path, std::nullopt));
    EXPECT_EQ(1536 * 9.5367431640625e-7, poidsFile(path, "m"));
    EXPECT_EQ(1536 * 9.313225746154785e-10, poidsFile(path, "g"));
    EXPECT_EQ(static_cast<float>(1536 * 9.5367431640625e-7), poidsFileMo(path));
  }
}

TEST_F(Sizes, ofNothingIsMinusOne) {
  EXPECT_EQ(-1.0, poidsFile(std::nullopt, "k"));
  EXPECT_EQ(-1.0, poidsFile("", "k"));
  EXPECT_EQ(-1.0, poidsFile(scratch.file("missing"), "k"));
  EXPECT_EQ(-1.0f, poidsFileMo(scratch.file("missing")));
  EXPECT_EQ(-1.0, poidsFileC(std::nullopt, "k"));
  EXPECT_EQ(-1.0, poidsFileC("", "k"));
  EXPECT_EQ(-1.0, poidsFileC(scratch.file("missing"), "k"));
}

TEST_F(Sizes, followLinks) {
  scratch.write("a", std::string(5000, 'x'));
  fs::create_symlink("a", scratch.file("link"));
  EXPECT_EQ(5000, poidsFile(scratch.file("link"), "o"));
  EXPECT_EQ(5000, poidsFileC(scratch.file("link"), "o"));
}

TEST_F(Sizes, ofAnUnreadableFileIsKnownAllTheSame) {
  scratch.write("a", "123");
  fs::permissions(scratch.file("a"), fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0755));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    EXPECT_EQ(3, poidsFile(scratch.file("a"), "o"));
    EXPECT_EQ(-1, poidsFileC(scratch.file("a"), "o"));
  }));
}

TEST_F(Sizes, logLines) {
  const std::string file = scratch.write("a.log", std::string(1536, 'x'));
  RecordingLog log(true);
  poidsFile(file, "k");
  EXPECT_EQ((std::vector<std::string>{"poidsFile…", "poidsFile…1", "poidsFile…2", "dict (size)         : 1536",
                                      "current file size   : 1536 units", "current file size   : 1.50 KB"}),
            log.lines());
  log.clear();
  poidsFile(file, "X");
  EXPECT_TRUE(log.has("current file size   : 1536.00 B"));
  log.clear();
  poidsFile(file, std::nullopt);
  EXPECT_TRUE(log.has("current file size   : 1536.00 B"));
  log.clear();
  poidsFile(std::nullopt, "k");
  EXPECT_EQ(std::vector<std::string>{"poidsFile…"}, log.lines());
  log.clear();
  poidsFile(scratch.file("missing"), "k");
  EXPECT_EQ((std::vector<std::string>{"poidsFile…", "poidsFile…1", "poidsFile…2"}), log.lines());
  log.clear();
  poidsFileC(file, "k");
  EXPECT_EQ((std::vector<std::string>{"poidsFileC          : (1)", "poidsFileC          : (2)",
                                      "pathStr             :-) 'a.log'", "poidsFileC          : (3)",
                                      "poidsFileC          : (4)", "fclose end", "poidsFileC          :   1536 units",
                                      "poidsFileC          :-) 1.50 k"}),
            log.lines());
  log.clear();
  poidsFileC(file, std::nullopt);
  EXPECT_TRUE(log.has("poidsFileC          :-) 1536.00 (null)"));
  log.clear();
  poidsFileC(std::nullopt, "k");
  EXPECT_EQ(std::vector<std::string>{"poidsFileC          : (1)"}, log.lines());
}

TEST_F(Sizes, byTheLibrary) {
  const std::string file = scratch.write("people/bob/a.txt", std::string(1536, 'x'));
  EXPECT_EQ(1536, poidsFileC(file, std::nullopt));
  EXPECT_EQ(1536, poidsFileC("~/a.txt", "o"));
  EXPECT_EQ(1536, poidsFileC(file, "O"));
  EXPECT_EQ(1.5, poidsFileC(file, "k"));
  EXPECT_EQ(1536, poidsFileC(file, "B"));
  EXPECT_EQ(0, poidsFileC(scratch.write("empty", ""), "k"));
}

TEST_F(Sizes, byTheLibraryOfWhatIsNoFile) {
  struct stat status {};
  ASSERT_EQ(0, ::stat(home().c_str(), &status));
  EXPECT_EQ(status.st_size, poidsFileC(home(), "o"));
  ASSERT_EQ(0, ::mkfifo(scratch.file("pipe").c_str(), 0600));
  EXPECT_EQ(-1, poidsFileC(scratch.file("pipe"), "o"));
}

TEST_F(Sizes, ofAFolder) {
  const std::string folder = scratch.makeFolder("tree");
  scratch.write("tree/a", std::string(3'000'000, 'x'));
  scratch.write("tree/b/c", std::string(123, 'x'));
  fs::create_symlink("a", folder + "/link");
  struct stat inner {};
  ASSERT_EQ(0, ::stat((folder + "/b").c_str(), &inner));
  // A sum this small is exact in single precision up to the last bits, whatever the order.
  const float wanted = static_cast<float>(static_cast<double>(3'000'000 + 123 + 1 + inner.st_size) / 1048576);
  const float size = folderSizeMo(folder);
  EXPECT_FLOAT_EQ(wanted, size);
  EXPECT_EQ(size, poidsFile(folder, "M"));
  EXPECT_EQ(size, poidsFile(folder, "m"));
  EXPECT_EQ(size * 0.0009765625, poidsFile(folder, "g"));
  EXPECT_EQ(static_cast<double>(size) * 1024, poidsFile(folder, "K"));
  for (const char* unit : {"o", "O", "B", "b"}) {
    EXPECT_EQ(static_cast<double>(size) * 1048576, poidsFile(folder, unit)) << unit;
  }
  EXPECT_EQ(size, poidsFileMo(folder));
  struct stat own {};
  ASSERT_EQ(0, ::stat(folder.c_str(), &own));
  EXPECT_EQ(own.st_size, poidsFile(folder, "X"));
  EXPECT_EQ(own.st_size, poidsFile(folder, std::nullopt));
}

TEST_F(Sizes, ofAHomeFolderByItsTildeIsTheEntrysOwn) {
  scratch.write("people/bob/a", std::string(2'000'000, 'x'));
  struct stat own {};
  ASSERT_EQ(0, ::stat(home().c_str(), &own));
  // The folder test does not expand "~", so that the size is that of the entry.
  EXPECT_EQ(static_cast<double>(own.st_size) / 1048576.0, poidsFile("~", "M"));
  EXPECT_GT(folderSizeMo("~"), 1.9f);
}

TEST_F(Sizes, ofEmptyAndMissingFoldersIsZero) {
  EXPECT_EQ(0, folderSizeMo(scratch.makeFolder("empty")));
  EXPECT_EQ(0, folderSizeMo(scratch.file("missing")));
  EXPECT_EQ(0, folderSizeMo(std::nullopt));
}

TEST_F(Sizes, folderTotalIsKeptInSinglePrecision) {
  class Sized : public platform::ForwardingFileManager {
   public:
    Sized() : ForwardingFileManager(platform::fileManager().get()) {}
    platform::FileResult visitTree(const std::string&, bool,
                                   const std::function<void(const platform::TreeItem&)>& visit) override {
      // 16 TB in one file: what follows is below half a unit in the last place each time.
      visit({"large", std::int64_t{16} << 40});
      for (int number = 0; number < 1000; ++number) visit({"small", 400'000});
      return {};
    }
  };
  const platform::Installed<platform::FileManager> installed(platform::fileManager(), std::make_shared<Sized>());
  RecordingLog log(true);
  EXPECT_EQ(16777216.0f, folderSizeMo(scratch.path()));
  EXPECT_EQ(std::vector<std::string>{"current folder size : 16777216.000000 Mo"}, log.lines());
}

TEST_F(Sizes, ofAFolderWithLoopsAndOneHundredThousandFiles) {
  const std::string folder = scratch.makeFolder("many");
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
  // Names of two files: quicker than as many files, and one alone may not have that many names everywhere.
  for (int number = 0; number < 100'000; ++number) {
    const std::string name = std::to_string(number);
    if (number < 2) {
      scratch.write("many/" + name, std::string(1024, 'x'));
    } else {
      ASSERT_EQ(0, ::linkat(descriptor, number % 2 ? "1" : "0", descriptor, name.c_str(), 0));
    }
  }
  ::close(descriptor);
  fs::create_symlink(".", folder + "/loop");
  EXPECT_NEAR(100'000 / 1024.0, folderSizeMo(folder), 0.05);
  EXPECT_EQ(100'001u, listAllPathsCocoa(folder)->size());
  ASSERT_TRUE(platform::fileManager().get()->remove(folder).ok());
}

TEST_F(Sizes, unreadableFoldersCountAsEntries) {
  scratch.write("tree/closed/a", std::string(1 << 20, 'x'));
  scratch.write("tree/b", std::string(1 << 20, 'x'));
  fs::permissions(scratch.file("tree/closed"), fs::perms::none);
  fs::permissions(scratch.path(), fs::perms(0755));
  EXPECT_TRUE(inChild([&] {
    becomeNobody();
    EXPECT_NEAR(1.0, folderSizeMo(scratch.file("tree")), 0.01);
  }));
  fs::permissions(scratch.file("tree/closed"), fs::perms(0700));
}

using FreeSpace = FilesTest;

TEST_F(FreeSpace, inWholeMegabytes) {
  RecordingLog log(true);
  WithFailures with;
  with.files->freeBytes = 1'572'864;
  EXPECT_EQ(1, freeDiskSpaceMo(scratch.path()));
  EXPECT_TRUE(log.has("free disk space file: " + scratch.path()));
  EXPECT_TRUE(log.has("free disk space     : 1 Mo"));
  with.files->freeBytes = 1'048'575;
  EXPECT_EQ(0, freeDiskSpaceMo(scratch.path()));
  with.files->freeBytes = std::uint64_t{1} << 63;
  EXPECT_EQ(std::int64_t{1} << 43, freeDiskSpaceMo("~"));
}

TEST_F(FreeSpace, ofARealVolume) {
  if (!canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  const std::string folder = scratch.makeFolder("volume");
  EXPECT_TRUE(inChild([&] {
    ASSERT_TRUE(mountScratch(folder.c_str(), "size=1572864"));
    EXPECT_EQ(1, freeDiskSpaceMo(folder));
  }));
}

TEST_F(FreeSpace, ofNothingIsMinusOne) {
  RecordingLog log;
  EXPECT_EQ(-1, freeDiskSpaceMo(std::nullopt));
  EXPECT_EQ(-1, freeDiskSpaceMo(""));
  EXPECT_EQ(-1, freeDiskSpaceMo(scratch.file("missing")));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(FreeSpace, anErrorIsAlwaysLogged) {
  RecordingLog log;
  WithFailures with;
  with.files->failVolume = true;
  EXPECT_EQ(-1, freeDiskSpaceMo(scratch.path()));
  EXPECT_EQ(std::vector<std::string>{"error               :-( Input/output error (5): '" + scratch.path() + "'"},
            log.lines());
}

}  // namespace
}  // namespace vistrelle
