#pragma once

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavformat/avformat.h>
}

#include <string>

namespace vistrelle::platform {

/// The four characters of a stream's codec: those that the container stores, where it stores four (AVI, ASF, Matroska's
/// compatibility tracks, IVF, NUT, RealMedia); else those of the same codec in a QuickTime movie. Empty where neither
/// is known. Not for the MOV family, whose sample entries are read as they are.
std::string codecCode(const AVFormatContext& container, const AVCodecParameters& parameters);

}  // namespace vistrelle::platform
