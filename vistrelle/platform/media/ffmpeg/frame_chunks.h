#pragma once

#include <cstdint>
#include <span>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Tells chunks of an AVI file that hold a frame from those that are not empty and yet hold none: headers alone, and
/// frames of MPEG-4 that say that they are not coded. The former frame stays on screen for their period.
class FrameChunks {
 public:
  /// To be asked for each packet in its order. Where nothing is known of the codec, every chunk holds a frame.
  bool holdsFrame(const AVPacket& packet, const AVCodecParameters& parameters);
  void forget() { *this = {}; }

 private:
  bool holdsObjectPlane(std::span<const std::uint8_t> data, const AVCodecParameters& parameters);
  void readObjectLayer(std::span<const std::uint8_t> layer);

  int incrementBits_ = 0;  // of a time in the header of a frame of MPEG-4; 0 while not known
  int owed_ = 0;           // frames that came in one chunk with another: "not coded" chunks stand for them
};

}  // namespace vistrelle::platform
