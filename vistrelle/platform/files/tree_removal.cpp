#include "vistrelle/platform/files/tree_removal.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

#include "vistrelle/platform/files/tree_walk.h"

namespace vistrelle::platform {
namespace {

int unlinkEntry(int folder, const char* name, int flags) {
  return ::unlinkat(folder, name, flags) == 0 ? 0 : errno;
}

void openToOwner(int folder, const char* name, Removing what) {
  // A folder that stays closed makes the removal fail, and that is reported.
  if (what == Removing::ownCopy) static_cast<void>(::fchmodat(folder, name, 0700, 0) == 0);
}

class Removal : public TreeVisitor {
 public:
  explicit Removal(Removing what) : what_(what) {}
  int visit(const TreeEntry& entry) override {
    if (!entry.isFolder) return unlinkEntry(entry.folder, entry.name, 0);
    openToOwner(entry.folder, entry.name, what_);
    return 0;
  }
  // A folder that cannot be opened can still be removed when it is empty.
  int unreadable(const TreeEntry& entry, int code) override {
    return unlinkEntry(entry.folder, entry.name, AT_REMOVEDIR) == 0 ? 0 : code;
  }
  int leave(const TreeEntry& entry) override { return unlinkEntry(entry.folder, entry.name, AT_REMOVEDIR); }

 private:
  Removing what_;
};

}  // namespace

int removeTreeAt(int folder, const std::string& name, Removing what) {
  struct stat status {};
  if (::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
  if (!S_ISDIR(status.st_mode)) return unlinkEntry(folder, name.c_str(), 0);
  openToOwner(folder, name.c_str(), what);
  UniqueFd root(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!root) {
    const int code = errno;
    return unlinkEntry(folder, name.c_str(), AT_REMOVEDIR) == 0 ? 0 : code;
  }
  Removal removal(what);
  if (const int code = walkTree(std::move(root), removal)) return code;
  return unlinkEntry(folder, name.c_str(), AT_REMOVEDIR);
}

}  // namespace vistrelle::platform
