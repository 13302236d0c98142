#include "vistrelle/platform/files/tree_walk.h"

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>
#include <cstring>
#include <string>

namespace vistrelle::platform {
namespace {

// Few enough for any limit on open files, many enough that ordinary trees never reopen a folder.
constexpr std::size_t maximumOpenFolders = 64;
constexpr int openFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;

bool isDots(const char* name) {
  return name[0] == '.' && (!name[1] || (name[1] == '.' && !name[2]));
}

bool isFolderRecord(int folder, const FolderRecord& record) {
  if (record.type != DT_UNKNOWN) return record.type == DT_DIR;
  struct stat status {};
  return ::fstatat(folder, record.name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

FolderStack::FolderStack(UniqueFd root) {
  levels_.push_back({std::move(root)});
}

int FolderStack::closeOutermost() {
  Level& level = levels_[firstOpen_];
  struct stat status {};
  if (::fstat(level.folder.get(), &status) != 0) return errno;
  level.device = status.st_dev;
  level.inode = status.st_ino;
  level.folder.close();
  ++firstOpen_;
  return 0;
}

int FolderStack::push(const char* name) {
  UniqueFd folder(::openat(top(), name, openFolderFlags));
  if (!folder) return errno;
  if (levels_.size() - firstOpen_ >= maximumOpenFolders) {
    if (const int code = closeOutermost()) return code;
  }
  levels_.push_back({std::move(folder)});
  return 0;
}

int FolderStack::pop() {
  Level& outer = levels_[levels_.size() - 2];
  if (!outer.folder) {
    UniqueFd folder(::openat(top(), "..", openFolderFlags));
    if (!folder) return errno;
    struct stat status {};
    if (::fstat(folder.get(), &status) != 0) return errno;
    if (status.st_dev != outer.device || status.st_ino != outer.inode) return ESTALE;
    outer.folder = std::move(folder);
    --firstOpen_;
  }
  levels_.pop_back();
  return 0;
}

std::vector<char> readFolderRecords(int folder, int& code) {
  constexpr std::size_t step = 64 * 1024;
  std::vector<char> records;
  std::size_t used = 0;
  for (;;) {
    records.resize(used + step);
    const ssize_t count = ::getdents64(folder, records.data() + used, step);
    if (count > 0) {
      used += static_cast<std::size_t>(count);
      continue;
    }
    code = count < 0 ? errno : 0;
    records.resize(used);
    records.shrink_to_fit();
    return records;
  }
}

bool nextFolderRecord(const std::vector<char>& records, std::size_t& offset, FolderRecord& record) {
  while (offset < records.size()) {
    // The kernel aligns its records to eight bytes, as the vector's memory is.
    const char* const begin = records.data() + offset;
    unsigned short length = 0;
    std::memcpy(&length, begin + offsetof(dirent64, d_reclen), sizeof length);
    record.name = begin + offsetof(dirent64, d_name);
    std::memcpy(&record.type, begin + offsetof(dirent64, d_type), sizeof record.type);
    offset += length;
    if (!isDots(record.name)) return true;
  }
  return false;
}

int walkTree(UniqueFd root, TreeVisitor& visitor) {
  struct Level {
    std::vector<char> records;
    std::size_t offset = 0;
    FolderRecord record{};       // the entry that the walk is at, a folder while it is inside
    std::size_t pathLength = 0;  // of the path of this level's folder
  };
  FolderStack folders(std::move(root));
  std::vector<Level> levels(1);
  std::string path;
  int code = 0;
  levels[0].records = readFolderRecords(folders.top(), code);
  if (code != 0) return code;
  const auto appendName = [&path](const Level& level) {
    path.resize(level.pathLength);
    if (!path.empty()) path += '/';
    path += level.record.name;
  };

  while (true) {
    Level& level = levels.back();
    if (!nextFolderRecord(level.records, level.offset, level.record)) {
      levels.pop_back();
      if (levels.empty()) return 0;
      if ((code = folders.pop()) != 0) return code;
      appendName(levels.back());
      if ((code = visitor.leave({folders.top(), levels.back().record.name, path, true})) != 0) return code;
      continue;
    }
    appendName(level);
    const TreeEntry entry{folders.top(), level.record.name, path, isFolderRecord(folders.top(), level.record)};
    if ((code = visitor.visit(entry)) != 0) return code;
    if (!entry.isFolder) continue;
    if (const int failure = folders.push(entry.name)) {
      if ((code = visitor.unreadable(entry, failure)) != 0) return code;
      continue;
    }
    Level inner;
    int failure = 0;
    inner.records = readFolderRecords(folders.top(), failure);
    inner.pathLength = path.size();
    if (failure != 0) {
      if ((code = folders.pop()) != 0 || (code = visitor.unreadable(entry, failure)) != 0) return code;
      continue;
    }
    levels.push_back(std::move(inner));
  }
}

}  // namespace vistrelle::platform
