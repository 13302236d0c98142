#pragma once

#include <string>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// The decoder for a codec, from those that movies have a use for and that are FFmpeg's own or known to be safe to
/// feed with anything; null for every other codec, so that no foreign library, device or text art is started by a
/// movie. Thread-safe.
const AVCodec* findDecoder(AVCodecID codec);

/// The decoder of an alpha plane that lies beside a picture of VP8 or VP9, of the library that those codecs come from;
/// null for every other codec and where FFmpeg is built without it.
const AVCodec* findDecoderOfAlpha(AVCodecID codec);

/// The names of all those decoders with commas between, as libavformat takes a list.
const std::string& decoderList();

}  // namespace vistrelle::platform
