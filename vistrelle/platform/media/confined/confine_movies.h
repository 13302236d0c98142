#pragma once

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// From now on this process has its movies read and decoded by processes of their own that can reach no file, no
/// network and no other process, as the tool does (docs/security.md): installs a ConfinedMediaLibrary in
/// mediaLibrary(). To be called while the process has one thread, before the first movie is opened. False, with one log
/// line, when movies go on being read in this process.
bool confineMovies();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
