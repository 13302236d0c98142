#pragma once

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// Whether a decoder for these parameters exists and opens.
bool decoderOpens(const AVCodecParameters& parameters, const MediaLimits& limits = {});

}  // namespace vistrelle::platform
