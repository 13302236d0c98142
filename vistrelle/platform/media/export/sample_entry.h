#pragma once

#include <optional>
#include <string>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"
#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::platform {

/// The headers and the sample entry that a stream of another container gets in a QuickTime movie: libavformat writes a
/// movie of this one packet into memory, which is read back. Samples and times are left out. Nothing with an error text
/// when the coding has no sample entry. A decoder that has to look into the packet keeps to `limits`.
std::optional<mov::SampleTables> makeTrackTables(const AVStream& stream, const AVCodecParameters& parameters,
                                                 const AVPacket& first, const MediaLimits& limits, std::string* error);

}  // namespace vistrelle::platform
