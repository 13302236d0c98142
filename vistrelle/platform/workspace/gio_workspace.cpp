#include <gio/gio.h>

#include <cstdlib>
#include <filesystem>

#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/workspace/workspace.h"

namespace vistrelle::platform {
namespace {

struct GioDeleter {
  void operator()(GFile* file) const { g_object_unref(file); }
  void operator()(GError* error) const { g_error_free(error); }
};
template <typename T>
using GioPtr = std::unique_ptr<T, GioDeleter>;

bool moveToTrash(const std::string& path) {
  // GIO drops ".." from a path by its text alone; the resolved place means the same to it as to the kernel.
  const std::string place = canonicalPath(path);
  if (place.empty()) return false;
  // The local file system only: the default one would look for its helpers on the message bus.
  const GioPtr<GFile> file(g_vfs_get_file_for_path(g_vfs_get_local(), place.c_str()));
  GError* error = nullptr;
  const bool moved = g_file_trash(file.get(), nullptr, &error);
  const GioPtr<GError> owned(error);
  return moved;
}

bool launchDefault(const std::string& url) {
  GError* error = nullptr;
  const bool launched = g_app_info_launch_default_for_uri(url.c_str(), nullptr, &error);
  const GioPtr<GError> owned(error);
  return launched;
}

bool hasDisplay() {
  for (const char* name : {"WAYLAND_DISPLAY", "DISPLAY"}) {
    const char* value = std::getenv(name);
    if (value && *value) return true;
  }
  return false;
}

class GioWorkspace : public Workspace {
 public:
  void noteFileSystemChanged(const std::string&) override {}

  bool recycle(const std::string& folder, const std::vector<std::string>& names) override {
    bool all = true;
    for (const std::string& name : names) all = moveToTrash(appendingPathComponent(folder, name)) && all;
    return all;
  }

  bool openFile(const std::string& path, const std::string& application) override {
    return application.empty() && launchDefault(fileUrlText(path));
  }

  bool openUrl(const Url& url) override { return launchDefault(url.text); }

  bool displayIsAccelerated() override {
    if (!hasDisplay()) return false;
    std::error_code error;
    for (std::filesystem::directory_iterator device("/dev/dri", error), end; !error && device != end;
         device.increment(error)) {
      if (device->path().filename().string().starts_with("renderD")) return true;
    }
    return false;
  }
};

}  // namespace

Seam<Workspace>& workspace() {
  static Seam<Workspace> seam(+[]() -> std::shared_ptr<Workspace> { return std::make_shared<GioWorkspace>(); });
  return seam;
}

}  // namespace vistrelle::platform
