#include "vistrelle/platform/preferences/user_defaults.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/preferences/property_list.h"

namespace vistrelle::platform {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::RecordingLog;
using testing::ScratchFolder;

std::string plist(const Value& value) {
  return writeBinaryPropertyList(value).bytes.value();
}

TEST(UserDefaults, NothingIsStoredAtFirstAndReadingMakesNothing) {
  const ScratchFolder scratch;
  const auto defaults = fileDefaults(scratch.file("deep/folder/a.plist"));
  EXPECT_TRUE(defaults->available());
  EXPECT_FALSE(defaults->object("key"));
  defaults->remove("key");
  EXPECT_FALSE(defaults->hasUnappliedChanges());
  EXPECT_FALSE(fs::exists(scratch.file("deep/folder/a.plist")));
}

TEST(UserDefaults, ValuesComeBackInThisAndInALaterProcess) {
  const ScratchFolder scratch;
  const auto path = scratch.file("deep/folder/a.plist");
  const Value value = Dictionary{{"date", Date(std::chrono::microseconds(1'234'567))},
                                 {"data", Data{std::byte{7}}},
                                 {"number", std::int64_t{1} << 62},
                                 {"list", List{1, List{"é"}, Dictionary{{"k", 0.5}}}}};
  const auto defaults = fileDefaults(path);
  defaults->set("value", value);
  EXPECT_EQ(defaults->object("value"), value);
  EXPECT_EQ(fileDefaults(path)->object("value"), value);
  EXPECT_EQ(readFile(path).substr(0, 8), "bplist00");
  defaults->remove("value");
  EXPECT_FALSE(defaults->object("value"));
  EXPECT_FALSE(fileDefaults(path)->object("value"));
}

TEST(UserDefaults, AnotherProcesssChangesAreSeen) {
  const ScratchFolder scratch;
  const auto path = scratch.file("a.plist");
  const auto mine = fileDefaults(path);
  const auto theirs = fileDefaults(path);
  for (int i = 0; i < 50; ++i) {
    theirs->set("n", i);
    EXPECT_EQ(mine->object("n"), Value(i));
  }
  fs::remove(path);
  EXPECT_FALSE(mine->object("n"));
}

TEST(UserDefaults, FileOfAnotherProgramIsReadAndItsOtherKeysStay) {
  const ScratchFolder scratch;
  const auto path = scratch.write("a.plist",
                                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>id</key>"
                                  "<string>me</string></dict></plist>");
  const auto defaults = fileDefaults(path);
  EXPECT_EQ(defaults->object("id"), Value("me"));
  defaults->set("more", 1);
  EXPECT_EQ(fileDefaults(path)->object("id"), Value("me"));
}

/// A folder in memory where there is one: thousands of flushes to a disk would test the disk.
class QuickScratch {
 public:
  QuickScratch() {
    const char* former = std::getenv("TMPDIR");
    const std::string kept = former ? former : "";
    if (::access("/dev/shm", W_OK) == 0) ::setenv("TMPDIR", "/dev/shm", 1);
    folder_.emplace();
    former ? ::setenv("TMPDIR", kept.c_str(), 1) : ::unsetenv("TMPDIR");
  }
  std::string file(const std::string& name) const { return folder_->file(name); }

