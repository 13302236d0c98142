#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace vistrelle::platform {

/// A packet that decoding can begin at with certainty: flagged as key, with a presentation time, and not one of the
/// keys that are none. In HEVC it must really hold a random access picture (a decoder that begins elsewhere shows
/// garbage without an error). An H.264 recovery point that refreshes the picture little by little (recovery_frame_cnt
/// above 0, ITU-T H.264, D.2.8) is not taken either: encoders promise an exact match there and do not keep it.
bool isLandingPacket(const AVPacket& packet, const AVCodecParameters& parameters);

}  // namespace vistrelle::platform
