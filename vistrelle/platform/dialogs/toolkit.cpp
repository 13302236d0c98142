#include "vistrelle/platform/dialogs/toolkit.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <mutex>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

constexpr const char* kHelperName = "vistrelle-dialog";
constexpr const char* kPluginName = "vistrelle-dialogs-qt.so";

std::string resolved(const char* path) {
  char buffer[PATH_MAX];
  return ::realpath(path, buffer) ? std::string(buffer) : std::string();
}

/// The file that this code was linked into: the executable, or a shared library.
std::string ownFile() {
  static const char anchor = 0;
  Dl_info information{};
  if (::dladdr(&anchor, &information) == 0 || !information.dli_fname) return "";
  return resolved(information.dli_fname);
}

std::vector<std::string> candidateFolders() {
  // A program with more rights than its caller does not let the caller choose what is run.
  if (const char* chosen = ::secure_getenv("VISTRELLE_DIALOGS"); chosen && *chosen) return {chosen};
  std::vector<std::string> folders;
  for (const std::string& file : {resolved("/proc/self/exe"), ownFile()}) {
    if (file.empty()) continue;
    const std::string folder = deletingLastPathComponent(file);
    folders.push_back(folder);
    // bin and lib of an installation, wherever it was moved, and lib's folder for the machine's kind.
    folders.push_back(folder + "/../libexec/vistrelle");
    folders.push_back(folder + "/../../libexec/vistrelle");
  }
  folders.emplace_back(VISTRELLE_DIALOGS_FOLDER);
  return folders;
}

}  // namespace

std::optional<DialogFiles> findDialogFiles() {
  for (const std::string& folder : candidateFolders()) {
    DialogFiles files{appendingPathComponent(folder, kHelperName), appendingPathComponent(folder, kPluginName)};
    if (::access(files.helper.c_str(), X_OK) == 0 && ::access(files.plugin.c_str(), R_OK) == 0) return files;
  }
  return std::nullopt;
}

std::shared_ptr<Toolkit> loadToolkit() {
  static std::mutex mutex;
  static std::shared_ptr<Toolkit> loaded;
  const std::lock_guard lock(mutex);
  if (loaded) return loaded;
  const auto files = findDialogFiles();
  if (!files) {
    log("dialogs             :-( no plug-in '{}'", kPluginName);
    return nullptr;
  }
  // Never unloaded: the toolkit's own threads and exit handlers point into it.
  void* library = ::dlopen(files->plugin.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* symbol = library ? ::dlsym(library, kToolkitSymbol) : nullptr;
  if (!symbol) {
    const char* reason = ::dlerror();
    log("dialogs             :-( '{}': {}", files->plugin, reason ? reason : "no toolkit in it");
    return nullptr;
  }
  loaded.reset(reinterpret_cast<Toolkit* (*)()>(symbol)());
  if (!loaded) log("dialogs             :-( the toolkit's application object is missing");
  return loaded;
}

}  // namespace vistrelle::platform
