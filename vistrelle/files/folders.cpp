#include <cerrno>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/base/random.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/text/unicode.h"

namespace vistrelle {

using platform::expandingTilde;
using platform::fileManager;
using platform::OptionalText;

namespace {

/// Draws the probe folder's name until nothing has it, and makes the folder then, so that what somebody else has there
/// is never taken for the probe. A folder that cannot be made is left to the probe itself to find out.
std::string drawProbeFolder(const std::string& folder) {
  for (;;) {
    const std::string name = platform::format("_ZRdir{}", platform::randomSource().get()->next());
    if (fileManager().get()->makeNewFolder(platform::appendingPathComponent(folder, name)).code() != EEXIST)
      return name;
  }
}

}  // namespace

bool mkdirCocoa(const OptionalText& folder) {
  if (!folder) return false;
  const std::string path = expandingTilde(*folder);
  logVerbose("mkdir               :    '{}'", path);
  const auto files = fileManager().get();
  if (!files->makeFolder(path, 0777).ok()) {
    log("mkdir               :-(  '{}'", path);
    if (!files->makeFolder(path, std::nullopt).ok()) {
      log("mkdir               :-(( '{}'", path);
      return false;
    }
  }
  logVerbose("mkdir               :-)  '{}'", path);
  noteFsChanged(path);
  return true;
}

bool chmodCocoa(const OptionalText& path, std::int64_t mode, const OptionalText& option) {
  if (!path) return false;
  if (option && platform::uppercased(*option) == "R") log("faudra voir comment faire de la récursivité …");
  // Two modes only, and success whatever became of it: intended.
  const auto ignored = fileManager().get()->setPermissions(expandingTilde(*path), mode == 777 ? 0777 : 0755);
  static_cast<void>(ignored);
  return true;
}

bool droitsAcces(const OptionalText& path) {
  if (!path) return false;
  const std::string expanded = expandingTilde(*path);
  const std::string folder = isDirCocoa(expanded) ? expanded : platform::deletingLastPathComponent(expanded);
  const std::string name = drawProbeFolder(folder);
  logVerbose("testStr : {}", name);
  const std::string probe = platform::appendingPathComponent(folder, name);
  const bool granted = mkdirCocoa(probe) && testPresenceCocoa(probe) && rmCocoa(probe) && !testPresenceCocoa(probe);
  log("droitsAcces         ? {} ({})", granted, folder);
  return granted;
}

}  // namespace vistrelle
