#include "vistrelle/platform/media/ffmpeg/duration_by_decoding.h"

#include <algorithm>
#include <cmath>

#include "vistrelle/platform/imaging/processors.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/decoders.h"

namespace vistrelle::platform {
namespace {

// Encoders count the last frame, priming sound and rounding differently; that makes no header a liar.
constexpr double kTolerance = 0.5;

class DecodedSpan {
 public:
  explicit DecodedSpan(AVRational timeBase) : timeBase_(timeBase) {}

  void add(const AVFrame& frame) {
    const std::int64_t time = frame.best_effort_timestamp;
    if (time == AV_NOPTS_VALUE) return;
    std::int64_t length = frameDuration(frame);
    if (frame.nb_samples > 0 && frame.sample_rate > 0) {
      length = av_rescale_q(frame.nb_samples, {1, frame.sample_rate}, timeBase_);
    } else if (length <= 0 && any_ && time > last_) {
      length = time - last_;
    }
    first_ = any_ ? std::min(first_, time) : time;
    last_ = any_ ? std::max(last_, time) : time;
    end_ = std::max(any_ ? end_ : time, av_sat_add64(time, length));
    any_ = true;
  }

  MediaTime duration() const {
    if (!any_ || timeBase_.num <= 0 || timeBase_.den <= 0) return MediaTime::zero();
    std::int64_t ticks = av_sat_sub64(end_, first_);
    if (__builtin_mul_overflow(ticks, std::int64_t{timeBase_.num}, &ticks)) return MediaTime::positiveInfinity();
    return MediaTime::make(ticks, timeBase_.den);
  }

 private:
  AVRational timeBase_;
  bool any_ = false;
  std::int64_t first_ = 0;
  std::int64_t last_ = 0;
  std::int64_t end_ = 0;
};

AvPtr<AVCodecContext> openDecoder(const AVCodecParameters& parameters, AVRational timeBase, const MediaLimits& limits) {
  const AVCodec* codec = findDecoder(parameters.codec_id);
  if (codec == nullptr) return nullptr;
  AvPtr<AVCodecContext> decoder(avcodec_alloc_context3(codec));
  if (!decoder || avcodec_parameters_to_context(decoder.get(), &parameters) < 0) return nullptr;
  decoder->pkt_timebase = timeBase;
  decoder->thread_count = processorShareLimit();  // 0: as many as there are processors
  decoder->max_pixels = limits.maxPixels;
  if (avcodec_open2(decoder.get(), codec, nullptr) < 0) return nullptr;
  return decoder;
}

}  // namespace

bool isHeaderDoubtful(const MovieSource& source, int streamIndex) {
  const StreamFacts& facts = source.streams()[static_cast<std::size_t>(streamIndex)];
  if (facts.isProtected || !facts.isDecodable) return false;
  if (facts.notes.reachesBeyondFile) return true;
  const MediaTime stated = facts.notes.headerDuration;
  const MediaTime present = facts.notes.sampleDuration.isValid() ? facts.notes.sampleDuration : facts.range.duration;
  // The header of a movie in fragments may leave its duration open.
  if (!stated.isNumeric() || !present.isNumeric() || stated.value == 0) return false;
  return std::abs(stated.seconds() - present.seconds()) > kTolerance;
}

MediaTime decodedDuration(MovieSource& source, int streamIndex) {
  const StreamFacts& facts = source.streams()[static_cast<std::size_t>(streamIndex)];
  const std::unique_ptr<Demuxer> demuxer = source.openDemuxer(nullptr);
  const AvPtr<AVPacket> packet(av_packet_alloc());
  const AvPtr<AVFrame> frame(av_frame_alloc());
  if (!demuxer || !packet || !frame) return MediaTime::invalid();
  const AvPtr<AVCodecContext> decoder = openDecoder(*facts.parameters, source.timeBase(streamIndex), demuxer->limits());
  if (!decoder) return MediaTime::invalid();
  demuxer->selectStream(streamIndex);
  DecodedSpan span(source.timeBase(streamIndex));
  for (bool atEnd = false; !atEnd;) {
    atEnd = demuxer->read(*packet) < 0;
    if (!atEnd && packet->stream_index != streamIndex) continue;
    const int sent = avcodec_send_packet(decoder.get(), atEnd ? nullptr : packet.get());
    int received = 0;
    while ((received = avcodec_receive_frame(decoder.get(), frame.get())) >= 0) span.add(*frame);
    // Another refused packet is a frame less.
    if (sent == AVERROR(ENOMEM) || received == AVERROR(ENOMEM)) return MediaTime::invalid();
  }
  const bool isWhole = !source.interrupt()->requested && demuxer->failure() == 0;
  return isWhole ? span.duration() : MediaTime::invalid();
}

}  // namespace vistrelle::platform
