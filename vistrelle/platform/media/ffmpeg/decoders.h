#pragma once

#include <string>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// The decoder for a codec, from those that movies have a use for and that are FFmpeg's own or known to be safe to
/// feed with anything; null for every other codec, so that no foreign library, device or text art is started by a
/// movie. Thread-safe.
const AVCodec* findDecoder(AVCodecID codec);

/// The names of all those decoders with commas between, as libavformat takes a list.
const std::string& decoderList();

}  // namespace vistrelle::platform
