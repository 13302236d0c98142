#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// The byte that uncompressed sound, or sound of packets that stand for themselves, is silent with; nothing for
/// codings of which that is not known.
std::optional<std::uint8_t> silentByte(const AVCodecParameters& parameters);

/// A packet of `samples` samples that a decoder for `parameters` plays as silence, whatever number of them follow each
/// other. Made by libavcodec's encoder and tried with its decoder; empty where there is none or the trial fails.
std::vector<std::uint8_t> silentPacket(const AVCodecParameters& parameters, int samples);

}  // namespace vistrelle::platform
