#pragma once

#include <cstdint>

#include "vistrelle/movie/queries.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle {

/// Export modes; every other number but -2, which is taken as M4A, writes nothing.
constexpr std::int64_t kExportM4a = -3;
constexpr std::int64_t kExportPassthrough = -1;
constexpr std::int64_t kExportProRes = 2;

/// Writes a movie or a composition to `destination` and waits for it, with a progress line a second on standard error.
/// The result is judged by the file that is there afterwards: true when it has at least a kilobyte. An existing
/// destination is replaced at the end, by a file that was written beside it under a number; a failed export leaves it
/// as it is. One export at a time: they share the flag exportFinished (cli/diagnostics.h).
bool qtAvExport(const Movie& movie, const platform::OptionalText& destination, std::int64_t exportInt);

}  // namespace vistrelle

#pragma GCC visibility pop
