#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/posix_file_manager.h"
#include "vistrelle/platform/files/tree_walk.h"

namespace vistrelle::platform {
namespace {

// A path with a zero byte would name something else to the kernel than to its reader: it names nothing.
bool isWhole(const std::string& path) {
  return path.find('\0') == std::string::npos;
}

UniqueFd openQuietly(const std::string& path, int flags) {
  return UniqueFd(isWhole(path) ? ::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC) : -1);
}

Date dateOf(std::int64_t seconds, std::int64_t nanoseconds) {
  return Date(std::chrono::seconds(seconds) +
              std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::nanoseconds(nanoseconds)));
}

FileKind kindOf(unsigned mode) {
  if (S_ISREG(mode)) return FileKind::regular;
  if (S_ISDIR(mode)) return FileKind::folder;
  return S_ISLNK(mode) ? FileKind::symbolicLink : FileKind::other;
}

class Listing : public TreeVisitor {
 public:
  Listing(bool withSizes, const std::function<void(const TreeItem&)>& visit) : withSizes_(withSizes), visit_(visit) {}
  int visit(const TreeEntry& entry) override {
    TreeItem item{entry.path};
    if (withSizes_) {
      struct stat status {};
      if (::fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) == 0) item.size = status.st_size;
    }
    visit_(item);
    return 0;
  }
  int unreadable(const TreeEntry&, int) override { return 0; }
  int leave(const TreeEntry&) override { return 0; }

 private:
  bool withSizes_;
  const std::function<void(const TreeItem&)>& visit_;
};

}  // namespace

bool PosixFileManager::canOpenForReading(const std::string& path) {
  return bool(openQuietly(path, O_RDONLY));
}

bool PosixFileManager::canOpenForUpdating(const std::string& path) {
  return bool(openQuietly(path, O_RDWR));
}

bool PosixFileManager::exists(const std::string& path) {
  struct stat status {};
  return isWhole(path) && ::stat(path.c_str(), &status) == 0;
}

bool PosixFileManager::isFolder(const std::string& path) {
  struct stat status {};
  return isWhole(path) && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::optional<FileAttributes> PosixFileManager::attributes(const std::string& path, bool followLink) {
  struct statx status {};
  const int flags = AT_STATX_SYNC_AS_STAT | (followLink ? 0 : AT_SYMLINK_NOFOLLOW);
  if (!isWhole(path) || ::statx(AT_FDCWD, path.c_str(), flags, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
    return std::nullopt;
  }
  FileAttributes found;
  found.kind = kindOf(status.stx_mode);
  found.size = static_cast<std::int64_t>(status.stx_size);
  found.permissions = status.stx_mode & 07777u;
  found.owner = status.stx_uid;
  found.device = (std::uint64_t{status.stx_dev_major} << 32) | status.stx_dev_minor;
  found.inode = status.stx_ino;
  found.modificationDate = dateOf(status.stx_mtime.tv_sec, status.stx_mtime.tv_nsec);
  found.creationDate = found.modificationDate;
  if (status.stx_mask & STATX_BTIME) {
    found.creationDate = std::min(found.creationDate, dateOf(status.stx_btime.tv_sec, status.stx_btime.tv_nsec));
  }
  return found;
}

VolumeAnswer PosixFileManager::volumeAttributes(const std::string& path) {
  struct statvfs status {};
  if (!isWhole(path)) return {std::nullopt, FileResult(EINVAL, path)};
  if (::statvfs(path.c_str(), &status) != 0) return {std::nullopt, FileResult(errno, path)};
  VolumeAttributes found;
  found.size = std::uint64_t{status.f_blocks} * status.f_frsize;
  found.free = std::uint64_t{status.f_bavail} * status.f_frsize;
  found.nodes = status.f_files;
  found.freeNodes = status.f_favail;
  return {found, FileResult()};
}

OptionalText PosixFileManager::linkDestination(const std::string& path) {
  if (!isWhole(path)) return std::nullopt;
  std::string target(4096, '\0');
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length < 0) return std::nullopt;
  target.resize(static_cast<std::size_t>(length));
  return target;
}

OptionalText PosixFileManager::resolvedPath(const std::string& path) {
  if (!isWhole(path)) return std::nullopt;
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr), &std::free);
  return real ? OptionalText(real.get()) : std::nullopt;
}

std::optional<std::vector<std::string>> PosixFileManager::entries(const std::string& folder) {
  const UniqueFd open = openQuietly(folder, O_RDONLY | O_DIRECTORY);
  if (!open) return std::nullopt;
  int code = 0;
  const std::vector<char> records = readFolderRecords(open.get(), code);
  if (code != 0) return std::nullopt;
  std::vector<std::string> names;
  FolderRecord record{};
  for (std::size_t offset = 0; nextFolderRecord(records, offset, record);) names.emplace_back(record.name);
  return names;
}

FileResult PosixFileManager::visitTree(const std::string& folder, bool withSizes,
                                       const std::function<void(const TreeItem&)>& visit) {
  UniqueFd root = openQuietly(folder, O_RDONLY | O_DIRECTORY);
  if (!root) return FileResult(errno, folder);
  Listing listing(withSizes, visit);
  return FileResult(walkTree(std::move(root), listing), folder);
}

std::optional<Data> PosixFileManager::contents(const std::string& path, std::int64_t limit) {
  const UniqueFd file = openQuietly(path, O_RDONLY);
  struct stat status {};
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size > limit) {
    return std::nullopt;
  }
  Data data;
  // The size is only a first guess: files of /proc say 0, and a file may grow while it is read.
  for (std::size_t used = 0;;) {
    const std::size_t step = used == 0 ? static_cast<std::size_t>(status.st_size) + 1 : 64 * 1024;
    data.resize(used + step);
    const ssize_t count = ::read(file.get(), data.data() + used, step);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    used += static_cast<std::size_t>(count);
    if (static_cast<std::int64_t>(used) > limit) return std::nullopt;
    if (count == 0) {
      data.resize(used);
      return data;
    }
  }
}

}  // namespace vistrelle::platform
