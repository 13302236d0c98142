#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <optional>

namespace vistrelle::platform {

/// A packet that decoding can begin at: flagged as key, with a presentation time, and for HEVC really a random access
/// picture (a decoder that begins elsewhere shows garbage without an error).
bool isLandingPacket(const AVPacket& packet, const AVCodecParameters& parameters);

/// After how many reference frames a decoder that begins at this key packet has recovered: 0 at once; more where an
/// H.264 stream refreshes its pictures little by little (ITU-T H.264, D.2.8).
int framesUntilRecovery(const AVPacket& packet, const AVCodecParameters& parameters);

/// Whether other frames may refer to the H.264 frame of this packet; true for every other codec.
bool isReferenceFrame(const AVPacket& packet, const AVCodecParameters& parameters);

}  // namespace vistrelle::platform
