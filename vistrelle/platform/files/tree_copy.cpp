#include "vistrelle/platform/files/tree_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <vector>

#include "vistrelle/platform/files/tree_removal.h"
#include "vistrelle/platform/files/tree_walk.h"

namespace vistrelle::platform {
namespace {

// Any errno value that says "not between these two files", not "the disk failed".
bool mayReadAndWrite(int code) {
  return code == EXDEV || code == EINVAL || code == ENOSYS || code == EOPNOTSUPP || code == EBADF || code == EPERM;
}

int copyByBuffer(int from, int to) {
  std::vector<char> buffer(1024 * 1024);
  for (;;) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count == 0) return 0;
    if (count < 0) {
      if (errno == EINTR) continue;
      return errno;
    }
    for (ssize_t written = 0; written < count;) {
      const ssize_t step = ::write(to, buffer.data() + written, static_cast<std::size_t>(count - written));
      if (step < 0 && errno != EINTR) return errno;
      if (step > 0) written += step;
    }
  }
}

int copyBytes(int from, int to) {
  constexpr std::size_t step = 64 * 1024 * 1024;
  for (;;) {
    const ssize_t count = ::copy_file_range(from, nullptr, to, nullptr, step, 0);
    if (count > 0) continue;
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && !mayReadAndWrite(errno)) return errno;
    // The kernel's answer "nothing" also stands for files that only look empty, as in /proc; reading finds out.
    return copyByBuffer(from, to);
  }
}

/// Owner, mode and times of `status` for the open file `target`.
int applyStatus(int target, const struct stat& status, CopyOptions options) {
  mode_t mode = status.st_mode & 07777;
  // Bits that lend the owner's rights must not pass to a file of another owner.
  if (!options.keepOwner || ::fchown(target, status.st_uid, status.st_gid) != 0) mode &= 01777;
  if (::fchmod(target, mode) != 0 && errno != EPERM && errno != EOPNOTSUPP) return errno;
  const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
  if (::futimens(target, times.data()) != 0 && errno != EPERM) return errno;
  return 0;
}

int copyFile(int from, const char* name, int to, const char* newName, CopyOptions options) {
  UniqueFd source(::openat(from, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!source) return errno;
  struct stat status {};
  if (::fstat(source.get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return EAGAIN;  // swapped since it was looked at
  UniqueFd target(::openat(to, newName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!target) return errno;
  if (const int code = copyBytes(source.get(), target.get())) return code;
  if (const int code = applyStatus(target.get(), status, options)) return code;
  if (options.flush && ::fsync(target.get()) != 0) return errno;
  return target.close() == 0 ? 0 : errno;
}

int copyLink(int from, const char* name, int to, const char* newName, const struct stat& status, CopyOptions options) {
  std::vector<char> target(static_cast<std::size_t>(status.st_size) + 4096);
  const ssize_t length = ::readlinkat(from, name, target.data(), target.size() - 1);
  if (length < 0) return errno;
  target[static_cast<std::size_t>(length)] = '\0';
  if (::symlinkat(target.data(), to, newName) != 0) return errno;
  // Where the owner cannot be kept, the link belongs to whoever copies.
  [[maybe_unused]] const bool ownerKept =
      options.keepOwner && ::fchownat(to, newName, status.st_uid, status.st_gid, AT_SYMLINK_NOFOLLOW) == 0;
  const std::array<timespec, 2> times{status.st_atim, status.st_mtim};
  ::utimensat(to, newName, times.data(), AT_SYMLINK_NOFOLLOW);
  return 0;
}

/// Anything but a folder.
int copyEntry(int from, const char* name, int to, const char* newName, CopyOptions options) {
  struct stat status {};
  if (::fstatat(from, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (S_ISREG(status.st_mode)) return copyFile(from, name, to, newName, options);
  if (S_ISLNK(status.st_mode)) return copyLink(from, name, to, newName, status, options);
  if (S_ISDIR(status.st_mode)) return EAGAIN;  // swapped since it was looked at
  if (::mknodat(to, newName, status.st_mode & (S_IFMT | 0600), status.st_rdev) != 0) return errno;
  return ::fchmodat(to, newName, status.st_mode & 0777, 0) == 0 ? 0 : errno;
}

/// A folder that only this user may enter until its copy is whole.
int makeFolderAt(int to, const char* name) {
  return ::mkdirat(to, name, 0700) == 0 ? 0 : errno;
}

int statusOf(int folder, struct stat& status) {
  return ::fstat(folder, &status) == 0 ? 0 : errno;
}

class Copying : public TreeVisitor {
 public:
  Copying(UniqueFd target, CopyOptions options) : targets_(std::move(target)), options_(options) {}

  int visit(const TreeEntry& entry) override {
    if (!entry.isFolder) return copyEntry(entry.folder, entry.name, targets_.top(), entry.name, options_);
    if (const int code = makeFolderAt(targets_.top(), entry.name)) return code;
    return targets_.push(entry.name);
  }
  int unreadable(const TreeEntry&, int code) override { return code; }
  int leave(const TreeEntry& entry) override {
    struct stat status {};
    if (::fstatat(entry.folder, entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (const int code = applyStatus(targets_.top(), status, options_)) return code;
    return targets_.pop();
  }

 private:
  FolderStack targets_;
  CopyOptions options_;
};

/// Whether the folder open at `inner` is the one with this status or lies somewhere below it.
bool liesWithin(int inner, const struct stat& outer) {
  UniqueFd folder(::openat(inner, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat former {};
  for (;;) {
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0) return false;
    if (status.st_dev == outer.st_dev && status.st_ino == outer.st_ino) return true;
    if (status.st_dev == former.st_dev && status.st_ino == former.st_ino) return false;  // the root is its own parent
    former = status;
    folder = UniqueFd(::openat(folder.get(), "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
  }
}

int copyFolder(int from, const char* name, int to, const char* newName, CopyOptions options) {
  UniqueFd source(::openat(from, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!source) return errno;
  struct stat status {};
  if (const int code = statusOf(source.get(), status)) return code;
  if (liesWithin(to, status)) return EINVAL;
  if (const int code = makeFolderAt(to, newName)) return code;
  UniqueFd target(::openat(to, newName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  UniqueFd kept(target ? ::fcntl(target.get(), F_DUPFD_CLOEXEC, 0) : -1);
  if (!kept) return errno;
  CopyOptions inside = options;
  inside.flush = false;  // one flush of the whole file system is cheaper than one a file
  Copying copying(std::move(target), inside);
  if (const int code = walkTree(std::move(source), copying)) return code;
  if (const int code = applyStatus(kept.get(), status, options)) return code;
  return options.flush && ::syncfs(kept.get()) != 0 ? errno : 0;
}

}  // namespace

int copyTreeAt(int from, const std::string& name, int to, const std::string& newName, CopyOptions options) {
  struct stat status {};
  if (::fstatat(from, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  struct stat present {};
  if (::fstatat(to, newName.c_str(), &present, AT_SYMLINK_NOFOLLOW) == 0) return EEXIST;
  const int code = S_ISDIR(status.st_mode) ? copyFolder(from, name.c_str(), to, newName.c_str(), options)
                                           : copyEntry(from, name.c_str(), to, newName.c_str(), options);
  if (code != 0 && code != EEXIST) removeTreeAt(to, newName, Removing::ownCopy);
  return code;
}

}  // namespace vistrelle::platform
