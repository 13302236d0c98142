#include "vistrelle/platform/preferences/file_bytes.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {
namespace {

FileReading failed(const char* step) {
  const int number = errno;
  char text[256];
  // The GNU form, which returns the text.
  return {std::nullopt, format("{}: {}", step, static_cast<const char*>(::strerror_r(number, text, sizeof text))),
          number};
}

}  // namespace

FileReading readWholeFile(int descriptor, std::size_t mostBytes) {
  FileReading result;
  std::string bytes;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return failed("stat");
  if (!S_ISREG(status.st_mode)) return {std::nullopt, "not a regular file", 0};
  if (status.st_size > 0 && static_cast<std::size_t>(status.st_size) <= mostBytes) {
    bytes.reserve(static_cast<std::size_t>(status.st_size));
  }
  char block[65536];
  while (true) {
    const ssize_t count = ::read(descriptor, block, sizeof block);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failed("read");
    if (count == 0) break;
    bytes.append(block, static_cast<std::size_t>(count));
    if (bytes.size() > mostBytes) return {std::nullopt, "the file is too long", 0};
  }
  result.bytes = std::move(bytes);
  return result;
}

FileReading readWholeFile(const std::string& path, std::size_t mostBytes) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!file) return failed("open");
  return readWholeFile(file.get(), mostBytes);
}

}  // namespace vistrelle::platform
