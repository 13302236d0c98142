#pragma once

#include <cerrno>
#include <string>
#include <string_view>

#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// Where an item is or will be: its folder, open, and its name there. Later steps cannot be led elsewhere by a change
/// to the path above it.
struct FilePlace {
  UniqueFd folder;
  std::string name;
  int code = 0;  ///< why there is no place: ENOENT, EACCES, EINVAL for a path with a zero byte, EBUSY for "/", ...
};

/// Links in the last component are not followed. "." and ".." at the end stand for the folder's own name.
FilePlace placeOf(std::string_view path);

/// A hidden name for a temporary, from the random source.
std::string temporaryName();

/// Calls `create(name)` with new temporary names until it answers something else than EEXIST (an errno value, 0 for
/// success), and gives that answer; `name` holds the name then.
template <typename Create>
int createTemporary(std::string& name, const Create& create) {
  int code = EEXIST;
  for (int attempt = 0; code == EEXIST && attempt < 100; ++attempt) {
    name = temporaryName();
    code = create(name);
  }
  return code;
}

}  // namespace vistrelle::platform
