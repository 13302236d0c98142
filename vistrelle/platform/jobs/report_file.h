#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// Where lines go one by one, each whole: a reader, and whoever kills this process, finds no half a line, but perhaps
/// at the very end of a full disk.
class ReportFile {
 public:
  /// Which lines of an older report are to stay.
  using Keep = std::function<bool(const std::string& line)>;

  static std::unique_ptr<ReportFile> standardOutput();
  /// A new file; nothing with an error text when something is there already or it cannot be made.
  static std::unique_ptr<ReportFile> make(const std::string& path, std::string* error);
  /// Goes on with the file, which is made when it is not there: lines that `keep` refuses and a last line without an
  /// end are taken out first, by another file that takes its place. Nothing when another process writes to it.
  static std::unique_ptr<ReportFile> goOn(const std::string& path, const Keep& keep, std::string* error);

  /// Adds a line end. False, with errno set, when the line could not be written whole.
  bool append(std::string_view line);
  bool isTerminal() const;

 private:
  explicit ReportFile(UniqueFd file) : file_(std::move(file)) {}
  UniqueFd file_;
  UniqueFd former_;  // its lock is held on to
};

}  // namespace vistrelle::platform
