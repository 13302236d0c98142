#include "vistrelle/platform/jobs/private_folder.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

constexpr mode_t kOwnerOnly = 0700;
constexpr mode_t kLockMode = 0600;
constexpr int kAttempts = 20;

/// Some network file systems know no locks: there nobody else is kept out.
bool knowsNoLocks(int error) {
  return error == ENOSYS || error == EOPNOTSUPP || error == EINVAL || error == ENOLCK;
}

bool isSame(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// The lock of the folder that is open as `folder`; an errno value in `error` when somebody else has it, 0 when the
/// folder has gone meanwhile.
UniqueFd lockFolder(const std::string& path, const UniqueFd& folder, int* error) {
  UniqueFd lock(::openat(folder.get(), "lock", O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kLockMode));
  if (!lock) {
    *error = errno == ENOENT ? 0 : errno;
    return UniqueFd();
  }
  if (::flock(lock.get(), LOCK_EX | LOCK_NB) != 0 && !knowsNoLocks(errno)) {
    *error = errno;
    return UniqueFd();
  }
  // Whoever had it before may have removed it all between the opening and the locking.
  struct stat locked {};
  struct stat opened {};
  struct stat present {};
  const bool isStillThere = ::fstat(lock.get(), &locked) == 0 && locked.st_nlink > 0 &&
                            ::fstat(folder.get(), &opened) == 0 && ::lstat(path.c_str(), &present) == 0 &&
                            isSame(opened, present);
  *error = 0;
  return isStillThere ? std::move(lock) : UniqueFd();
}

UniqueFd openOwnFolder(const std::string& path, int* error) {
  UniqueFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat facts {};
  *error = folder ? 0 : errno;
  if (!folder) {
    if (*error == ENOTDIR || *error == ELOOP) *error = EEXIST;
    return folder;
  }
  if (::fstat(folder.get(), &facts) == 0 && facts.st_uid == ::geteuid()) return folder;
  *error = EEXIST;
  return UniqueFd();
}

int flush(const std::string& path, int kind) {
  const UniqueFd item(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | kind));
  if (!item) return errno == EACCES ? 0 : errno;  // a mask of permissions that lets nobody read what it makes
  return ::fsync(item.get()) == 0 || errno == EINVAL || errno == EROFS ? 0 : errno;
}

}  // namespace

std::unique_ptr<PrivateFolder> PrivateFolder::make(const std::string& path, int* error) {
  *error = EWOULDBLOCK;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    if (::mkdir(path.c_str(), kOwnerOnly) != 0 && errno != EEXIST) {
      *error = errno;
      return nullptr;
    }
    const UniqueFd folder = openOwnFolder(path, error);
    if (!folder && *error == ENOENT) continue;
    if (!folder) return nullptr;
    UniqueFd lock = lockFolder(path, folder, error);
    if (!lock && *error == 0) continue;
    if (!lock) return nullptr;
    std::unique_ptr<PrivateFolder> made(new PrivateFolder(path, std::move(lock)));
    const auto files = fileManager().get();
    *error = files->remove(made->content()).code();
    if (*error == 0 || *error == ENOENT) *error = files->makeNewFolder(made->content()).code();
    if (*error != 0) return nullptr;
    return made;
  }
  *error = EWOULDBLOCK;
  return nullptr;
}

int PrivateFolder::flushContent() const {
  const auto names = fileManager().get()->entries(content());
  if (!names) return EIO;
  for (const std::string& name : *names) {
    if (const int error = flush(appendingPathComponent(content(), name), 0); error != 0) return error;
  }
  return flush(content(), O_DIRECTORY);
}

PrivateFolder::~PrivateFolder() {
  (void)fileManager().get()->remove(path_);
}

void PrivateFolder::removeRest(const std::string& path, std::chrono::milliseconds patience) {
  constexpr int kPauseMilliseconds = 10;
  const auto limit = std::chrono::steady_clock::now() + patience;
  struct stat present {};
  while (::lstat(path.c_str(), &present) == 0) {
    int error = 0;
    if (make(path, &error) || error != EWOULDBLOCK || std::chrono::steady_clock::now() >= limit) return;
    ::poll(nullptr, 0, kPauseMilliseconds);
  }
}

}  // namespace vistrelle::platform
