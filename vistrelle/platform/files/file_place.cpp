#include "vistrelle/platform/files/file_place.h"

#include <fcntl.h>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/random.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle::platform {

FilePlace placeOf(std::string_view path) {
  if (path.empty()) return {UniqueFd(), "", ENOENT};
  if (path.find('\0') != std::string_view::npos) return {UniqueFd(), "", EINVAL};
  std::string parent = deletingLastPathComponent(path);
  std::string name = lastPathComponent(path);
  if (name == "." || name == "..") {
    const std::string real = canonicalPath(path);
    if (real.empty()) return {UniqueFd(), "", ENOENT};
    parent = deletingLastPathComponent(real);
    name = lastPathComponent(real);
  }
  if (name == "/") return {UniqueFd(), "", EBUSY};
  UniqueFd folder(::open(parent.empty() ? "." : parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!folder) return {UniqueFd(), "", errno};
  return {std::move(folder), std::move(name), 0};
}

std::string temporaryName() {
  return format(".vistrelle-{:08x}{:08x}", randomSource().get()->next(), randomSource().get()->next());
}

}  // namespace vistrelle::platform
