#include "vistrelle/platform/media/export/blank_picture.h"

#include <algorithm>
#include <cstring>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/movie_track.h"

namespace vistrelle::platform {
namespace {

std::vector<std::uint8_t> blackJpeg(const AVCodecParameters& parameters) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
  const AvPtr<AVCodecContext> encoder(codec == nullptr ? nullptr : avcodec_alloc_context3(codec));
  const AvPtr<AVFrame> frame(av_frame_alloc());
  const AvPtr<AVPacket> packet(av_packet_alloc());
  if (!encoder || !frame || !packet) return {};
  encoder->width = frame->width = parameters.width;
  encoder->height = frame->height = parameters.height;
  // Tables do not tell how the colours are sampled; black is black in every way.
  encoder->pix_fmt = AV_PIX_FMT_YUVJ420P;
  frame->format = AV_PIX_FMT_YUVJ420P;
  encoder->color_range = AVCOL_RANGE_JPEG;
  encoder->time_base = {1, 1};
  encoder->flags |= AV_CODEC_FLAG_BITEXACT;
  if (avcodec_open2(encoder.get(), codec, nullptr) < 0 || av_frame_get_buffer(frame.get(), 0) < 0) return {};
  for (int plane = 0; plane < AV_NUM_DATA_POINTERS && frame->buf[plane] != nullptr; ++plane) {
    std::memset(frame->buf[plane]->data, plane == 0 ? 0 : 128, frame->buf[plane]->size);
  }
  frame->pts = 0;
  if (avcodec_send_frame(encoder.get(), frame.get()) < 0) return {};
  if (avcodec_send_frame(encoder.get(), nullptr) < 0) return {};
  if (avcodec_receive_packet(encoder.get(), packet.get()) < 0) return {};
  return {packet->data, packet->data + packet->size};
}

const AVCodecParameters* motionJpegOf(const PlannedTrack& plan) {
  const auto first = std::ranges::find_if(plan.pieces, [](const Piece& piece) { return piece.source != nullptr; });
  if (first == plan.pieces.end() || first->source->type != MediaType::video) return nullptr;
  const auto* inFile = dynamic_cast<const MovieTrack*>(first->source->track);
  if (inFile == nullptr || inFile->facts().parameters->codec_id != AV_CODEC_ID_MJPEG) return nullptr;
  return inFile->facts().parameters.get();
}

bool hasEmptyEditBehindOthers(const std::vector<mov::Edit>& edits) {
  const auto first = std::ranges::find_if(edits, [](const mov::Edit& edit) { return edit.mediaTime >= 0; });
  return std::any_of(first, edits.end(), [](const mov::Edit& edit) { return edit.mediaTime < 0; });
}

}  // namespace

void addBlankPicture(PlannedTrack& plan) {
  const AVCodecParameters* parameters = motionJpegOf(plan);
  if (parameters == nullptr || plan.track.samples.empty() || !hasEmptyEditBehindOthers(plan.track.edits)) return;
  plan.ownBytes = blackJpeg(*parameters);
  if (plan.ownBytes.empty()) return;
  // It takes the time by which the others were to be shown later, so that nothing of them is shown before the longest
  // empty edit's length; and without composition offsets no packets behind an edit's end are handed out either.
  const std::int32_t later = plan.track.samples.front().compositionOffset;
  for (mov::WrittenSample& sample : plan.track.samples) sample.compositionOffset -= later;
  mov::WrittenSample blank = plan.track.samples.front();
  blank.offset = 0;
  blank.size = blank.bytes = static_cast<std::uint32_t>(plan.ownBytes.size());
  blank.duration = static_cast<std::uint32_t>(later);
  plan.track.samples.insert(plan.track.samples.begin(), blank);
  plan.track.samples[1].startsChunk = true;
  for (PlannedTrack::Origin& origin : plan.origins) ++origin.end;
  plan.origins.insert(plan.origins.begin(), {1, nullptr});
}

}  // namespace vistrelle::platform
