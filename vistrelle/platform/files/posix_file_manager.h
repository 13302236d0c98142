#pragma once

#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {

/// The operating system's files. Holds nothing.
class PosixFileManager : public FileManager {
 public:
  bool canOpenForReading(const std::string& path) override;
  bool canOpenForUpdating(const std::string& path) override;
  bool exists(const std::string& path) override;
  bool isFolder(const std::string& path) override;
  std::optional<FileAttributes> attributes(const std::string& path, bool followLink) override;
  VolumeAnswer volumeAttributes(const std::string& path) override;
  OptionalText linkDestination(const std::string& path) override;
  OptionalText resolvedPath(const std::string& path) override;
  std::optional<std::vector<std::string>> entries(const std::string& folder) override;
  FileResult visitTree(const std::string& folder, bool withSizes,
                       const std::function<void(const TreeItem&)>& visit) override;
  std::optional<Data> contents(const std::string& path, std::int64_t limit) override;
  FileResult remove(const std::string& path) override;
  FileResult move(const std::string& source, const std::string& destination) override;
  FileResult copy(const std::string& source, const std::string& destination) override;
  FileResult makeFolder(const std::string& path, std::optional<std::uint32_t> permissions) override;
  FileResult makeNewFolder(const std::string& path) override;
  FileResult setPermissions(const std::string& path, std::uint32_t permissions) override;
  FileResult setModificationDate(const std::string& path, Date date) override;
  FileResult makeSymbolicLink(const std::string& target, const std::string& link) override;
  FileResult writeInPlace(const std::string& path, Bytes bytes) override;
  FileResult writeByReplacing(const std::string& path, Bytes bytes) override;
};

}  // namespace vistrelle::platform
