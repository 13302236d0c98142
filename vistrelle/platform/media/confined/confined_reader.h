#pragma once

#include <memory>

#include "vistrelle/platform/media/asset_reader.h"

namespace vistrelle::platform {

class ConfinedMovie;

/// Reads samples of the movie's tracks through its worker.
std::unique_ptr<AssetReader> makeConfinedReader(std::shared_ptr<ConfinedMovie> movie);

}  // namespace vistrelle::platform
