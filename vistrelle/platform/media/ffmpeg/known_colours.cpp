#include "vistrelle/platform/media/ffmpeg/known_colours.h"

#include <cstring>

namespace vistrelle::platform {
namespace {

template <typename Code>
void keepKnown(Code& code, Code count, Code unspecified) {
  int value = 0;
  static_assert(sizeof code == sizeof value);
  std::memcpy(&value, &code, sizeof value);
  if (value < 0 || value >= count) code = unspecified;
}

}  // namespace

void keepKnownColours(AVFrame& frame) {
  keepKnown(frame.color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED);
  keepKnown(frame.color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED);
  keepKnown(frame.colorspace, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED);
  keepKnown(frame.color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED);
  keepKnown(frame.chroma_location, AVCHROMA_LOC_NB, AVCHROMA_LOC_UNSPECIFIED);
}

void keepKnownColours(AVCodecParameters& parameters) {
  keepKnown(parameters.color_primaries, AVCOL_PRI_NB, AVCOL_PRI_UNSPECIFIED);
  keepKnown(parameters.color_trc, AVCOL_TRC_NB, AVCOL_TRC_UNSPECIFIED);
  keepKnown(parameters.color_space, AVCOL_SPC_NB, AVCOL_SPC_UNSPECIFIED);
  keepKnown(parameters.color_range, AVCOL_RANGE_NB, AVCOL_RANGE_UNSPECIFIED);
  keepKnown(parameters.chroma_location, AVCHROMA_LOC_NB, AVCHROMA_LOC_UNSPECIFIED);
}

}  // namespace vistrelle::platform
