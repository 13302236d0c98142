#pragma once

#include <memory>

#include "vistrelle/platform/media/asset.h"

namespace vistrelle::platform {

/// The same generator, one picture ahead: of an announced list it works out the next picture on a thread of its own
/// while its user is busy with the one before. Holds one picture more; asks one at a time, in the announced order.
/// What was not announced is asked for when it is wanted, as ever. Empty for an empty pointer.
std::unique_ptr<ImageGenerator> workingAhead(std::unique_ptr<ImageGenerator> generator);

}  // namespace vistrelle::platform
