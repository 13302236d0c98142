#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Folder listings as full paths in the directory's own order, hidden entries included. Never an empty list: nothing.
namespace vistrelle {

/// Full paths; absent where there are none.
using PathList = std::optional<std::vector<std::string>>;

/// The folder's entries, one level.
PathList lsCocoa(const platform::OptionalText& folder);
/// The entries whose extension equals the given one ignoring case; an absent extension and "" keep those without one.
PathList lsGrepCocoa(const platform::OptionalText& folder, const platform::OptionalText& extension);
/// The paths below the folder that contain the text anywhere, folder names included. Breadth first; once the work list
/// holds 200 entries folders are no longer opened and are judged by their paths, as files are, and as links to folders
/// always are. The empty text is found nowhere.
PathList findCocoa(const platform::OptionalText& folder, const platform::OptionalText& search, bool isCaseInsensitive);

}  // namespace vistrelle

#pragma GCC visibility pop
