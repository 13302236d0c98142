#include "vistrelle/platform/preferences/file_bytes.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

constexpr int kLongestLinkChain = 40;

std::string reason(const char* step) {
  char text[256];
  // The GNU form, which returns the text.
  return format("{}: {}", step, static_cast<const char*>(::strerror_r(errno, text, sizeof text)));
}

/// The path that writing through `path` reaches, also when the last link of a chain points nowhere yet.
std::string linkTarget(std::string path) {
  for (int i = 0; i < kLongestLinkChain; ++i) {
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    if (length <= 0) break;
    const std::string_view text(target, static_cast<std::size_t>(length));
    path = text.front() == '/' ? std::string(text) : appendingPathComponent(deletingLastPathComponent(path), text);
  }
  return path;
}

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

}  // namespace

void Descriptor::reset(int number) {
  if (number_ >= 0) ::close(number_);
  number_ = number;
}

FileReading readWholeFile(int descriptor, std::size_t mostBytes) {
  FileReading result;
  std::string bytes;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return {std::nullopt, reason("stat"), errno};
  if (!S_ISREG(status.st_mode)) return {std::nullopt, "not a regular file", 0};
  if (status.st_size > 0 && static_cast<std::size_t>(status.st_size) <= mostBytes) {
    bytes.reserve(static_cast<std::size_t>(status.st_size));
  }
  char block[65536];
  while (true) {
    const ssize_t count = ::read(descriptor, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return {std::nullopt, reason("read"), errno};
    if (count == 0) break;
    bytes.append(block, static_cast<std::size_t>(count));
    if (bytes.size() > mostBytes) return {std::nullopt, "the file is too long", 0};
  }
  result.bytes = std::move(bytes);
  return result;
}

FileReading readWholeFile(const std::string& path, std::size_t mostBytes) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return {std::nullopt, reason("open"), errno};
  return readWholeFile(file.get(), mostBytes);
}

std::string replaceFile(const std::string& path, std::string_view bytes, mode_t newMode) {
  const std::string target = linkTarget(path);
  struct stat former {};
  const bool replaces = ::stat(target.c_str(), &former) == 0;
  // Renaming over a device or a pipe would destroy it.
  if (replaces && !S_ISREG(former.st_mode)) return "not a regular file";
  std::string temporary =
      appendingPathComponent(deletingLastPathComponent(target), "." + lastPathComponent(target) + ".XXXXXX");
  if (target.find('/') == std::string::npos) temporary = "." + target + ".XXXXXX";
  Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file) return reason("create");
  std::string error;
  if (replaces && ::fchown(file.get(), former.st_uid, former.st_gid) != 0) {
    // An ordinary user who may write a file of somebody else becomes its owner.
  }
  if (::fchmod(file.get(), replaces ? former.st_mode & 07777U : newMode) != 0) error = reason("permissions");
  if (error.empty() && !writeAll(file.get(), bytes)) error = reason("write");
  if (error.empty() && ::fsync(file.get()) != 0) error = reason("flush");
  if (::close(file.release()) != 0 && error.empty()) error = reason("close");
  if (error.empty() && ::rename(temporary.c_str(), target.c_str()) != 0) error = reason("rename");
  if (!error.empty()) ::unlink(temporary.c_str());
  return error;
}

}  // namespace vistrelle::platform
