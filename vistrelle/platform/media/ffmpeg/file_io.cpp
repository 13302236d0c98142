#include "vistrelle/platform/media/ffmpeg/file_io.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

constexpr int kBufferBytes = 32768;
// O_NONBLOCK: opening a FIFO or a tape must not wait; O_NOCTTY: a terminal must not become ours.
constexpr int kOpenFlags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

void explain(std::string* error, const char* text) {
  if (error != nullptr) *error = text;
}

std::string folderOf(const std::string& path) {
  const std::string folder = deletingLastPathComponent(path);
  return folder.empty() ? "." : folder;
}

}  // namespace

std::shared_ptr<InputBytes> InputBytes::openReference(const std::string&, std::string* error) {
  explain(error, "references are not followed");
  return nullptr;
}

std::shared_ptr<InputFile> InputFile::open(const std::string& path, std::string* error) {
  if (path.find('\0') != std::string::npos) {
    explain(error, "not a file name");
    return nullptr;
  }
  const int descriptor = ::open(path.c_str(), kOpenFlags);
  if (descriptor < 0) {
    explain(error, std::strerror(errno));
    return nullptr;
  }
  return adopt(descriptor, folderOf(path), error);
}

std::shared_ptr<InputFile> InputFile::adopt(int descriptor, std::string folder, std::string* error) {
  struct stat facts {};
  if (::fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode)) {
    return std::shared_ptr<InputFile>(new InputFile(descriptor, facts.st_size, std::move(folder)));
  }
  explain(error, "not a regular file");
  ::close(descriptor);
  return nullptr;
}

InputFile::~InputFile() {
  ::close(descriptor_);
}

std::int64_t InputFile::readAt(std::int64_t offset, std::span<std::uint8_t> buffer) {
  if (offset < 0) return -EINVAL;
  if (offset >= size_ || buffer.empty()) return 0;
  const auto wanted = static_cast<std::size_t>(std::min<std::int64_t>(size_ - offset, std::ssize(buffer)));
  for (;;) {
    const ssize_t count = ::pread(descriptor_, buffer.data(), wanted, offset);
    if (count >= 0) return count;
    if (errno != EINTR) return -errno;
  }
}

void InputFile::willRead(std::int64_t offset, std::int64_t length) {
  ::posix_fadvise(descriptor_, offset, length, POSIX_FADV_WILLNEED);
}

std::shared_ptr<InputBytes> InputFile::openReference(const std::string& relativePath, std::string* error) {
  const int folder = ::open(folder_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) {
    explain(error, std::strerror(errno));
    return nullptr;
  }
  // The kernel resolves the name: nothing above the folder, no link anywhere on the way.
  open_how how{};
  how.flags = kOpenFlags;
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
  const long descriptor = ::syscall(SYS_openat2, folder, relativePath.c_str(), &how, sizeof how);
  const int cause = errno;
  ::close(folder);
  if (descriptor < 0) {
    explain(error, std::strerror(cause));
    return nullptr;
  }
  return adopt(static_cast<int>(descriptor), {}, error);
}

ByteReader::ByteReader(std::shared_ptr<InputBytes> bytes, std::shared_ptr<Interrupt> interrupt)
    : bytes_(std::move(bytes)), interrupt_(std::move(interrupt)) {
  auto* buffer = static_cast<std::uint8_t*>(av_malloc(kBufferBytes));
  if (buffer == nullptr) return;
  context_.reset(avio_alloc_context(buffer, kBufferBytes, 0, this, &ByteReader::read, nullptr, &ByteReader::seek));
  if (!context_) av_free(buffer);
}

int ByteReader::read(void* opaque, std::uint8_t* buffer, int size) {
  auto& self = *static_cast<ByteReader*>(opaque);
  if (self.interrupt_->isDue()) return AVERROR_EXIT;
  if (size <= 0) return AVERROR(EINVAL);
  const std::int64_t count = self.bytes_->readAt(self.position_, {buffer, static_cast<std::size_t>(size)});
  if (self.interrupt_->isDue()) return AVERROR_EXIT;
  if (count < 0) return AVERROR(static_cast<int>(-count));
  if (count == 0) return AVERROR_EOF;
  self.position_ += count;
  self.bytesRead_ += count;
  return static_cast<int>(count);
}

std::int64_t ByteReader::seek(void* opaque, std::int64_t offset, int whence) {
  auto& self = *static_cast<ByteReader*>(opaque);
  const std::int64_t size = self.bytes_->size();
  if ((whence & AVSEEK_SIZE) != 0) return size;
  std::int64_t base = 0;
  switch (whence & ~AVSEEK_FORCE) {
    case SEEK_SET:
      break;
    case SEEK_CUR:
      base = self.position_;
      break;
    case SEEK_END:
      base = size;
      break;
    default:
      return AVERROR(EINVAL);
  }
  std::int64_t target = 0;
  if (__builtin_add_overflow(base, offset, &target) || target < 0) return AVERROR(EINVAL);
  self.position_ = target;
  return target;
}

}  // namespace vistrelle::platform
