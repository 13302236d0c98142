#include "vistrelle/platform/files/file_writing.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <utility>
#include <vector>

#include "vistrelle/platform/files/file_place.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/size_signal_hold.h"
#include "vistrelle/platform/files/termination_hold.h"

namespace vistrelle::platform {
namespace {

/// What of `bytes` could not be written is left in it.
int writeAll(int file, Bytes& bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(file, bytes.data(), bytes.size());
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
  return 0;
}

int growWithZeros(int file, off_t size, off_t formerSize) {
  const std::vector<char> zeros(64 * 1024);
  while (formerSize < size) {
    const auto step = std::min(zeros.size(), static_cast<std::size_t>(size - formerSize));
    const ssize_t count = ::pwrite(file, zeros.data(), step, formerSize);
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) formerSize += count;
  }
  return 0;
}

/// Reserves the file's space. On failure a longer file is cut back to `formerSize`.
int reserve(int file, off_t size, off_t formerSize) {
  if (size == 0) return 0;
  int code = 0;
  do {
    code = ::fallocate(file, 0, 0, size) == 0 ? 0 : errno;
  } while (code == EINTR);
  // Where the file system cannot reserve, what is there already has its space and the rest is written once before.
  // The C library's stand-in would read the file, which one that is open for writing only does not allow.
  if (code == EOPNOTSUPP || code == EINVAL || code == ENOSYS) code = growWithZeros(file, size, formerSize);
  if (code == 0) return 0;
  return ::ftruncate(file, formerSize) == 0 ? code : errno;
}

int writeRegular(int file, Bytes bytes, off_t formerSize) {
  const SizeSignalHold hold;
  const auto size = static_cast<off_t>(bytes.size());
  if (const int code = reserve(file, size, formerSize)) return code;
  Bytes left = bytes;
  int code = writeAll(file, left);
  if (code == 0 && ::ftruncate(file, size) != 0) code = errno;
  // An untouched file gets its former length back; one that is half of each is emptied, lest it look whole.
  if (code != 0) (void)!::ftruncate(file, left.size() == bytes.size() ? formerSize : 0);
  return code;
}

/// Removes the file that was made for a write that failed, if the path still leads to it.
void takeBack(const std::string& path, const struct stat& made) {
  const FilePlace place = placeOf(behindLinks(path));
  struct stat present {};
  if (place.code != 0) return;
  if (::fstatat(place.folder.get(), place.name.c_str(), &present, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (made.st_dev == present.st_dev && made.st_ino == present.st_ino) {
    ::unlinkat(place.folder.get(), place.name.c_str(), 0);
  }
}

}  // namespace

std::string behindLinks(std::string path) {
  constexpr int maximumLinks = 40;  // as the kernel
  for (int links = 0; links < maximumLinks; ++links) {
    std::string target(4096, '\0');
    const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
    if (length < 0) break;
    target.resize(static_cast<std::size_t>(length));
    path = target.starts_with('/') ? target : appendingPathComponent(deletingLastPathComponent(path), target);
  }
  return path;
}

int writeFileInPlace(const std::string& path, Bytes bytes) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  // A picture is written in moments; better a late end of the process than half a file under the final name.
  std::optional<TerminationHold> hold(std::in_place);
  constexpr int flags = O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
  bool isNew = false;
  UniqueFd file(::open(path.c_str(), flags));
  if (!file && errno == ENOENT) {
    file = UniqueFd(::open(path.c_str(), flags | O_CREAT, 0666));
    isNew = true;
  }
  if (!file) return errno;
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) {
    // Only the opening must not block; a pipe's reader may be slow.
    hold.reset();
    ::fcntl(file.get(), F_SETFL, ::fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
    return writeAll(file.get(), bytes);
  }
  int code = writeRegular(file.get(), bytes, status.st_size);
  if (code == 0 && file.close() != 0) code = errno;
  if (code != 0 && isNew) takeBack(path, status);
  return code;
}

int writeFileByReplacing(const std::string& path, Bytes bytes) {
  if (path.find('\0') != std::string::npos) return EINVAL;
  const FilePlace place = placeOf(behindLinks(path));
  if (place.code != 0) return place.code;
  const int folder = place.folder.get();
  struct stat former {};
  const bool replaces = ::fstatat(folder, place.name.c_str(), &former, AT_SYMLINK_NOFOLLOW) == 0;
  if (replaces && S_ISDIR(former.st_mode)) return EISDIR;
  if (replaces && !S_ISREG(former.st_mode)) return writeFileInPlace(path, bytes);

  const TerminationHold hold;  // no temporary is left behind either
  std::string temporary;
  UniqueFd file;
  int code = createTemporary(temporary, [&](const std::string& name) {
    file = UniqueFd(::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
    return file ? 0 : errno;
  });
  if (code != 0) return code;
  code = writeRegular(file.get(), bytes, 0);
  if (code == 0 && replaces && ::fchmod(file.get(), former.st_mode & 0777) != 0 && errno != EPERM) code = errno;
  if (code == 0 && ::fsync(file.get()) != 0) code = errno;
  if (code == 0 && file.close() != 0) code = errno;
  if (code == 0 && ::renameat(folder, temporary.c_str(), folder, place.name.c_str()) != 0) code = errno;
  if (code != 0) ::unlinkat(folder, temporary.c_str(), 0);
  return code;
}

}  // namespace vistrelle::platform
