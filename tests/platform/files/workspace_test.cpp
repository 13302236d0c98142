#include "vistrelle/platform/workspace/workspace.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/scratch_folder.h"

namespace vistrelle::platform {
namespace {

namespace fs = std::filesystem;
using testing::inChild;
using testing::ScratchFolder;

/// Each test runs in a child: the desktop's libraries remember the environment that they began with.
class Desktop : public ::testing::Test {
 protected:
  /// No display, no message bus, and a home in the scratch folder.
  void isolate() const {
    ::clearenv();
    ::setenv("PATH", "/usr/bin:/bin", 1);
    ::setenv("HOME", scratch.file("home").c_str(), 1);
  }

  /// Makes a program the default for a kind of content; it writes its arguments to a file.
  void installProgram(const std::string& kind) const {
    scratch.write("home/.local/share/applications/recorder.desktop",
                  "[Desktop Entry]\nType=Application\nName=Recorder\nExec=" + scratch.file("record.sh") +
                      " %u\nMimeType=" + kind + ";\n");
    scratch.write("home/.config/mimeapps.list", "[Default Applications]\n" + kind + "=recorder.desktop\n");
    scratch.write("record.sh", "#!/bin/sh\nprintf '%s' \"$*\" > " + scratch.file("part") + "\nmv " +
                                   scratch.file("part") + " " + scratch.file("recorded") + "\n");
    fs::permissions(scratch.file("record.sh"), fs::perms(0755));
  }

  std::string recorded() const {
    for (int attempt = 0; attempt < 6000 && !fs::exists(scratch.file("recorded")); ++attempt) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    const std::string text = testing::readFile(scratch.file("recorded"));
    fs::remove(scratch.file("recorded"));
    return text;
  }

  std::string trash(const std::string& name) const { return scratch.file("home/.local/share/Trash/" + name); }

