#include "vistrelle/platform/files/path.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle::platform {
namespace {

using testing::inChild;
using testing::ScratchFolder;

struct Row {
  std::string path;
  std::string wanted;
};

TEST(Path, lastComponent) {
  for (const Row& row : {Row{"/a/b.mov/", "b.mov"}, Row{"/a/b.mov", "b.mov"}, Row{"/", "/"}, Row{"///", "/"},
                         Row{"", ""}, Row{"a", "a"}, Row{"a//", "a"}, Row{"/a//b", "b"}}) {
    EXPECT_EQ(row.wanted, lastPathComponent(row.path)) << row.path;
  }
}

TEST(Path, parent) {
  for (const Row& row : {Row{"/a/b.mov", "/a"}, Row{"/a", "/"}, Row{"a", ""}, Row{"", ""}, Row{"/", "/"},
                         Row{"/a/b/", "/a"}, Row{"a/b", "a"}, Row{"/a//b", "/a"}, Row{"//a", "/"}}) {
    EXPECT_EQ(row.wanted, deletingLastPathComponent(row.path)) << row.path;
  }
}

TEST(Path, extension) {
  for (const Row& row :
       {Row{"/a/b.tar.gz", "gz"}, Row{"b", ""}, Row{".profile", ""}, Row{"/a.d/b", ""}, Row{"b.", ""}, Row{"b.c d", ""},
        Row{"..", ""}, Row{".a.b", "b"}, Row{"a.b/", "b"}, Row{"a b.mov", "mov"}, Row{"", ""}}) {
    EXPECT_EQ(row.wanted, pathExtension(row.path)) << row.path;
  }
}

TEST(Path, withoutExtension) {
  for (const Row& row : {Row{"/a/b.mov", "/a/b"}, Row{"/a/b.mov/", "/a/b"}, Row{"/a.d/b", "/a.d/b"}, Row{"/", "/"},
                         Row{"b.", "b."}, Row{".profile", ".profile"}, Row{"a.b.c", "a.b"}, Row{"", ""}}) {
    EXPECT_EQ(row.wanted, deletingPathExtension(row.path)) << row.path;
  }
}

TEST(Path, appending) {
  EXPECT_EQ("/a/b.jpg", appendingPathExtension("/a/b", "jpg"));
  EXPECT_EQ("/a/b.mov.jpg", appendingPathExtension("/a/b.mov/", "jpg"));
  EXPECT_EQ("", appendingPathExtension("", "jpg"));
  EXPECT_EQ("/a/b", appendingPathComponent("/a", "b"));
  EXPECT_EQ("/a/b", appendingPathComponent("/a//", "//b"));
  EXPECT_EQ("/b", appendingPathComponent("/", "b"));
  EXPECT_EQ("b", appendingPathComponent("", "b"));
  EXPECT_EQ("/a", appendingPathComponent("/a/", ""));
}

TEST(Path, tildeIsTheHomeFolder) {
  EXPECT_TRUE(inChild([] {
    ::setenv("HOME", "/home/somebody/", 1);
    EXPECT_EQ("/home/somebody", homeFolder());
    EXPECT_EQ("/home/somebody", expandingTilde("~"));
    EXPECT_EQ("/home/somebody", expandingTilde("~/"));
    EXPECT_EQ("/home/somebody/a b", expandingTilde("~/a b/"));
    EXPECT_EQ("/home/somebody/a", expandingTilde("~//a"));
    EXPECT_EQ("/a/~", expandingTilde("/a/~"));
    EXPECT_EQ("~nobody-of-this-name/a", expandingTilde("~nobody-of-this-name/a"));
    EXPECT_EQ("/a/", expandingTilde("/a/"));
    EXPECT_EQ("", expandingTilde(""));
    const passwd* root = ::getpwuid(0);
    ASSERT_TRUE(root);
    EXPECT_EQ(appendingPathComponent(root->pw_dir, "x"), expandingTilde("~" + std::string(root->pw_name) + "/x"));
  }));
}

TEST(Path, homeComesFromThePasswordDatabaseWithoutTheVariable) {
  EXPECT_TRUE(inChild([] {
    const passwd* entry = ::getpwuid(::getuid());
    ASSERT_TRUE(entry);
    ::setenv("HOME", "", 1);
    EXPECT_EQ(entry->pw_dir, homeFolder());
    ::unsetenv("HOME");
    EXPECT_EQ(entry->pw_dir, homeFolder());
    EXPECT_EQ(entry->pw_dir, homeFolderOfRecord());
    EXPECT_EQ(entry->pw_name, loginName());
  }));
}

TEST(Path, standardized) {
  for (const Row& row : {Row{"/a//b/./c/", "/a/b/c"}, Row{"/a/../b", "/b"}, Row{"/../..", "/"}, Row{"a/../b", "a/../b"},
                         Row{"./a", "a"}, Row{".", "."}, Row{"", ""}, Row{"/", "/"}}) {
    EXPECT_EQ(row.wanted, standardizedPath(row.path)) << row.path;
  }
}

TEST(Path, upwardsAfterALinkCountsFromItsTarget) {
  const ScratchFolder scratch;
  const std::string root = std::filesystem::canonical(scratch.path()).string();
  scratch.makeFolder("far/inner");
  std::filesystem::create_symlink(root + "/far/inner", root + "/link");
  EXPECT_EQ(root + "/far/x", standardizedPath(root + "/link/../x"));
  EXPECT_EQ(root + "/link/x", standardizedPath(root + "/link/./x"));
  EXPECT_EQ(root + "/far/x", canonicalPath(root + "/link/../x"));
  EXPECT_EQ(root + "/far", canonicalPath(root + "/link/.."));
  EXPECT_EQ(root + "/link", canonicalPath(root + "/link/"));
  EXPECT_EQ("", canonicalPath(root + "/missing/x"));
}

TEST(Path, relativePathsCountFromTheCurrentFolder) {
  const ScratchFolder scratch;
  const std::string root = std::filesystem::canonical(scratch.path()).string();
  EXPECT_TRUE(inChild([&] {
    ASSERT_EQ(0, ::chdir(root.c_str()));
    EXPECT_EQ(root + "/a", absolutePath("a"));
    EXPECT_EQ("/a", absolutePath("/a"));
    EXPECT_EQ(root + "/a", canonicalPath("a"));
    EXPECT_EQ("file://" + root + "/a%20b", fileUrlText("a b"));
  }));
}

TEST(Path, urlTextEscapesEverythingThatIsNotAPathCharacter) {
  EXPECT_EQ("file:///a/%C3%A9%20%25%3F%23%3B%0A.mov", fileUrlText("/a/é %?#;\n.mov"));
  EXPECT_EQ("file:///a-b_c.d~e/", fileUrlText("/a-b_c.d~e/"));
}

}  // namespace
}  // namespace vistrelle::platform
