#include "vistrelle/platform/media/ffmpeg/frame_decoder.h"

extern "C" {
#include <libavutil/cpu.h>
}

#include <algorithm>

#include "vistrelle/platform/imaging/processors.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"
#include "vistrelle/platform/media/ffmpeg/known_colours.h"

namespace vistrelle::platform {

namespace {

// More threads hold more frames at a time and gain little.
constexpr int kMostThreads = 8;

int threadCount(FrameDecoder::Threading threading, int wanted) {
  if (threading == FrameDecoder::Threading::one) return 1;
  if (wanted > 0) return wanted;
  // The standard library counts by reading a file, which a confined process cannot.
  const int processors = processorShareOf(av_cpu_count());
  // Of threads that decode a frame each one waits at times for the frame before: one more keeps all processors busy.
  const bool oneMore = threading == FrameDecoder::Threading::frames && processors > 1;
  return std::clamp(processors + (oneMore ? 1 : 0), 1, kMostThreads);
}

// The decoder of an alpha plane that lies beside the picture, which libavcodec's own decoders of VP8 and VP9 pass over;
// the usual one where there is none.
const AVCodec* withAlpha(const AVCodec* usual, const AVCodecParameters& parameters) {
  if (usual == nullptr || parameters.format != AV_PIX_FMT_YUVA420P) return usual;
  const AVCodec* codec = findDecoderOfAlpha(parameters.codec_id);
  return codec == nullptr ? usual : codec;
}

}  // namespace

std::unique_ptr<FrameDecoder> FrameDecoder::open(const AVCodecParameters& parameters, AVRational timeBase,
                                                 Threading threading, int threads, bool patient, std::string* error,
                                                 const MediaLimits& limits) {
  const AVCodec* codec = withAlpha(findDecoder(parameters.codec_id), parameters);
  std::unique_ptr<FrameDecoder> decoder(new FrameDecoder);
  decoder->context_.reset(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  AVCodecContext* context = decoder->context_.get();
  if (context == nullptr) {
    *error = codec == nullptr ? "no decoder for the movie's pictures" : avErrorText(AVERROR(ENOMEM));
    return nullptr;
  }
  if (!limits.allowsFrame(parameters.width, parameters.height)) {
    *error = "the movie's pictures are too large";
    return nullptr;
  }
  int status = avcodec_parameters_to_context(context, &parameters);
  if (status >= 0) {
    context->pkt_timebase = timeBase;
    context->thread_count = threadCount(threading, threads);
    context->thread_type = threading == Threading::frames ? FF_THREAD_FRAME : FF_THREAD_SLICE;
    if (patient) context->strict_std_compliance = FF_COMPLIANCE_STRICT;
    context->max_pixels = limits.maxPixels;
    decoder->pool_.serve(*context, limits.maxAllocation);
    status = avcodec_open2(context, codec, nullptr);
  }
  if (status < 0) {
    *error = avErrorText(status);
    return nullptr;
  }
  decoder->threading_ = threading;
  decoder->patient_ = patient;
  return decoder;
}

bool FrameDecoder::send(const AVPacket* packet, bool skipNonReference) {
  context_->skip_frame = skipNonReference ? AVDISCARD_NONREF : AVDISCARD_DEFAULT;
  return avcodec_send_packet(context_.get(), packet) >= 0;
}

FrameDecoder::Status FrameDecoder::receive(AVFrame& frame) {
  const int status = avcodec_receive_frame(context_.get(), &frame);
  if (status >= 0) {
    keepKnownColours(frame);
    return Status::frame;
  }
  if (status == AVERROR(EAGAIN)) return Status::needsPacket;
  return status == AVERROR_EOF ? Status::end : Status::error;
}

bool FrameDecoder::givesAtOnce() const {
  return threading_ != Threading::frames && (context_->codec->capabilities & AV_CODEC_CAP_DELAY) == 0;
}

int FrameDecoder::heldBack() const {
  return context_->has_b_frames;
}

void FrameDecoder::flush() {
  avcodec_flush_buffers(context_.get());
}

bool isIntraOnly(AVCodecID codec) {
  const AVCodecDescriptor* descriptor = avcodec_descriptor_get(codec);
  return descriptor != nullptr && (descriptor->props & AV_CODEC_PROP_INTRA_ONLY) != 0;
}

}  // namespace vistrelle::platform
