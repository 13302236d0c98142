#include "vistrelle/platform/media/confined/channel.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>

namespace vistrelle::platform {
namespace {

/// Room for the one descriptor that a message may carry.
union ControlSpace {
  std::array<char, CMSG_SPACE(sizeof(int))> bytes;
  cmsghdr alignment;
};

bool isReady(int descriptor, short event, int milliseconds) {
  pollfd wanted{descriptor, event, 0};
  int ready = -1;
  do {
    ready = ::poll(&wanted, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

int descriptorOf(msghdr* header) {
  const cmsghdr* control = CMSG_FIRSTHDR(header);
  if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_RIGHTS ||
      control->cmsg_len != CMSG_LEN(sizeof(int))) {
    return -1;
  }
  int descriptor = -1;
  std::memcpy(&descriptor, CMSG_DATA(control), sizeof descriptor);
  return descriptor;
}

}  // namespace

std::uint32_t Message::kind() const {
  std::uint32_t kind = 0;
  if (bytes_.size() >= sizeof kind) std::memcpy(&kind, bytes_.data(), sizeof kind);
  return kind;
}

void Message::append(const void* data, std::size_t size) {
  const char* first = static_cast<const char*>(data);
  bytes_.insert(bytes_.end(), first, first + size);
}

bool Channel::makePair(UniqueFd* one, UniqueFd* other) {
  std::array<int, 2> ends{};
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0) return false;
  *one = UniqueFd(ends[0]);
  *other = UniqueFd(ends[1]);
  return true;
}

Channel::Status Channel::sendNow(const Message& message, int descriptor, int flags) const {
  if (message.bytes_.size() > kMaxMessageBytes) return Status::broken;
  iovec content{const_cast<char*>(message.bytes_.data()), message.bytes_.size()};
  msghdr header{};
  header.msg_iov = &content;
  header.msg_iovlen = 1;
  ControlSpace space{};
  if (descriptor >= 0) {
    header.msg_control = space.bytes.data();
    header.msg_controllen = space.bytes.size();
    cmsghdr* control = CMSG_FIRSTHDR(&header);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_RIGHTS;
    control->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(control), &descriptor, sizeof descriptor);
  }
  ssize_t sent = -1;
  do {
    sent = ::sendmsg(socket_.get(), &header, MSG_NOSIGNAL | flags);
  } while (sent < 0 && errno == EINTR);
  if (sent >= 0) return Status::message;
  return errno == EAGAIN ? Status::timeout : Status::ended;
}

bool Channel::send(const Message& message, int descriptor) const {
  return sendNow(message, descriptor, 0) == Status::message;
}

Channel::Status Channel::sendWithin(int milliseconds, const Message& message, int descriptor) const {
  using std::chrono::steady_clock;
  const auto end = steady_clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    const Status status = sendNow(message, descriptor, MSG_DONTWAIT);
    if (status != Status::timeout) return status;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now());
    if (left.count() <= 0 || !isReady(socket_.get(), POLLOUT, static_cast<int>(left.count()))) return Status::timeout;
  }
}

Channel::Status Channel::receive(Message* message, int milliseconds, bool takesDescriptor) const {
  if (milliseconds >= 0 && !isReady(socket_.get(), POLLIN, milliseconds)) return Status::timeout;
  message->bytes_.resize(kMaxMessageBytes);
  iovec content{message->bytes_.data(), message->bytes_.size()};
  msghdr header{};
  header.msg_iov = &content;
  header.msg_iovlen = 1;
  ControlSpace space{};
  if (takesDescriptor) {
    header.msg_control = space.bytes.data();
    header.msg_controllen = space.bytes.size();
  }
  ssize_t count = -1;
  do {
    count = ::recvmsg(socket_.get(), &header, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  message->bytes_.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  message->descriptor_ = UniqueFd(takesDescriptor && count > 0 ? descriptorOf(&header) : -1);
  if (count <= 0) return Status::ended;
  const bool isWhole = (header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
  return isWhole && message->bytes_.size() >= sizeof(std::uint32_t) ? Status::message : Status::broken;
}

void Channel::shutDown() const {
  if (socket_) ::shutdown(socket_.get(), SHUT_RDWR);
}

}  // namespace vistrelle::platform
