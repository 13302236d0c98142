#include "vistrelle/platform/media/ffmpeg/decoder_check.h"

#include "vistrelle/platform/media/ffmpeg/decoders.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {

bool decoderOpens(const AVCodecParameters& parameters, const MediaLimits& limits) {
  const AVCodec* codec = findDecoder(parameters.codec_id);
  if (codec == nullptr) return false;
  const AvPtr<AVCodecContext> context(avcodec_alloc_context3(codec));
  if (!context || avcodec_parameters_to_context(context.get(), &parameters) < 0) return false;
  context->thread_count = 1;  // nothing is decoded, so no thread is worth its start
  context->max_pixels = limits.maxPixels;
  return avcodec_open2(context.get(), codec, nullptr) >= 0;
}

}  // namespace vistrelle::platform
