#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vistrelle {

/// How far a batch is, in one line that changes on the terminal of standard error. Does nothing where that is none.
class Progress {
 public:
  using Clock = std::chrono::steady_clock;

  /// `total` is absent where nobody can tell beforehand.
  Progress(bool isShown, std::optional<std::uint64_t> total);

  void count(bool isSuccess);
  /// Jobs that were finished before; they say nothing about the speed.
  void countSkipped() { ++skipped_; }
  /// Draws the line when the last drawing is some time ago.
  void draw();
  /// Takes the line away, for other words to come, or for good.
  void clear();

  /// The line, without control characters, for `seconds` since the beginning and a terminal of so many columns.
  std::string text(double seconds, int columns) const;

 private:
  bool isShown_;
  bool isDrawn_ = false;
  std::optional<std::uint64_t> total_;
  std::uint64_t ended_ = 0;
  std::uint64_t failed_ = 0;
  std::uint64_t skipped_ = 0;
  Clock::time_point begin_;
  Clock::time_point last_;
};

}  // namespace vistrelle
