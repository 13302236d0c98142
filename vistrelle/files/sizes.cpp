#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/text/numbers.h"

namespace vistrelle {

using platform::expandingTilde;
using platform::fileManager;
using platform::lowercased;
using platform::OptionalText;
using platform::uppercased;

namespace {

constexpr double megabytesPerByte = 9.5367431640625e-7;

/// A folder's contents in the unit; nothing for a unit that no folder is measured in.
std::optional<double> folderSizeInUnit(const OptionalText& path, const OptionalText& unit) {
  if (!unit) return std::nullopt;
  const std::string upper = uppercased(*unit);
  const bool bytes = lowercased(*unit) == "o" || upper == "B";
  if (upper != "G" && upper != "M" && upper != "K" && !bytes) return std::nullopt;
  const double megabytes = folderSizeMo(path);
  if (upper == "G") return megabytes * 0.0009765625;
  if (upper == "M") return megabytes;
  return upper == "K" ? megabytes * 1024 : megabytes * 1024 * 1024;
}

/// The position of the end of the file, as the C library's streams find it; -1 on failure.
std::int64_t sizeByStream(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (descriptor < 0) return -1;
  logVerbose("poidsFileC          : (4)");
  const std::string extension = platform::pathExtension(path);
  std::FILE* stream = ::fdopen(descriptor, extension == "txt" || extension == "log" ? "r" : "rb");
  if (!stream) {
    ::close(descriptor);
    return -1;
  }
  // Of a folder the end is its own size; what seeking there answers differs between file systems.
  struct stat status {};
  const bool folder = ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
  std::int64_t size = folder ? status.st_size : -1;
  if (!folder && ::fseeko(stream, 0, SEEK_END) == 0) size = ::ftello(stream);
  std::fclose(stream);
  return size;
}

}  // namespace

double poidsFile(const OptionalText& path, const OptionalText& unit) {
  if (isDirCocoa(path)) {
    if (const auto size = folderSizeInUnit(path, unit)) return *size;
  }
  logVerbose("poidsFile…");
  if (!path) return -1.0;
  logVerbose("poidsFile…1");
  const auto attributes = fileManager().get()->attributes(platform::standardizedPath(*path), true);
  logVerbose("poidsFile…2");
  if (!attributes) return -1.0;
  logVerbose("dict (size)         : {}", attributes->size);
  logVerbose("current file size   : {} units", attributes->size);
  const bool inBytes = !unit || lowercased(*unit) == "o";
  const double size = inBytes ? static_cast<double>(attributes->size) : sizeInUnit(attributes->size, unit);
  if (isVerbose()) {
    const std::string upper = unit ? uppercased(*unit) : "";
    const bool prefix = upper == "G" || upper == "M" || upper == "K";
    log("current file size   : {:.2f} {}B", size, prefix ? upper : "");
  }
  return size;
}

float poidsFileMo(const OptionalText& path) {
  return static_cast<float>(poidsFile(path, "m"));
}

float folderSizeMo(const OptionalText& path) {
  if (!path) return 0;
  float total = 0;
  const auto walked = fileManager().get()->visitTree(expandingTilde(*path), true, [&](const platform::TreeItem& item) {
    // Each sum is made in double precision and kept in single: large folders lose small files, as intended.
    total = static_cast<float>(static_cast<double>(total) + static_cast<double>(item.size) * megabytesPerByte);
  });
  static_cast<void>(walked);
  logVerbose("current folder size : {:f} Mo", total);
  return total;
}

double poidsFileC(const OptionalText& path, const OptionalText& unit) {
  logVerbose("poidsFileC          : (1)");
  if (!path) return -1.0;
  const std::string expanded = expandingTilde(*path);
  logVerbose("poidsFileC          : (2)");
  if (!testPresenceCocoa(expanded)) return -1.0;
  logVerbose("poidsFileC          : (3)");
  const std::int64_t count = sizeByStream(expanded);
  if (count < 0) return -1.0;
  logVerbose("fclose end");
  logVerbose("poidsFileC          :   {} units", count);
  const double size = unit && uppercased(*unit) != "O" ? sizeInUnit(count, unit) : static_cast<double>(count);
  logVerbose("poidsFileC          :-) {:.2f} {}", size, unit ? *unit : "(null)");
  return size;
}

std::int64_t freeDiskSpaceMo(const OptionalText& path) {
  if (!testPresenceCocoa(path)) return -1;
  logVerbose("free disk space file: {}", *path);
  const auto volume = fileManager().get()->volumeAttributes(expandingTilde(*path));
  if (!volume.attributes) {
    log("error               :-( {}", volume.result.description());
    return -1;
  }
  const auto free = static_cast<std::int64_t>(volume.attributes->free >> 20);
  logVerbose("free disk space     : {} Mo", free);
  return free;
}

}  // namespace vistrelle
