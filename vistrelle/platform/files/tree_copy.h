#pragma once

#include <string>

namespace vistrelle::platform {

struct CopyOptions {
  bool keepOwner = false;  ///< as far as the process may
  bool flush = false;      ///< to the disk before the answer
};

/// Copies `name` of the folder open at `from` to `newName` in the folder open at `to`, where nothing may be yet:
/// folders with all they hold, links as links, modes and times. A copy that failed is removed. 0 or an errno value;
/// EINVAL when `to` lies inside the item itself.
int copyTreeAt(int from, const std::string& name, int to, const std::string& newName, CopyOptions options);

}  // namespace vistrelle::platform
