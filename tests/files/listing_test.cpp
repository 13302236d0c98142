#include "vistrelle/files/listing.h"

#include <algorithm>
#include <set>

#include "tests/files/files_fixture.h"

namespace vistrelle {
namespace {

using namespace testing;
using Set = std::set<std::string>;

Set asSet(const PathList& list) {
  return list ? Set(list->begin(), list->end()) : Set();
}

using Listing = FilesTest;

TEST_F(Listing, oneLevelInTheDirectorysOrder) {
  for (const char* name : {"people/bob/z", "people/bob/.hidden", "people/bob/a", "people/bob/sub/inner"}) {
    scratch.write(name, "");
  }
  std::vector<std::string> wanted;
  for (const auto& entry : fs::directory_iterator(home())) wanted.push_back(entry.path().string());
  ASSERT_EQ(4u, wanted.size());
  EXPECT_EQ(wanted, lsCocoa(home()));
  EXPECT_EQ(wanted, lsCocoa("~"));
  EXPECT_EQ(wanted, lsCocoa(home() + "/"));
}

TEST_F(Listing, anEmptyFolderGivesNothing) {
  EXPECT_FALSE(lsCocoa(scratch.makeFolder("empty")));
  EXPECT_FALSE(lsCocoa(scratch.file("missing")));
  EXPECT_FALSE(lsCocoa(scratch.write("file", "")));
  EXPECT_FALSE(lsCocoa(std::nullopt));
}

TEST_F(Listing, logLines) {
  scratch.write("tree/a.mov", "");
  const std::string tree = scratch.file("tree");
  const std::string list = platform::description(std::vector<std::string>{tree + "/a.mov"});
  RecordingLog log(true);
  lsCocoa(tree);
  EXPECT_EQ((std::vector<std::string>{"lsCocoa             - begin : " + tree,
                                      "lsCocoa             - end : 1 items : " + list}),
            log.lines());
  log.clear();
  lsGrepCocoa(tree, "MOV");
  EXPECT_EQ((std::vector<std::string>{"lsCocoa             - begin : " + tree,
                                      "lsCocoa             - end : 1 items : " + list, "lsGrepCocoa a       : " + list,
                                      "lsGrepCocoa extStr  :'MOV' ? ext=mov file=" + tree + "/a.mov",
                                      "lsGrepCocoa return  : " + list}),
            log.lines());
  log.clear();
  lsGrepCocoa(scratch.file("missing"), "mov");
  EXPECT_TRUE(log.has("lsGrepCocoa a       : (null)"));
  log.clear();
  lsGrepCocoa(tree, "avi");
  EXPECT_FALSE(log.hasContaining("lsGrepCocoa return"));
  log.clear();
  findCocoa(tree, "A.M", true);
  EXPECT_EQ("findCocoa           - folder: " + tree + " grep:a.m isCaseInsensitive:1", log.lines().front());
  EXPECT_TRUE(log.has("findCocoa           - end : 1 items"));
  EXPECT_TRUE(log.has("findCocoa           - end : 1 items : " + list));
}

TEST_F(Listing, byExtensionIgnoringCase) {
  const std::string tree = scratch.file("tree");
  for (const char* name : {"clip.mov", "CLIP.MOV", "clip.mo", "mov", "folder.Mov/inner.mov", ".mov"}) {
    scratch.write(std::string("tree/") + name, "");
  }
  EXPECT_EQ((Set{tree + "/clip.mov", tree + "/CLIP.MOV", tree + "/folder.Mov"}), asSet(lsGrepCocoa(tree, "MOV")));
  EXPECT_EQ((Set{tree + "/mov", tree + "/.mov"}), asSet(lsGrepCocoa(tree, "")));
  EXPECT_EQ((Set{tree + "/mov", tree + "/.mov"}), asSet(lsGrepCocoa(tree, std::nullopt)));
  EXPECT_FALSE(lsGrepCocoa(tree, "avi"));
  EXPECT_FALSE(lsGrepCocoa(std::nullopt, "mov"));
  EXPECT_FALSE(lsGrepCocoa(scratch.file("missing"), "mov"));
}

TEST_F(Listing, findLooksAtTheWholePath) {
  const std::string tree = scratch.file("tree");
  scratch.write("tree/2015/a.mov", "");
  scratch.write("tree/2015/deep/er/b.txt", "");
  scratch.write("tree/2016/in2015.mov", "");
  scratch.write("tree/2016/c.mov", "");
  EXPECT_EQ((Set{tree + "/2015/a.mov", tree + "/2015/deep/er/b.txt", tree + "/2016/in2015.mov"}),
            asSet(findCocoa(tree, "2015", false)));
  EXPECT_FALSE(findCocoa(tree, "A.MOV", false));
  EXPECT_EQ(Set{tree + "/2015/a.mov"}, asSet(findCocoa(tree, "A.MOV", true)));
  // The folder that is searched is part of every path.
  EXPECT_EQ(4u, asSet(findCocoa(tree, "tree", false)).size());
}

TEST_F(Listing, findOfNothing) {
  scratch.write("tree/a", "");
  EXPECT_FALSE(findCocoa(scratch.file("tree"), "", false));
  EXPECT_FALSE(findCocoa(scratch.file("tree"), std::nullopt, true));
  EXPECT_FALSE(findCocoa(std::nullopt, "a", false));
  RecordingLog log;
  EXPECT_FALSE(findCocoa(scratch.file("missing"), "a", false));
  EXPECT_EQ(std::vector<std::string>{"findCocoa           - end : 0 items"}, log.lines());
}

TEST_F(Listing, findGoesBreadthFirst) {
  scratch.write("tree/x/deep/x1", "");
  scratch.write("tree/x/x2", "");
  scratch.write("tree/x3", "");
  const auto found = findCocoa(scratch.file("tree"), "x", false);
  ASSERT_TRUE(found);
  std::vector<std::string> names;
  for (const std::string& path : *found) names.push_back(fs::path(path).filename());
  EXPECT_EQ((std::vector<std::string>{"x3", "x2", "x1"}), names);
}

TEST_F(Listing, findJudgesFoldersByTheirPathsOnceTheListIsLong) {
  const std::string tree = scratch.file("tree");
  for (int number = 0; number < 250; ++number) scratch.write("tree/wanted" + std::to_string(number) + "/file", "");
  const auto found = findCocoa(tree, "wanted", false);
  ASSERT_TRUE(found);
  EXPECT_EQ(250u, found->size());
  EXPECT_TRUE(
      std::all_of(found->begin(), found->end(), [](const std::string& path) { return fs::is_directory(path); }));
}

TEST_F(Listing, findOpensFoldersAgainWhenTheListHasShrunk) {
  // 199 folders: each is replaced by its one file, so that the list never reaches its bound.
  for (int number = 0; number < 199; ++number) scratch.write("tree/wanted" + std::to_string(number) + "/file", "");
  auto found = findCocoa(scratch.file("tree"), "wanted", false);
  ASSERT_EQ(199u, found->size());
  EXPECT_TRUE(
      std::all_of(found->begin(), found->end(), [](const std::string& path) { return path.ends_with("/file"); }));
  // 250 of which none matches: they leave the list one by one, and from 199 on they are opened.
  for (int number = 0; number < 250; ++number) scratch.write("other/" + std::to_string(number) + "/file", "");
  found = findCocoa(scratch.file("other"), "file", false);
  ASSERT_TRUE(found);
  EXPECT_EQ(199u, found->size());
}

TEST_F(Listing, findJudgesLinksToFoldersByTheirPaths) {
  scratch.write("tree/a/wanted", "");
  fs::create_symlink(".", scratch.file("tree/loop"));
  fs::create_symlink("a", scratch.file("tree/wanted-link"));
  EXPECT_EQ((Set{scratch.file("tree/a/wanted"), scratch.file("tree/wanted-link")}),
            asSet(findCocoa(scratch.file("tree"), "wanted", false)));
}

TEST_F(Listing, findInAVeryLongFolder) {
  scratch.makeFolder("many");
  for (int number = 0; number < 20'000; ++number) scratch.write("many/" + std::to_string(number), "");
  EXPECT_EQ(1u, asSet(findCocoa(scratch.file("many"), "12345", false)).size());
}

}  // namespace
}  // namespace vistrelle
