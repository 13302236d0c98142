#pragma once

#include <cstdint>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Removal, move and copy. A leading "~" is expanded; an absent path gives false. Every deletion of the system goes
/// through rmCocoa.
namespace vistrelle {

/// Removes an item, a folder with all it holds, of a symbolic link only the link; what cannot be removed goes to the
/// Trash. True when the item is gone or was never there; an item that is there but cannot be opened for reading stays
/// and answers true as well. Protected places (protected_places.h) are refused.
bool rmCocoa(const platform::OptionalText& path);

/// Moves an item, across file systems too. An existing destination is replaced only when `overwrite` is exactly "y";
/// true when the destination exists afterwards. A destination that is the source itself, holds it or lies inside it is
/// refused before anything is removed.
bool mv(const platform::OptionalText& source, const platform::OptionalText& destination,
        const platform::OptionalText& overwrite);
/// Copies an item, folders with links as links; `overwrite` and refusals as for mv.
bool cpCocoa(const platform::OptionalText& source, const platform::OptionalText& destination,
             const platform::OptionalText& overwrite);

/// Makes a folder and those above it; the new folder is open to everybody (0777). An existing folder is success.
bool mkdirCocoa(const platform::OptionalText& folder);
/// Sets 0777 for the mode number 777 and 0755 for every other; there is no recursion. True but for an absent path.
bool chmodCocoa(const platform::OptionalText& path, std::int64_t mode, const platform::OptionalText& option);
/// Makes a symbolic link that holds `target`.
bool ln_sCocoa(const platform::OptionalText& target, const platform::OptionalText& link);
/// Whether a folder can be made and removed in the folder, or in the file's folder.
bool droitsAcces(const platform::OptionalText& path);

/// A path for an external tool that holds only harmless characters: a symbolic link to `path` in `folder`, or in the
/// temporary folder when that is absent. The incoming path comes back when it is safe already, when nothing of its
/// name is, and when no link can be made. In the temporary folder an old item of that name is removed; elsewhere only
/// a symbolic link of this user is.
platform::OptionalText toolPathSafe(const platform::OptionalText& path, const platform::OptionalText& folder);

}  // namespace vistrelle

#pragma GCC visibility pop
