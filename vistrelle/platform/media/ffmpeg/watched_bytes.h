#pragma once

#include <memory>

#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// `bytes`, counting the reads that fail; an end before the stated size is such a failure. The bytes of files that the
/// movie refers to count into the same number.
std::shared_ptr<InputBytes> watchedBytes(std::shared_ptr<InputBytes> bytes);

}  // namespace vistrelle::platform
