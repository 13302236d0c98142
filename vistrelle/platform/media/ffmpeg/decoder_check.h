#pragma once

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Whether a decoder for these parameters exists and opens.
bool decoderOpens(const AVCodecParameters& parameters);

}  // namespace vistrelle::platform
