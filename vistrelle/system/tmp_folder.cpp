#include "vistrelle/system/tmp_folder.h"

#include <unistd.h>

#include <mutex>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {

using platform::FileAttributes;
using platform::fileManager;

namespace {

struct Override {
  std::mutex mutex;
  std::string path;
};

Override& installed() {
  static Override instance;
  return instance;
}

bool isTrusted(const FileAttributes& item) {
  return item.owner == ::geteuid() || item.owner == 0;
}

bool isPrivate(const std::string& path) {
  constexpr std::uint32_t writableByOthers = 0022;
  constexpr std::uint32_t sticky = 01000;
  const auto files = fileManager().get();
  const auto item = files->attributes(path, false);
  const auto folder = files->attributes(path, true);
  if (!item || !folder || folder->kind != platform::FileKind::folder) return false;
  if (!isTrusted(*item) || !isTrusted(*folder)) return false;
  return !(folder->permissions & writableByOthers) || (folder->permissions & sticky);
}

}  // namespace

std::string tmpFolderPath() {
  {
    std::lock_guard lock(installed().mutex);
    if (!installed().path.empty()) return installed().path;
  }
  return "/private/tmp/" + platform::mainBundle().get()->name().value_or("(null)");
}

void tmpFolderSet(const std::string& path) {
  std::lock_guard lock(installed().mutex);
  installed().path = path;
}

bool tmpFolderReady() {
  const std::string path = platform::expandingTilde(tmpFolderPath());
  const auto made = fileManager().get()->makeFolder(path, 0700);
  if (!made.ok()) {
    log("tmpFolderPath       :-( not made: {}", made.description());
    return false;
  }
  if (!isPrivate(path)) {
    log("tmpFolderPath       :-( not private: '{}'", path);
    return false;
  }
  return true;
}

}  // namespace vistrelle