  ScratchFolder scratch;
  const std::string home = scratch.makeFolder("home");
};

TEST_F(Desktop, itemsGoToTheHomeTrash) {
  const std::string file = scratch.write("a b.mov", "content");
  scratch.write("tree/file", "x");
  EXPECT_TRUE(inChild([&] {
    isolate();
    EXPECT_TRUE(workspace().get()->recycle(scratch.path(), {"a b.mov", "tree"}));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_EQ("content", testing::readFile(trash("files/a b.mov")));
    EXPECT_EQ("x", testing::readFile(trash("files/tree/file")));
    const std::string info = testing::readFile(trash("info/a b.mov.trashinfo"));
    EXPECT_TRUE(info.starts_with("[Trash Info]\nPath=" + fs::canonical(scratch.path()).string() + "/a%20b.mov\n"))
        << info;
    EXPECT_NE(std::string::npos, info.find("DeletionDate="));
  }));
}

TEST_F(Desktop, equalNamesAreKeptApart) {
  EXPECT_TRUE(inChild([&] {
    isolate();
    for (const char* content : {"one", "two", "three"}) {
      scratch.write("a.mov", content);
      EXPECT_TRUE(workspace().get()->recycle(scratch.path(), {"a.mov"}));
    }
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(trash("files"))) ++count;
    EXPECT_EQ(3u, count);
    EXPECT_EQ("one", testing::readFile(trash("files/a.mov")));
  }));
}

TEST_F(Desktop, ofALinkTheLinkIsRecycled) {
  scratch.write("kept/file", "x");
  fs::create_symlink("kept", scratch.file("link"));
  scratch.makeFolder("far/inner");
  scratch.write("far/a", "far");
  scratch.write("a", "near");
  fs::create_symlink("far/inner", scratch.file("inner"));
  EXPECT_TRUE(inChild([&] {
    isolate();
    EXPECT_TRUE(workspace().get()->recycle(scratch.path(), {"link"}));
    EXPECT_TRUE(fs::is_symlink(trash("files/link")));
    EXPECT_EQ("x", testing::readFile(scratch.file("kept/file")));
    // Up from a link's target, as for the kernel, not from the link.
    EXPECT_TRUE(workspace().get()->recycle(scratch.file("inner/.."), {"a"}));
    EXPECT_EQ("far", testing::readFile(trash("files/a")));
    EXPECT_EQ("near", testing::readFile(scratch.file("a")));
  }));
}

TEST_F(Desktop, missingItemsAreNotRecycled) {
  const std::string file = scratch.write("a", "");
  EXPECT_TRUE(inChild([&] {
    isolate();
    EXPECT_FALSE(workspace().get()->recycle(scratch.path(), {"missing", "a"}));
    EXPECT_FALSE(fs::exists(file));  // the others go all the same
    EXPECT_FALSE(workspace().get()->recycle(scratch.file("missing"), {"a"}));
    EXPECT_TRUE(workspace().get()->recycle(scratch.path(), {}));
  }));
}

TEST_F(Desktop, itemsOfAnotherVolumeGoToItsOwnTrash) {
  if (!testing::canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  const std::string volume = scratch.makeFolder("volume");
  const std::string image = scratch.file("image");
  if (std::system(("truncate -s 8M '" + image + "' && mkfs.ext4 -q '" + image + "' 2>/dev/null").c_str()) != 0) {
    GTEST_SKIP() << "mkfs.ext4 is not here";
  }
  EXPECT_TRUE(inChild([&] {
    const std::string probe = scratch.makeFolder("probe");
    ASSERT_TRUE(testing::mountScratch(probe.c_str(), "size=64k"));  // mounts of our own from here on
    if (std::system(("mount -o loop '" + image + "' '" + volume + "'").c_str()) != 0) return;
    scratch.write("mounted", "");
    isolate();
    scratch.write("volume/a.mov", "content");
    EXPECT_TRUE(workspace().get()->recycle(volume, {"a.mov"}));
    EXPECT_FALSE(fs::exists(volume + "/a.mov"));
    EXPECT_EQ("content", testing::readFile(volume + "/.Trash-" + std::to_string(::getuid()) + "/files/a.mov"));
    EXPECT_FALSE(fs::exists(trash("files/a.mov")));
  }));
  if (!fs::exists(scratch.file("mounted"))) GTEST_SKIP() << "a loop mount is not possible here";
}

TEST_F(Desktop, whereNoTrashIsPossibleNothingGoes) {
  if (!testing::canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  const std::string volume = scratch.makeFolder("volume");
  EXPECT_TRUE(inChild([&] {
    ASSERT_TRUE(testing::mountScratch(volume.c_str(), "size=64k"));
    isolate();
    scratch.write("volume/a.mov", "content");
    EXPECT_FALSE(workspace().get()->recycle(volume, {"a.mov"}));
    EXPECT_EQ("content", testing::readFile(volume + "/a.mov"));
  }));
}

TEST_F(Desktop, filesOpenWithTheDefaultProgram) {
  installProgram("video/quicktime");
  const std::string file = scratch.write("a b.mov", std::string("\0\0\0\x14"
                                                                "ftypqt  ",
                                                                12));
  EXPECT_TRUE(inChild([&] {
    isolate();
    EXPECT_TRUE(workspace().get()->openFile(file, ""));
    EXPECT_EQ(file, recorded());
    EXPECT_TRUE(workspace().get()->openUrl(Url{"file://" + scratch.path() + "/a%20b.mov"}));
    EXPECT_EQ(file, recorded());
    EXPECT_FALSE(workspace().get()->openFile(file, "Some Player"));
  }));
}

TEST_F(Desktop, foldersAndPagesOpenWithTheirs) {
  EXPECT_TRUE(inChild([&] {
    isolate();
    installProgram("inode/directory");
    EXPECT_TRUE(workspace().get()->openUrl(Url{"file://" + home + "/"}));
    EXPECT_TRUE(recorded().starts_with(home));
  }));
  EXPECT_TRUE(inChild([&] {
    isolate();
    installProgram("x-scheme-handler/https");
    EXPECT_TRUE(workspace().get()->openUrl(Url{"https://example.org/a"}));
    EXPECT_EQ("https://example.org/a", recorded());
  }));
}

TEST_F(Desktop, withoutAProgramOrAnEnvironmentNothingOpens) {
  const std::string file = scratch.write("a.strange", "");
  EXPECT_TRUE(inChild([&] {
    ::clearenv();
    ::setenv("XDG_DATA_DIRS", "/nowhere", 1);
    EXPECT_FALSE(workspace().get()->openUrl(Url{"strange-scheme://a"}));
    EXPECT_FALSE(workspace().get()->openUrl(Url{"not a url"}));
    EXPECT_FALSE(workspace().get()->openUrl(Url{""}));
    EXPECT_FALSE(workspace().get()->openFile(file, ""));
    EXPECT_FALSE(workspace().get()->displayIsAccelerated());
    workspace().get()->noteFileSystemChanged(file);
  }));
}

TEST_F(Desktop, aWrapperPassesEverythingOn) {
  class Recorder : public Workspace {
   public:
    void noteFileSystemChanged(const std::string& path) override { calls += "note " + path; }
    bool recycle(const std::string& folder, const std::vector<std::string>& names) override {
      calls += " recycle " + folder + names.at(0);
      return true;
    }
    bool openFile(const std::string& path, const std::string& application) override {
      calls += " open " + path + application;
      return true;
    }
    bool openUrl(const Url& url) override {
      calls += " url " + url.text;
      return true;
    }
    bool displayIsAccelerated() override { return true; }
    std::string calls;
  };
  const auto recorder = std::make_shared<Recorder>();
  ForwardingWorkspace forwarding(recorder);
  forwarding.noteFileSystemChanged("a");
  EXPECT_TRUE(forwarding.recycle("b", {"c"}));
  EXPECT_TRUE(forwarding.openFile("d", "e"));
  EXPECT_TRUE(forwarding.openUrl(Url{"f"}));
  EXPECT_TRUE(forwarding.displayIsAccelerated());
  EXPECT_EQ("note a recycle bc open de url f", recorder->calls);
}

}  // namespace
}  // namespace vistrelle::platform
