#pragma once

#include <string>

namespace vistrelle::platform {

enum class Removing {
  asItIs,
  ownCopy,  ///< a tree that we made ourselves: folders that are closed to writing are opened first
};

/// Removes `name` from the folder open at `folder`, with all it holds when it is a folder; of a link only the link.
/// Stops at the first item that stays. 0 or an errno value.
int removeTreeAt(int folder, const std::string& name, Removing what = Removing::asItIs);

}  // namespace vistrelle::platform
