#include "vistrelle/platform/preferences/user_defaults.h"

#include <errno.h>

#include <cstdlib>

#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {

std::string defaultsPath() {
  const char* variable = std::getenv("XDG_CONFIG_HOME");
  std::string folder = variable ? variable : "";
  if (!folder.starts_with('/')) {
    const std::string home = homeFolder();
    if (!home.starts_with('/') || home == "/") return {};
    folder = appendingPathComponent(home, ".config");
  }
  return appendingPathComponent(appendingPathComponent(folder, "vistrelle"),
                                std::string(program_invocation_short_name) + ".plist");
}

Seam<UserDefaults>& userDefaults() {
  static Seam<UserDefaults> seam([] { return fileDefaults(defaultsPath()); });
  return seam;
}

}  // namespace vistrelle::platform
