#include "vistrelle/platform/bundle/bundle.h"

#include <unistd.h>

#include <climits>

#include "vistrelle/platform/bundle/folder_bundle.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {
namespace {

std::string executableFolder() {
  char target[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", target, sizeof target);
  if (length <= 0) return "/";
  return deletingLastPathComponent(std::string_view(target, static_cast<std::size_t>(length)));
}

/// A tool without resources of its own: no name, no tables.
class BareTool : public Bundle {
 public:
  OptionalText name() const override { return std::nullopt; }
  std::string resourcePath() const override { return executableFolder(); }
  OptionalText pathForResource(std::string_view name, std::string_view type) const override {
    return resourceInFolder(executableFolder(), name, type);
  }
  std::string localizedString(std::string_view key, std::string_view fallback, std::string_view) const override {
    return std::string(fallback.empty() ? key : fallback);
  }
};

}  // namespace

Seam<Bundle>& mainBundle() {
  static Seam<Bundle> seam([]() -> std::shared_ptr<Bundle> { return std::make_shared<BareTool>(); });
  return seam;
}

}  // namespace vistrelle::platform
