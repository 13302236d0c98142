#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "vistrelle/platform/files/file_place.h"
#include "vistrelle/platform/files/file_writing.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/posix_file_manager.h"
#include "vistrelle/platform/files/size_signal_hold.h"
#include "vistrelle/platform/files/tree_copy.h"
#include "vistrelle/platform/files/tree_removal.h"

namespace vistrelle::platform {
namespace {

/// A rename that never replaces anything.
int renameToNew(int from, const std::string& name, int to, const std::string& newName) {
  if (::renameat2(from, name.c_str(), to, newName.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // Some file systems do not know the flag (and a folder moved into itself answers the same).
  struct stat present {};
  if (::fstatat(to, newName.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  return ::renameat(from, name.c_str(), to, newName.c_str()) == 0 ? 0 : errno;
}

/// Copies under a temporary name beside the destination, so that a copy has its name only once it is whole.
int copyToNew(const FilePlace& source, const FilePlace& destination, CopyOptions options) {
  const int to = destination.folder.get();
  struct stat present {};
  if (::fstatat(to, destination.name.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  const SizeSignalHold hold;
  std::string temporary;
  int code = createTemporary(temporary, [&](const std::string& name) {
    return copyTreeAt(source.folder.get(), source.name, to, name, options);
  });
  if (code != 0) return code;
  code = renameToNew(to, temporary, to, destination.name);
  if (code != 0) removeTreeAt(to, temporary, Removing::ownCopy);
  return code;
}

int moveAcross(const FilePlace& source, const FilePlace& destination) {
  if (const int code = copyToNew(source, destination, {.keepOwner = true, .flush = true})) return code;
  // From here on the destination is whole; what cannot be removed of the source stays beside it.
  return removeTreeAt(source.folder.get(), source.name);
}

int makeOneFolder(const std::string& path) {
  return ::mkdir(path.c_str(), 0777) == 0 ? 0 : errno;
}

int makeFoldersAbove(const std::string& path) {
  const std::string parent = deletingLastPathComponent(path);
  struct stat status {};
  if (parent.empty() || parent == "/" || ::stat(parent.c_str(), &status) == 0) return 0;
  if (errno != ENOENT) return errno;  // a path that is too long has no parents worth a step each
  if (const int code = makeFoldersAbove(parent)) return code;
  const int code = makeOneFolder(parent);
  return code == EEXIST ? 0 : code;  // another process was faster
}

}  // namespace

FileResult PosixFileManager::remove(const std::string& path) {
  const FilePlace place = placeOf(path);
  return FileResult(place.code != 0 ? place.code : removeTreeAt(place.folder.get(), place.name), path);
}

FileResult PosixFileManager::move(const std::string& source, const std::string& destination) {
  const FilePlace from = placeOf(source);
  if (from.code != 0) return FileResult(from.code, source);
  const FilePlace to = placeOf(destination);
  if (to.code != 0) return FileResult(to.code, destination);
  const int code = renameToNew(from.folder.get(), from.name, to.folder.get(), to.name);
  return FileResult(code == EXDEV ? moveAcross(from, to) : code, destination);
}

FileResult PosixFileManager::copy(const std::string& source, const std::string& destination) {
  const FilePlace from = placeOf(source);
  if (from.code != 0) return FileResult(from.code, source);
  const FilePlace to = placeOf(destination);
  if (to.code != 0) return FileResult(to.code, destination);
  return FileResult(copyToNew(from, to, {}), destination);
}

FileResult PosixFileManager::makeFolder(const std::string& path, std::optional<std::uint32_t> permissions) {
  if (path.find('\0') != std::string::npos) return FileResult(EINVAL, path);
  if (path.empty()) return FileResult(ENOENT, path);
  if (isFolder(path)) return {};
  if (const int code = makeFoldersAbove(path)) return FileResult(code, path);
  if (const int code = makeOneFolder(path)) return isFolder(path) ? FileResult() : FileResult(code, path);
  return permissions ? setPermissions(path, *permissions) : FileResult();
}

FileResult PosixFileManager::makeNewFolder(const std::string& path) {
  if (path.find('\0') != std::string::npos) return FileResult(EINVAL, path);
  return FileResult(makeOneFolder(path), path);
}

FileResult PosixFileManager::setPermissions(const std::string& path, std::uint32_t permissions) {
  if (path.find('\0') != std::string::npos) return FileResult(EINVAL, path);
  return FileResult(::chmod(path.c_str(), permissions) == 0 ? 0 : errno, path);
}

FileResult PosixFileManager::setModificationDate(const std::string& path, Date date) {
  if (path.find('\0') != std::string::npos) return FileResult(EINVAL, path);
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
  timespec times[2]{};
  times[0].tv_nsec = UTIME_OMIT;
  times[1].tv_sec = static_cast<time_t>(seconds.time_since_epoch().count());
  times[1].tv_nsec = std::chrono::nanoseconds(date - seconds).count();
  return FileResult(::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0 ? 0 : errno, path);
}

FileResult PosixFileManager::makeSymbolicLink(const std::string& target, const std::string& link) {
  if (target.find('\0') != std::string::npos || link.find('\0') != std::string::npos) return FileResult(EINVAL, link);
  return FileResult(::symlink(target.c_str(), link.c_str()) == 0 ? 0 : errno, link);
}

FileResult PosixFileManager::writeInPlace(const std::string& path, Bytes bytes) {
  return FileResult(writeFileInPlace(path, bytes), path);
}

FileResult PosixFileManager::writeByReplacing(const std::string& path, Bytes bytes) {
  return FileResult(writeFileByReplacing(path, bytes), path);
}

}  // namespace vistrelle::platform
