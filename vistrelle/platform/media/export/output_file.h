#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "vistrelle/platform/files/file_place.h"
#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// A file that gets its name only when it is whole. Until then it has no name at all where the file system can do that
/// (even a killed process leaves nothing), else a hidden one in the same folder.
class OutputFile {
 public:
  /// Empty with an error text: the folder is missing or closed to us, or the path names something that is no regular
  /// file. Links are followed; a dangling one has its target made.
  static std::unique_ptr<OutputFile> create(const std::string& path, std::string* error);
  /// Removes what has not been put in place.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Open for reading and writing.
  int fd() const { return file_.get(); }
  /// Flushes to the disk and gives the file its name. A file that was there at the beginning is replaced and hands
  /// down its mode; one that has appeared since is an error.
  bool putInPlace(std::string* error);

 private:
  OutputFile() = default;
  int openTemporary();
  int nameTemporary();
  int takeName();

  FilePlace place_;
  std::string path_;
  UniqueFd file_;
  std::string temporary_;  // empty while the file has no name
  bool replaces_ = false;
  mode_t formerMode_ = 0;
};

}  // namespace vistrelle::platform
