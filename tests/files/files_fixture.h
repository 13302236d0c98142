#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/workspace/workspace.h"
#include "vistrelle/system/tmp_folder.h"

namespace vistrelle::testing {

namespace fs = std::filesystem;
using platform::OptionalText;

/// A desktop that only writes down what it is told.
class RecordingWorkspace : public platform::Workspace {
 public:
  void noteFileSystemChanged(const std::string& path) override { noted.push_back(path); }
  bool recycle(const std::string& folder, const std::vector<std::string>& names) override {
    for (const std::string& name : names) recycled.push_back(folder + " " + name);
    return answer;
  }
  bool openFile(const std::string& path, const std::string& application) override {
    openedFiles.push_back(path + " with '" + application + "'");
    return answer;
  }
  bool openUrl(const platform::Url& url) override {
    openedUrls.push_back(url.text);
    return answer;
  }
  bool displayIsAccelerated() override { return answer; }

  std::vector<std::string> noted;
  std::vector<std::string> recycled;
  std::vector<std::string> openedFiles;
  std::vector<std::string> openedUrls;
  bool answer = true;
};

/// A scratch folder, a home inside it, a temporary folder of our own, and a desktop that nobody sees.
class FilesTest : public ::testing::Test {
 protected:
  FilesTest() : desktop(std::make_shared<RecordingWorkspace>()), installed_(platform::workspace(), desktop) {
    const char* home = ::getenv("HOME");
    formerHome_ = home ? home : "";
    ::setenv("HOME", scratch.makeFolder("people/bob").c_str(), 1);
    tmpFolderSet(scratch.file("private-tmp"));
  }
  ~FilesTest() override {
    ::setenv("HOME", formerHome_.c_str(), 1);
    tmpFolderSet("");
  }

  std::string home() const { return scratch.file("people/bob"); }
  static bool exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

  ScratchFolder scratch{ScratchFolder::Place::memory};
  std::shared_ptr<RecordingWorkspace> desktop;

 private:
  platform::Installed<platform::Workspace> installed_;
  std::string formerHome_;
};

/// A file manager whose named operations fail.
class FailingFileManager : public platform::ForwardingFileManager {
 public:
  FailingFileManager() : ForwardingFileManager(platform::fileManager().get()) {}
  platform::FileResult remove(const std::string& path) override {
    return failRemove ? platform::FileResult(EIO, path) : ForwardingFileManager::remove(path);
  }
  platform::FileResult move(const std::string& source, const std::string& destination) override {
    return failMove ? platform::FileResult(EIO, destination) : ForwardingFileManager::move(source, destination);
  }
  platform::FileResult copy(const std::string& source, const std::string& destination) override {
    return failCopy ? platform::FileResult(EIO, destination) : ForwardingFileManager::copy(source, destination);
  }
  platform::FileResult makeFolder(const std::string& path, std::optional<std::uint32_t> permissions) override {
    const bool fails = permissions ? failFoldersWithPermissions : failFoldersWithout;
    return fails ? platform::FileResult(EIO, path) : ForwardingFileManager::makeFolder(path, permissions);
  }
  platform::FileResult setPermissions(const std::string& path, std::uint32_t permissions) override {
    return failPermissions ? platform::FileResult(EIO, path) : ForwardingFileManager::setPermissions(path, permissions);
  }
  platform::FileResult makeSymbolicLink(const std::string& target, const std::string& link) override {
    return failLinks ? platform::FileResult(EIO, link) : ForwardingFileManager::makeSymbolicLink(target, link);
  }
  platform::VolumeAnswer volumeAttributes(const std::string& path) override {
    if (failVolume) return {std::nullopt, platform::FileResult(EIO, path)};
    auto answer = ForwardingFileManager::volumeAttributes(path);
    if (answer.attributes && freeBytes) answer.attributes->free = *freeBytes;
    return answer;
  }

  bool failRemove = false;
  bool failMove = false;
  bool failCopy = false;
  bool failFoldersWithPermissions = false;
  bool failFoldersWithout = false;
  bool failPermissions = false;
  bool failLinks = false;
  bool failVolume = false;
  std::optional<std::uint64_t> freeBytes;
};

/// Writes down what would be removed and removes nothing.
class HarmlessFileManager : public platform::ForwardingFileManager {
 public:
  HarmlessFileManager() : ForwardingFileManager(platform::fileManager().get()) {}
  platform::FileResult remove(const std::string& path) override {
    removed.push_back(path);
    return platform::FileResult(EPERM, path);
  }
  std::vector<std::string> removed;
};

struct WithoutHarm {
  std::shared_ptr<HarmlessFileManager> files = std::make_shared<HarmlessFileManager>();
  platform::Installed<platform::FileManager> installed{platform::fileManager(), files};
};

/// Installs a failing file manager while it lives.
struct WithFailures {
  std::shared_ptr<FailingFileManager> files = std::make_shared<FailingFileManager>();
  platform::Installed<platform::FileManager> installed{platform::fileManager(), files};
};

}  // namespace vistrelle::testing
