#include "vistrelle/platform/jobs/line_source.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kPiece = 65536;
constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";

}  // namespace

/// Takes a whole line off what has been read.
bool LineSource::take(std::string* line, bool* isTooLong) {
  const std::size_t end = bytes_.find('\n', searched_);
  const bool isLast = end == std::string::npos && hasEnded_ && (begin_ < bytes_.size() || isSkipping_);
  if (end == std::string::npos && !isLast) {
    searched_ = bytes_.size();
    if (searched_ - begin_ > kMaxLine) {  // the rest is not kept
      isSkipping_ = true;
      bytes_.clear();
      begin_ = searched_ = 0;
    }
    return false;
  }
  const std::size_t stop = isLast ? bytes_.size() : end;
  *isTooLong = std::exchange(isSkipping_, false) || stop - begin_ > kMaxLine;
  line->assign(bytes_, begin_, stop - begin_);
  if (line->ends_with('\r')) line->pop_back();
  if (number_ == 0 && line->starts_with(kByteOrderMark)) line->erase(0, kByteOrderMark.size());
  begin_ = std::min(stop + 1, bytes_.size());
  searched_ = begin_;
  ++number_;
  return true;
}

/// Reads a piece if one is there. False when reading failed.
bool LineSource::readMore(bool* hasMore) {
  *hasMore = false;
  pollfd ready{file_.get(), POLLIN, 0};
  if (::poll(&ready, 1, 0) <= 0) return true;
  bytes_.erase(0, begin_);
  searched_ -= begin_;
  begin_ = 0;
  std::array<char, kPiece> buffer{};
  const ssize_t count = ::read(file_.get(), buffer.data(), buffer.size());
  if (count < 0) {
    if (errno == EINTR || errno == EAGAIN) return true;
    error_ = errno;
    return false;
  }
  hasEnded_ = count == 0;
  *hasMore = true;
  bytes_.append(buffer.data(), static_cast<std::size_t>(count));
  return true;
}

LineSource::Status LineSource::next(std::string* line) {
  for (;;) {
    bool isTooLong = false;
    if (take(line, &isTooLong)) return isTooLong ? Status::tooLong : Status::line;
    if (hasEnded_) return Status::end;
    bool hasMore = false;
    if (!readMore(&hasMore)) return Status::failed;
    if (!hasMore) return Status::wait;
  }
}

std::optional<std::uint64_t> LineSource::countLines() const {
  struct stat facts {};
  if (::fstat(file_.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
  std::uint64_t lines = 0;
  char last = '\n';
  std::array<char, kPiece> buffer{};
  off_t offset = std::max<off_t>(::lseek(file_.get(), 0, SEEK_CUR), 0);
  for (;;) {
    const ssize_t count = ::pread(file_.get(), buffer.data(), buffer.size(), offset);
    if (count <= 0) break;
    lines += static_cast<std::uint64_t>(std::count(buffer.begin(), buffer.begin() + count, '\n'));
    last = buffer[static_cast<std::size_t>(count) - 1];
    offset += count;
  }
  return last == '\n' ? lines : lines + 1;
}

}  // namespace vistrelle::platform
