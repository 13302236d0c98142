#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <string_view>
#include <vector>

#include "vistrelle/platform/files/unique_fd.h"

/// Walking a tree by descriptors: every step goes from an open folder to a name in it, never through a link, so that
/// a folder swapped for a link in mid-walk cannot lead the walk elsewhere.
namespace vistrelle::platform {

/// A folder and those above it up to the root of a walk. Trees deeper than a process may have open files work: the
/// outermost folders are closed and opened again through "..", where they must be the same as before.
class FolderStack {
 public:
  explicit FolderStack(UniqueFd root);
  /// The innermost folder's descriptor.
  int top() const { return levels_.back().folder.get(); }
  /// Enters a folder of the innermost one; an errno value when it cannot, 0 when it did.
  int push(const char* name);
  /// Leaves the innermost folder (not the root); ESTALE when the one above is not where it was.
  int pop();

 private:
  struct Level {
    UniqueFd folder;
    dev_t device = 0;
    ino_t inode = 0;
  };
  int closeOutermost();

  std::vector<Level> levels_;
  std::size_t firstOpen_ = 0;
};

/// One entry in a walk, borrowed for the call.
struct TreeEntry {
  int folder;             ///< descriptor of the folder that holds it
  const char* name;       ///< its name there
  std::string_view path;  ///< relative to the walk's root
  bool isFolder;          ///< a folder itself, not a link to one
};

/// What to do in a walk. Each answer is an errno value that ends the walk, or 0 to go on.
class TreeVisitor {
 public:
  virtual ~TreeVisitor() = default;
  /// An entry; a folder before its content.
  virtual int visit(const TreeEntry& entry) = 0;
  /// A folder whose content could not be opened.
  virtual int unreadable(const TreeEntry& entry, int code) = 0;
  /// A folder after its content.
  virtual int leave(const TreeEntry& entry) = 0;
};

/// Visits everything below `root`, each level in the directory's own order; entries are read before the first of
/// them is visited. 0, or the errno value that ended the walk.
int walkTree(UniqueFd root, TreeVisitor& visitor);

/// The names in a folder, without "." and ".."; an errno value in `code` when reading failed.
std::vector<char> readFolderRecords(int folder, int& code);

/// A record of readFolderRecords at `offset`, which is moved to the next one.
struct FolderRecord {
  const char* name;
  unsigned char type;  ///< DT_REG, DT_DIR, ... or DT_UNKNOWN
};
bool nextFolderRecord(const std::vector<char>& records, std::size_t& offset, FolderRecord& record);

}  // namespace vistrelle::platform
