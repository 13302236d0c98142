#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// A folder that belongs to one piece of work in one process: locked while it lives, removed with all it holds at the
/// end. What a killed process left under the same name is taken over, emptied.
class PrivateFolder {
 public:
  /// Makes the folder at `path`, for this user alone; the folder above it must be there. Nothing with an errno value:
  /// EWOULDBLOCK when another process has it, EEXIST when something is there that is no such folder of this user.
  static std::unique_ptr<PrivateFolder> make(const std::string& path, int* error);
  ~PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  /// The folder within, empty at first, with the permissions that a new folder of this process has. May be moved away.
  std::string content() const { return path_ + "/pictures"; }
  /// Waits until the files of the content, and their names, are on the disk; an errno value, 0 on success. File systems
  /// that know no flushing have none to fail.
  int flushContent() const;

  /// Removes what a killed process left at `path`, when it did leave something and nobody uses it. One that was killed
  /// a moment ago may still be on its way out: so long is waited for it.
  static void removeRest(const std::string& path, std::chrono::milliseconds patience);

 private:
  PrivateFolder(std::string path, UniqueFd lock) : path_(std::move(path)), lock_(std::move(lock)) {}
  std::string path_;
  UniqueFd lock_;
};

}  // namespace vistrelle::platform
