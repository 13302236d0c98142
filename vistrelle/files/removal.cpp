#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/protected_places.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/text.h"

namespace vistrelle {

using platform::fileManager;

namespace {

std::string volumeDescription(const platform::VolumeAnswer& volume) {
  if (!volume.attributes) return "nil";
  const auto& found = *volume.attributes;
  return shortDescription(Value(platform::Dictionary{{"NSFileSystemFreeNodes", found.freeNodes},
                                                     {"NSFileSystemFreeSize", found.free},
                                                     {"NSFileSystemNodes", found.nodes},
                                                     {"NSFileSystemSize", found.size}}));
}

bool isRefused(const std::string& path) {
  switch (protectionOf(path)) {
    case Protection::none:
      return false;
    case Protection::silent:
      return true;
    case Protection::topFolder:
      log("alerte de sécurité dirname");
      return true;
    case Protection::wildcard:
      log("alerte de sécurité joker");
      return true;
  }
  return true;
}

/// False when the item is still there.
bool removeOrTrash(const std::string& path) {
  logVerbose("File current        : exists: {}", path);
  if (fileManager().get()->remove(path).ok()) return true;
  log("File current        :-( not deleted 1");
  trashCocoa(path);
  log("File current        :-/ …to trash");
  if (!testPresenceCocoa(path)) return true;
  log("File current        :-( failure");
  return false;
}

/// An item that the existence test does not see. True when the file system does not see it either.
bool isReallyAbsent(const std::string& path) {
  const auto files = fileManager().get();
  const auto volume = files->volumeAttributes(path);
  if (isVerbose()) log("rmCocoa d           : {}", volumeDescription(volume));
  if (volume.result.ok()) {
    log("Cocoa:exists!!!     :-( {}", path);
    return false;
  }
  logVerbose("Cocoa:does not exist:-/ ERR: {} ({})", volume.result.description(), path);
  const auto removed = files->remove(path);  // a dangling link goes here
  logVerbose("Cocoa:does not exist;-) ERR: {} ({})", removed.ok() ? "nil" : removed.description(), path);
  return true;
}

}  // namespace

bool rmCocoa(const OptionalText& path) {
  if (!path) return false;
  logVerbose("rmCocoa             - begin - {}", *path);
  const std::string expanded = platform::expandingTilde(*path);
  if (isRefused(expanded)) return false;
  if (testPresenceCocoa(expanded)) {
    if (!removeOrTrash(expanded)) return false;
  } else if (isReallyAbsent(expanded)) {
    return true;
  }
  logVerbose("rmCocoa             - pre-fin");
  noteFsChanged(expanded);
  logVerbose("rmCocoa             - end - {}", expanded);
  return true;
}

}  // namespace vistrelle
