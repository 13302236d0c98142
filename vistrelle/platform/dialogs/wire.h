#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "vistrelle/platform/dialogs/alert_content.h"

/// What this process and the helper that shows an alert say to each other over a stream socket.
/// A message is its length (4 bytes, host order) and texts, each with its length (4 bytes) before it.
/// To the helper goes one message, the content. From it come
///   "shown"                      the window is on the screen
///   "tick", "0" or "1"           the checkbox was clicked
///   "answer", position, field    a button was clicked, Escape pressed or the window closed
/// Closing the socket takes the window away.
namespace vistrelle::platform::wire {

using Texts = std::vector<std::string>;

inline constexpr const char* kShown = "shown";
inline constexpr const char* kTick = "tick";
inline constexpr const char* kAnswer = "answer";

/// Longest message that is believed; anything longer is a fault of the other side.
inline constexpr std::size_t kMaximumSize = std::size_t{1} << 26;

std::string encode(const Texts& texts);

/// Cuts messages out of a stream of bytes.
class Decoder {
 public:
  void add(std::string_view bytes) { pending_.append(bytes); }
  /// The next whole message; nothing while it is incomplete.
  std::optional<Texts> next();
  /// The stream made no sense; nothing more comes out of it.
  bool failed() const { return failed_; }

 private:
  std::string pending_;
  bool failed_ = false;
};

Texts contentToTexts(const AlertContent& content);
/// Nothing when the texts are not a content.
std::optional<AlertContent> contentFromTexts(const Texts& texts);

}  // namespace vistrelle::platform::wire
