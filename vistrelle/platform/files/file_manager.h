#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// Why an operation on a file failed: an errno value and the path it was about.
struct FileError {
  int code = 0;
  std::string path;
  /// "No such file or directory (2): '/tmp/a'".
  std::string description() const;
};

/// Success, or the error.
class [[nodiscard]] FileResult {
 public:
  FileResult() = default;
  FileResult(FileError error) : error_(std::move(error)) {}  // NOLINT(google-explicit-constructor)
  /// Success when `code` is 0.
  FileResult(int code, const std::string& path) {
    if (code != 0) error_ = FileError{code, path};
  }
  bool ok() const { return !error_; }
  /// The errno value; 0 on success.
  int code() const { return error_ ? error_->code : 0; }
  /// The error's text; "" on success.
  std::string description() const { return error_ ? error_->description() : ""; }

 private:
  std::optional<FileError> error_;
};

enum class FileKind { regular, folder, symbolicLink, other };

struct FileAttributes {
  FileKind kind = FileKind::other;
  std::int64_t size = 0;          ///< bytes
  std::uint32_t permissions = 0;  ///< the twelve mode bits
  std::uint32_t owner = 0;        ///< user id
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  Date creationDate;  ///< the older of birth time (where the file system has one) and modification time
  Date modificationDate;

  bool sameFile(const FileAttributes& other) const { return device == other.device && inode == other.inode; }
};

struct VolumeAttributes {
  std::uint64_t size = 0;  ///< bytes
  std::uint64_t free = 0;  ///< bytes that an ordinary user may use
  std::uint64_t nodes = 0;
  std::uint64_t freeNodes = 0;
};

/// Attributes, or why there are none.
struct VolumeAnswer {
  std::optional<VolumeAttributes> attributes;
  FileResult result;
};

/// One item below a folder, borrowed for the call.
struct TreeItem {
  std::string_view path;  ///< relative to the folder
  std::int64_t size = 0;  ///< the entry's own, as lstat gives it; only when sizes were asked for
};

using Bytes = std::span<const std::byte>;
inline Bytes bytesOf(std::string_view text) {
  return std::as_bytes(std::span(text));
}

/// Files and folders. Paths are taken as they are: nothing expands "~". No call blocks on what a path names (FIFO,
/// tape, terminal). Any thread.
class FileManager {
 public:
  virtual ~FileManager() = default;

  virtual bool canOpenForReading(const std::string& path) = 0;
  /// For reading and writing; a folder cannot.
  virtual bool canOpenForUpdating(const std::string& path) = 0;
  /// Something is there; links are followed.
  virtual bool exists(const std::string& path) = 0;
  /// A folder, or a link to one.
  virtual bool isFolder(const std::string& path) = 0;
  /// Of what a link points to, or of the link itself.
  virtual std::optional<FileAttributes> attributes(const std::string& path, bool followLink) = 0;
  virtual VolumeAnswer volumeAttributes(const std::string& path) = 0;
  /// The text that a symbolic link holds; absent for anything else.
  virtual OptionalText linkDestination(const std::string& path) = 0;
  /// The path with every link resolved; absent when it names nothing.
  virtual OptionalText resolvedPath(const std::string& path) = 0;
  /// Names of the entries in the directory's own order, hidden ones included; absent when it cannot be read.
  virtual std::optional<std::vector<std::string>> entries(const std::string& folder) = 0;
  /// Every item below a folder, a folder before its content, each level in the directory's own order. Links below
  /// are items and never entered; a folder that cannot be read is an item without content. `folder` may be a link.
  virtual FileResult visitTree(const std::string& folder, bool withSizes,
                               const std::function<void(const TreeItem&)>& visit) = 0;
  /// The bytes of a regular file; absent for anything else and for more than `limit` bytes.
  virtual std::optional<Data> contents(const std::string& path, std::int64_t limit) = 0;

