#include "vistrelle/files/queries.h"

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/workspace/workspace.h"

namespace vistrelle {

using platform::expandingTilde;
using platform::fileManager;
using platform::OptionalText;
using platform::OptionalValue;

bool testPresenceCocoa(const OptionalValue& object) {
  if (!object) return false;
  const std::string text = platform::description(*object);
  if (text.empty()) return false;
  const std::string path = expandingTilde(text);
  noteFsChanged(path);
  const auto files = fileManager().get();
  // An unreadable file counts as absent, but behind a link it counts as there.
  const bool exists = files->canOpenForReading(path) || (files->exists(path) && files->linkDestination(path));
  if (isVerbose()) log("pathStr             :-{} '{}'", mood(exists), platform::lastPathComponent(path));
  return exists;
}

void noteFsChanged(const OptionalText& path) {
  if (path) platform::workspace().get()->noteFileSystemChanged(*path);
}

bool isDirCocoa(const OptionalText& path) {
  return path && fileManager().get()->isFolder(*path);
}

bool isWritableCocoa(const OptionalText& path) {
  return path && fileManager().get()->canOpenForUpdating(expandingTilde(*path));
}

std::string fileNameOfPath(const OptionalText& path) {
  return path ? platform::lastPathComponent(expandingTilde(*path)) : "";
}

std::string fileBaseNameOfPath(const OptionalText& path) {
  return platform::deletingPathExtension(fileNameOfPath(path));
}

std::optional<std::vector<std::string>> listAllPathsCocoa(const OptionalText& folder) {
  if (!folder) return std::nullopt;
  const std::string expanded = expandingTilde(*folder);
  std::vector<std::string> paths;
  const auto walked = fileManager().get()->visitTree(expanded, false, [&](const platform::TreeItem& item) {
    std::string& path = paths.emplace_back();
    path.reserve(expanded.size() + 1 + item.path.size());
    path.append(expanded).append(1, '/').append(item.path);
  });
  // A walk that broke off, or never began, leaves what it found.
  static_cast<void>(walked);
  if (paths.empty()) return std::nullopt;
  return paths;
}

OptionalText symlinkDestinationCocoa(const OptionalText& path) {
  if (!path) return std::nullopt;
  return fileManager().get()->linkDestination(expandingTilde(*path));
}

OptionalText resolveAliasPath(const OptionalText& path) {
  if (!path) return std::nullopt;
  const std::string expanded = expandingTilde(*path);
  const auto files = fileManager().get();
  if (!files->linkDestination(expanded)) return path;
  const OptionalText target = files->resolvedPath(expanded);
  return target ? target : path;
}

bool setModificationDate(const OptionalText& path, const std::optional<platform::Date>& date) {
  if (!testPresenceCocoa(path) || !date) return false;
  return fileManager().get()->setModificationDate(expandingTilde(*path), *date).ok();
}

}  // namespace vistrelle
