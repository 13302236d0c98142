#include "vistrelle/platform/media/ffmpeg/first_frame.h"

#include "vistrelle/platform/media/ffmpeg/decoders.h"
#include "vistrelle/platform/media/ffmpeg/known_colours.h"

namespace vistrelle::platform {
namespace {

// Reordering, cut streams that begin in the middle of a group, and damage: more than this before a first frame is none.
constexpr int kMaxPackets = 300;

}  // namespace

std::shared_ptr<const FirstFrame> readFirstFrame(Demuxer& demuxer, int streamIndex,
                                                 const AVCodecParameters& parameters) {
  const AVCodec* codec = findDecoder(parameters.codec_id);
  if (codec == nullptr) return nullptr;
  const AvPtr<AVCodecContext> decoder(avcodec_alloc_context3(codec));
  const AvPtr<AVPacket> packet(av_packet_alloc());
  auto first = std::make_shared<FirstFrame>();
  first->frame.reset(av_frame_alloc());
  if (!decoder || !packet || !first->frame) return nullptr;
  if (avcodec_parameters_to_context(decoder.get(), &parameters) < 0) return nullptr;
  decoder->thread_count = 1;  // several frames in flight would be read and decoded for one
  decoder->max_pixels = demuxer.limits().maxPixels;
  if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return nullptr;
  demuxer.selectStream(streamIndex);
  bool atEnd = false;
  for (int packets = 0; packets < kMaxPackets && !atEnd;) {
    const int status = demuxer.read(*packet);
    if (status == AVERROR_EXIT) return nullptr;
    atEnd = status < 0;
    if (!atEnd && packet->stream_index != streamIndex) continue;
    ++packets;
    const int sent = avcodec_send_packet(decoder.get(), atEnd ? nullptr : packet.get());
    if (sent == AVERROR(ENOMEM)) return nullptr;  // other refused ones are followed by better ones
    if (avcodec_receive_frame(decoder.get(), first->frame.get()) >= 0) {
      keepKnownColours(*first->frame);
      first->profile = decoder->profile;
      return first;
    }
  }
  return nullptr;
}

}  // namespace vistrelle::platform