  /// Removes an item, a folder with all it holds; of a link only the link. Stops at the first item that stays.
  virtual FileResult remove(const std::string& path) = 0;
  /// Moves an item to a place where nothing is yet; across file systems copies with owner, mode and times, then
  /// removes. Until the new item is whole it is not at its place and the old one is untouched.
  virtual FileResult move(const std::string& source, const std::string& destination) = 0;
  /// Copies an item to a place where nothing is yet, with modes and times, links as links. The copy appears whole.
  virtual FileResult copy(const std::string& source, const std::string& destination) = 0;
  /// Makes a folder and those above it that are missing; one that exists already is success. With permissions, the
  /// new folder (not those above) has exactly these; otherwise the process's mask decides.
  virtual FileResult makeFolder(const std::string& path, std::optional<std::uint32_t> permissions) = 0;
  /// Makes one folder where nothing is yet.
  virtual FileResult makeNewFolder(const std::string& path) = 0;
  virtual FileResult setPermissions(const std::string& path, std::uint32_t permissions) = 0;
  virtual FileResult setModificationDate(const std::string& path, Date date) = 0;
  virtual FileResult makeSymbolicLink(const std::string& target, const std::string& link) = 0;

  /// Writes a file where it lies, through a link too (a dangling link's target is made). Space is reserved first, so
  /// that a full disk leaves the old file or none; then one write, then the cut to size. What could not be written
  /// whole is taken back: a file that did not exist before is removed, one of which nothing was written keeps its
  /// content, one that is half written is emptied.
  virtual FileResult writeInPlace(const std::string& path, Bytes bytes) = 0;
  /// Writes a temporary in the same folder, flushes it to the disk and renames it over the file: a reader sees the old
  /// or the new file, whole. An existing file's mode is kept, a link stays and its target is replaced. A device or pipe
  /// is written to, as by writeInPlace.
  virtual FileResult writeByReplacing(const std::string& path, Bytes bytes) = 0;
};

Seam<FileManager>& fileManager();

/// Passes everything on; a test overrides the call it wants to fail.
class ForwardingFileManager : public FileManager {
 public:
  explicit ForwardingFileManager(std::shared_ptr<FileManager> next) : next_(std::move(next)) {}
  bool canOpenForReading(const std::string& path) override { return next_->canOpenForReading(path); }
  bool canOpenForUpdating(const std::string& path) override { return next_->canOpenForUpdating(path); }
  bool exists(const std::string& path) override { return next_->exists(path); }
  bool isFolder(const std::string& path) override { return next_->isFolder(path); }
  std::optional<FileAttributes> attributes(const std::string& path, bool followLink) override {
    return next_->attributes(path, followLink);
  }
  VolumeAnswer volumeAttributes(const std::string& path) override { return next_->volumeAttributes(path); }
  OptionalText linkDestination(const std::string& path) override { return next_->linkDestination(path); }
  OptionalText resolvedPath(const std::string& path) override { return next_->resolvedPath(path); }
  std::optional<std::vector<std::string>> entries(const std::string& folder) override { return next_->entries(folder); }
  FileResult visitTree(const std::string& folder, bool withSizes,
                       const std::function<void(const TreeItem&)>& visit) override {
    return next_->visitTree(folder, withSizes, visit);
  }
  std::optional<Data> contents(const std::string& path, std::int64_t limit) override {
    return next_->contents(path, limit);
  }
  FileResult remove(const std::string& path) override { return next_->remove(path); }
  FileResult move(const std::string& source, const std::string& destination) override {
    return next_->move(source, destination);
  }
  FileResult copy(const std::string& source, const std::string& destination) override {
    return next_->copy(source, destination);
  }
  FileResult makeFolder(const std::string& path, std::optional<std::uint32_t> permissions) override {
    return next_->makeFolder(path, permissions);
  }
  FileResult makeNewFolder(const std::string& path) override { return next_->makeNewFolder(path); }
  FileResult setPermissions(const std::string& path, std::uint32_t permissions) override {
    return next_->setPermissions(path, permissions);
  }
  FileResult setModificationDate(const std::string& path, Date date) override {
    return next_->setModificationDate(path, date);
  }
  FileResult makeSymbolicLink(const std::string& target, const std::string& link) override {
    return next_->makeSymbolicLink(target, link);
  }
  FileResult writeInPlace(const std::string& path, Bytes bytes) override { return next_->writeInPlace(path, bytes); }
  FileResult writeByReplacing(const std::string& path, Bytes bytes) override {
    return next_->writeByReplacing(path, bytes);
  }

 private:
  std::shared_ptr<FileManager> next_;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
