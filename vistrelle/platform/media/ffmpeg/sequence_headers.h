#pragma once

extern "C" {
#include <libavcodec/packet.h>
}

#include <cstdint>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Notices where pictures of another shape begin in a stream of MPEG-1, MPEG-2 or MPEG-4 pictures. libavcodec's
/// decoders of these start anew there and drop the frame that they hold back for reordering, which must therefore be
/// fetched before.
class SequenceHeaders {
 public:
  /// Whether `packet` begins with a header that differs from the last one in what makes decoders start anew. Takes
  /// notice of it: asked again, the answer is no. Never for the first header, nor for other codecs.
  bool changeWith(const AVPacket& packet, AVCodecID codec);
  void forget() { last_.clear(); }

 private:
  std::vector<std::uint8_t> last_;
};

}  // namespace vistrelle::platform
