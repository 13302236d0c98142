#pragma once

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// Whether a muxer can be let read the parameter sets of a stream, those of its extradata or, without any, of its first
/// packet. Only HEVC in its byte stream format (ITU-T H.265, Annex B) is looked at: libavformat's muxer counts what its
/// sets say without a bound, for hours where they lie, and cannot be interrupted. Its decoder has bounds.
bool hasSoundParameterSets(const AVCodecParameters& parameters, const AVPacket& first, const MediaLimits& limits);

}  // namespace vistrelle::platform
