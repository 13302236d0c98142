#pragma once

#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// No message is longer.
constexpr std::size_t kMaxMessageBytes = 64 * 1024;

/// One message: a kind, a body of fixed size and sometimes a tail of bytes; one descriptor may come along.
class Message {
 public:
  Message() = default;
  explicit Message(std::uint32_t kind) { append(&kind, sizeof kind); }
  template <typename Body>
  Message(std::uint32_t kind, const Body& body, std::string_view tail = {}) : Message(kind) {
    static_assert(std::is_trivially_copyable_v<Body>);
    append(&body, sizeof body);
    append(tail.data(), tail.size());
  }

  /// 0 for an empty message.
  std::uint32_t kind() const;
  /// Takes the body out. False when the length is not exactly the body's; with `tail` more may follow.
  template <typename Body>
  bool read(Body* body, std::string_view* tail = nullptr) const {
    static_assert(std::is_trivially_copyable_v<Body>);
    const std::size_t needed = sizeof(std::uint32_t) + sizeof(Body);
    if (bytes_.size() < needed || (tail == nullptr && bytes_.size() != needed)) return false;
    std::memcpy(body, bytes_.data() + sizeof(std::uint32_t), sizeof(Body));
    if (tail != nullptr) *tail = {bytes_.data() + needed, bytes_.size() - needed};
    return true;
  }
  std::span<const char> bytes() const { return bytes_; }
  UniqueFd takeDescriptor() { return std::exchange(descriptor_, UniqueFd()); }

 private:
  friend class Channel;
  void append(const void* data, std::size_t size);
  std::vector<char> bytes_;
  UniqueFd descriptor_;
};

/// One end of a pair of connected sockets that keep messages apart.
class Channel {
 public:
  explicit Channel(UniqueFd socket = UniqueFd()) : socket_(std::move(socket)) {}
  /// Both ends, closed on exec; nothing when the system has no room.
  static bool makePair(UniqueFd* one, UniqueFd* other);

  int descriptor() const { return socket_.get(); }

  enum class Status {
    message,
    ended,    ///< the other end is gone
    timeout,  ///< nothing came, or could be sent, in time
    broken    ///< no message: too long, or with descriptors that were not expected
  };
  /// False when the other end is gone or the message is too long. Waits for ever for an end that does not read.
  bool send(const Message& message, int descriptor = -1) const;
  /// The same, but waits `milliseconds` at most for room.
  Status sendWithin(int milliseconds, const Message& message, int descriptor = -1) const;
  /// Waits for a message, `milliseconds` at most (-1: for ever, without polling).
  Status receive(Message* message, int milliseconds, bool takesDescriptor) const;
  /// Ends the connection for both sides; a receive that waits on another thread ends.
  void shutDown() const;

 private:
  Status sendNow(const Message& message, int descriptor, int flags) const;
  UniqueFd socket_;
};

}  // namespace vistrelle::platform
