#pragma once

#include <memory>
#include <string>

#include "tests/platform/media/movie_loading.h"
#include "vistrelle/platform/media/confined/confined_asset.h"
#include "vistrelle/platform/media/confined/confined_library.h"

namespace vistrelle::testing {

/// The library of the test program, made before any thread was. A system call that its workers are not allowed ends
/// them, so that none goes unnoticed.
std::shared_ptr<platform::ConfinedMediaLibrary> confinedLibrary();

/// The asset, loaded by a worker; empty when it cannot be opened or loading does not end.
inline std::shared_ptr<platform::ConfinedAsset> loadedConfined(
    const std::string& path, const std::shared_ptr<platform::ConfinedMediaLibrary>& library = confinedLibrary()) {
  const auto asset = std::dynamic_pointer_cast<platform::ConfinedAsset>(library->openAsset(path, {}));
  return asset && load(*asset) ? asset : nullptr;
}

}  // namespace vistrelle::testing
