#pragma once

#include <chrono>
#include <optional>
#include <string_view>

namespace vistrelle::platform {

/// The controlling terminal of this process, for an answer of its user. Nothing here stops the process when it is in
/// the background: such a process neither reads nor changes the terminal.
class Terminal {
 public:
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  bool isOpen() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }
  bool isForeground() const;
  /// Single keys instead of lines from now on, until the end of the object. Does not drop what was typed already.
  void readKeys();
  /// The next byte: an empty optional when none is there, -1 at the end of input (in line mode) or on a hangup.
  std::optional<int> readByte();
  /// Whether something can be read within the given time.
  bool waitReadable(std::chrono::milliseconds atMost) const;
  void write(std::string_view text) const;

 private:
  struct Mode;
  int descriptor_;
  Mode* former_ = nullptr;
};

}  // namespace vistrelle::platform
