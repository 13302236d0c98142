#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace vistrelle::platform {

/// The one deleter of every FFmpeg handle. Format contexts are closed as inputs; their I/O context is not theirs.
struct AvDeleter {
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVCodecParameters* parameters) const { avcodec_parameters_free(&parameters); }
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
  void operator()(AVDictionary* dictionary) const { av_dict_free(&dictionary); }
  void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
  void operator()(SwsContext* context) const { sws_freeContext(context); }
  void operator()(AVIOContext* context) const {
    // libavformat may have replaced the buffer it was given.
    av_freep(&context->buffer);
    avio_context_free(&context);
  }
};

template <typename Handle>
using AvPtr = std::unique_ptr<Handle, AvDeleter>;

}  // namespace vistrelle::platform
