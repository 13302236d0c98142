#pragma once

#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <memory>
#include <string>

#include "tests/platform/media/movie_loading.h"
#include "vistrelle/platform/media/confined/confined_asset.h"
#include "vistrelle/platform/media/confined/confined_library.h"

namespace vistrelle::testing {

/// The library of the test program, made before any thread was. A system call that its workers are not allowed ends
/// them, so that none goes unnoticed.
std::shared_ptr<platform::ConfinedMediaLibrary> confinedLibrary();

/// Waits until the threads of the tests before have gone, a few seconds at most.
inline void awaitOneThread() {
  const auto threads = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), std::filesystem::directory_iterator());
  };
#if defined(__SANITIZE_THREAD__)
  constexpr int kMost = 2;  // one is the sanitizer's
#else
  constexpr int kMost = 1;
#endif
  for (int i = 0; i < 500 && threads() > kMost; ++i) ::usleep(10000);
}

/// The asset, loaded by a worker; empty when it cannot be opened or loading does not end.
inline std::shared_ptr<platform::ConfinedAsset> loadedConfined(
    const std::string& path, const std::shared_ptr<platform::ConfinedMediaLibrary>& library = confinedLibrary()) {
  const auto asset = std::dynamic_pointer_cast<platform::ConfinedAsset>(library->openAsset(path, {}));
  return asset && load(*asset) ? asset : nullptr;
}

}  // namespace vistrelle::testing
