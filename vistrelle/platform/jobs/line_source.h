#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// The lines of a file or pipe, read as far as they are wanted and without waiting. Line ends may be "\n" or "\r\n"; a
/// byte-order mark at the beginning is passed over; the last line needs no end.
class LineSource {
 public:
  /// No line is longer.
  static constexpr std::size_t kMaxLine = std::size_t{1} << 20;

  enum class Status {
    line,
    tooLong,  ///< a line was longer than kMaxLine; it was passed over
    wait,     ///< nothing there yet: poll descriptor() for input
    end,
    failed  ///< it cannot be read; see error()
  };

  explicit LineSource(UniqueFd file) : file_(std::move(file)) {}

  Status next(std::string* line);
  /// The number of the line that came last, from 1.
  std::uint64_t number() const { return number_; }
  int descriptor() const { return file_.get(); }
  /// An errno value.
  int error() const { return error_; }

  /// How many lines a regular file has; nothing for anything else. Before the first next().
  std::optional<std::uint64_t> countLines() const;

 private:
  bool take(std::string* line, bool* isTooLong);
  bool readMore(bool* hasMore);

  UniqueFd file_;
  std::string bytes_;
  std::size_t begin_ = 0;     // of what has not been taken
  std::size_t searched_ = 0;  // no line end before
  std::uint64_t number_ = 0;
  bool isSkipping_ = false;
  bool hasEnded_ = false;
  int error_ = 0;
};

}  // namespace vistrelle::platform
