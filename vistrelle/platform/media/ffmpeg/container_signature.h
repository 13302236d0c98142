#pragma once

#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// libavformat's name of the container whose signature stands at the beginning of `bytes`; null for another beginning.
/// Signatures of ISO/IEC 14496-12 and QuickTime, Matroska (RFC 8794), AVI, Ogg (RFC 3533), FLV and ASF.
const char* containerOf(InputBytes& bytes);

}  // namespace vistrelle::platform
