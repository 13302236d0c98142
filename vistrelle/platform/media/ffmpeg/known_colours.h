#pragma once

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Some readers and decoders of libavformat and libavcodec (5.1: Matroska, ProRes) hand on numbers of colour as a file
/// has them, in enumerations, which C++ must not even read with a value beyond their own. Numbers that libavutil does
/// not know become "unspecified". For every frame and all parameters, before anything else looks at them.
void keepKnownColours(AVFrame& frame);
void keepKnownColours(AVCodecParameters& parameters);

}  // namespace vistrelle::platform