 private:
  std::optional<ScratchFolder> folder_;
};

TEST(UserDefaults, TwoProcessesThatWriteDifferentKeysLoseNothing) {
  const QuickScratch scratch;
  const auto path = scratch.file("a.plist");
  constexpr int kWrites = 1000;
  constexpr int kKeys = 10;
  std::vector<pid_t> children;
  for (const std::string name : {"left", "right"}) {
    const pid_t child = ::fork();
    if (child == 0) {
      const auto defaults = fileDefaults(path);
      for (int i = 0; i < kWrites; ++i) defaults->set(name + std::to_string(i % kKeys), i);
      ::_exit(defaults->hasUnappliedChanges() ? 1 : 0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  const auto defaults = fileDefaults(path);
  for (int i = 0; i < kKeys; ++i) {
    EXPECT_EQ(defaults->object("left" + std::to_string(i)), Value(kWrites - kKeys + i));
    EXPECT_EQ(defaults->object("right" + std::to_string(i)), Value(kWrites - kKeys + i));
  }
}

TEST(UserDefaults, ThreadsMayShareThem) {
  const ScratchFolder scratch;
  const auto defaults = fileDefaults(scratch.file("a.plist"));
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&defaults, t] {
      for (int i = 0; i < 20; ++i) {
        defaults->set("k" + std::to_string(t), i);
        defaults->object("k0");
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (int t = 0; t < 4; ++t) EXPECT_EQ(defaults->object("k" + std::to_string(t)), Value(19));
}

TEST(UserDefaults, DamagedFileIsSetAsideAndNeverOverwritten) {
  const ScratchFolder scratch;
  const auto path = scratch.write("a.plist", "not a property list at all");
  const RecordingLog log;
  const auto defaults = fileDefaults(path);
  EXPECT_FALSE(defaults->object("key"));
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(readFile(path + ".damaged"), "not a property list at all");
  EXPECT_EQ(log.count("preferences         :-( damaged file set aside '" + path + "' -> '" + path +
                      ".damaged' (not a property list)"),
            1);
  scratch.write("a.plist", plist(List{1}));
  defaults->set("key", 1);
  EXPECT_EQ(readFile(path + ".damaged-2"), plist(List{1}));
  EXPECT_EQ(readFile(path + ".damaged"), "not a property list at all");
  EXPECT_EQ(fileDefaults(path)->object("key"), Value(1));
  EXPECT_EQ(log.count("preferences         :-( damaged file set aside '" + path + "' -> '" + path +
                      ".damaged-2' (not a dictionary)"),
            1);
}

TEST(UserDefaults, WhatIsNoFileIsSetAsideWithoutWaiting) {
  const ScratchFolder scratch;
  const auto path = scratch.file("a.plist");
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  const RecordingLog log;
  EXPECT_FALSE(fileDefaults(path)->object("key"));
  EXPECT_TRUE(fs::is_fifo(path + ".damaged"));
  scratch.write("sub/inside", "x");
  fs::rename(scratch.file("sub"), path);
  fileDefaults(path)->set("key", 1);
  EXPECT_EQ(readFile(path + ".damaged-2/inside"), "x");
  EXPECT_EQ(fileDefaults(path)->object("key"), Value(1));
  // Whoever made the lock's name a pipe does not stop the process either.
  fs::remove(path + ".lock");
  ASSERT_EQ(::mkfifo((path + ".lock").c_str(), 0600), 0);
  fileDefaults(path)->set("key", 2);
  EXPECT_EQ(fileDefaults(path)->object("key"), Value(2));
}

TEST(UserDefaults, UnreadableFileIsLeftAlone) {
  EXPECT_TRUE(testing::inChild([] {
    testing::becomeNobody();
    const ScratchFolder scratch;
    const auto path = scratch.write("a.plist", plist(Dictionary{{"key", 1}}));
    ::chmod(path.c_str(), 0);
    const RecordingLog log;
    const auto defaults = fileDefaults(path);
    EXPECT_FALSE(defaults->object("key"));
    EXPECT_FALSE(defaults->object("key"));
    EXPECT_EQ(log.count("preferences         :-( file cannot be read '" + path + "'"), 1);
    defaults->set("key", 2);
    EXPECT_TRUE(log.has("preferences         :-( '" + path + "' cannot be written: the present file cannot be read"));
    EXPECT_TRUE(defaults->hasUnappliedChanges());
    EXPECT_EQ(defaults->object("key"), Value(2));
    ::chmod(path.c_str(), 0600);
    EXPECT_EQ(fileDefaults(path)->object("key"), Value(1));
  }));
}

TEST(UserDefaults, ChangeThatCannotBeWrittenIsTriedAgainWithTheNext) {
  struct FullDisk : ForwardingFileManager {
    using ForwardingFileManager::ForwardingFileManager;
    FileResult writeByReplacing(const std::string& path, Bytes bytes) override {
      return full ? FileResult(ENOSPC, path) : ForwardingFileManager::writeByReplacing(path, bytes);
    }
    bool full = true;
  };
  const ScratchFolder scratch;
  const auto path = scratch.file("a.plist");
  const auto disk = std::make_shared<FullDisk>(fileManager().get());
  const Installed<FileManager> installed(fileManager(), disk);
  const RecordingLog log;
  const auto defaults = fileDefaults(path);
  defaults->set("first", 1);
  EXPECT_TRUE(log.hasContaining("cannot be written: No space left on device"));
  EXPECT_TRUE(defaults->hasUnappliedChanges());
  EXPECT_EQ(defaults->object("first"), Value(1));
  EXPECT_FALSE(fileDefaults(path)->object("first"));
  disk->full = false;
  defaults->set("second", 2);
  EXPECT_FALSE(defaults->hasUnappliedChanges());
  EXPECT_EQ(fileDefaults(path)->object("first"), Value(1));
  EXPECT_EQ(fileDefaults(path)->object("second"), Value(2));
}

void expectNotStored(UserDefaults& defaults, const std::string& path, const std::string& why) {
  const std::string old = readFile(path);
  const RecordingLog log;
  defaults.set("long", std::string(100'000, 'x'));
  EXPECT_TRUE(log.hasContaining("preferences         :-( '" + path + "' cannot be written: " + why))
      << log.lines().back();
  EXPECT_TRUE(defaults.hasUnappliedChanges());
  EXPECT_EQ(readFile(path), old);
  EXPECT_LE(std::distance(fs::directory_iterator(fs::path(path).parent_path()), {}), 2);  // the lock beside it
}

TEST(UserDefaults, OnAFullDiskTheOldFileStays) {
  if (!testing::canMount()) GTEST_SKIP() << "a mount of one's own is not possible here";
  const ScratchFolder scratch;
  EXPECT_TRUE(testing::inChild([&] {
    ASSERT_TRUE(testing::mountScratch(scratch.path().c_str(), "size=64k"));
    const auto defaults = fileDefaults(scratch.file("a.plist"));
    defaults->set("key", 1);
    expectNotStored(*defaults, scratch.file("a.plist"), "No space left on device");
  }));
}

TEST(UserDefaults, BeyondTheSizeLimitTheOldFileStaysAndTheProcessToo) {
  const ScratchFolder scratch;
  EXPECT_TRUE(testing::inChild([&] {
    const auto defaults = fileDefaults(scratch.file("a.plist"));
    defaults->set("key", 1);
    const rlimit limit{10'000, 10'000};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    expectNotStored(*defaults, scratch.file("a.plist"), "File too large");
  }));
}

TEST(UserDefaults, AFolderThatWasRemovedIsMadeAgain) {
  const ScratchFolder scratch;
  const auto path = scratch.file("config/a.plist");
  const auto defaults = fileDefaults(path);
  defaults->set("first", 1);
  fs::remove_all(scratch.file("config"));
  defaults->set("second", 2);
  EXPECT_FALSE(defaults->hasUnappliedChanges());
  EXPECT_EQ(fileDefaults(path)->object("second"), Value(2));
}

TEST(UserDefaults, ValueThatAPropertyListCannotHoldIsNotStored) {
  const ScratchFolder scratch;
  const RecordingLog log;
  const auto defaults = fileDefaults(scratch.file("a.plist"));
  defaults->set("key", Url{"http://a"});
  EXPECT_FALSE(defaults->object("key"));
  EXPECT_TRUE(log.has("preferences         :-( 'key' is not stored: property lists cannot contain a URL"));
}

TEST(UserDefaults, ValueThatCouldNotBeReadBackIsNotStoredAndCostsNothingElse) {
  const ScratchFolder scratch;
  const RecordingLog log;
  const auto path = scratch.file("a.plist");
  const auto defaults = fileDefaults(path);
  defaults->set("kept", 1);
  Value deep = 1;
  for (std::size_t i = 0; i < PropertyListLimits().depth; ++i) deep = Value(List{deep});
  const Value tooLong(std::string(PropertyListLimits().bytes, 'x'));
  for (const Value& value : {deep, tooLong, Value(Date::max())}) defaults->set("key", value);
  EXPECT_TRUE(log.has("preferences         :-( 'key' is not stored: the property list is nested too deeply"));
  EXPECT_TRUE(log.has("preferences         :-( 'key' is not stored: the property list is too long"));
  EXPECT_TRUE(log.hasContaining("'key' is not stored: binary property list: a date out of range"));
  EXPECT_FALSE(defaults->object("key"));
  EXPECT_FALSE(defaults->hasUnappliedChanges());
  defaults->set("later", 2);
  EXPECT_EQ(fileDefaults(path)->object("kept"), Value(1));
  EXPECT_EQ(fileDefaults(path)->object("later"), Value(2));
  EXPECT_FALSE(fs::exists(path + ".damaged"));
}

TEST(UserDefaults, LinkToTheFileStays) {
  const ScratchFolder scratch;
  const auto target = scratch.write("real/b.plist", plist(Dictionary{{"key", 1}}));
  fs::create_symlink(target, scratch.file("a.plist"));
  fileDefaults(scratch.file("a.plist"))->set("key", 2);
  EXPECT_TRUE(fs::is_symlink(scratch.file("a.plist")));
  EXPECT_EQ(fileDefaults(target)->object("key"), Value(2));
}

TEST(UserDefaults, NewFolderIsPrivate) {
  const ScratchFolder scratch;
  fileDefaults(scratch.file("folder/a.plist"))->set("key", 1);
  EXPECT_EQ(fs::status(scratch.file("folder")).permissions(), fs::perms::owner_all);
}

TEST(UserDefaults, WithoutAPlaceNothingIsAvailable) {
  const auto defaults = fileDefaults("");
  EXPECT_FALSE(defaults->available());
  defaults->set("key", 1);
  EXPECT_FALSE(defaults->object("key"));
}

TEST(UserDefaults, PathFollowsTheEnvironment) {
  EXPECT_TRUE(testing::inChild([] {
    const std::string program = program_invocation_short_name;
    ::setenv("HOME", "/home/somebody", 1);
    ::setenv("XDG_CONFIG_HOME", "/tmp/config", 1);
    EXPECT_EQ(defaultsPath(), "/tmp/config/vistrelle/" + program + ".plist");
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(defaultsPath(), "/home/somebody/.config/vistrelle/" + program + ".plist");
    ::unsetenv("XDG_CONFIG_HOME");
    EXPECT_EQ(defaultsPath(), "/home/somebody/.config/vistrelle/" + program + ".plist");
    ::setenv("HOME", "/", 1);
    EXPECT_EQ(defaultsPath(), "");
  }));
}

}  // namespace
}  // namespace vistrelle::platform
