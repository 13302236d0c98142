#include "vistrelle/platform/media/ffmpeg/frame_survey.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_set>

namespace vistrelle::platform {

namespace {

constexpr std::int64_t kSmallFile = std::int64_t{16} << 20;
constexpr int kPlaces = 16;
constexpr int kPacketsAPlace = 48;
constexpr int kPacketsAtHead = 256;

struct Findings {
  bool missing = false;
  bool doubled = false;
  bool backwards = false;
  bool reordered = false;  // presentation and decoding times differ somewhere
  std::int64_t earliest = std::numeric_limits<std::int64_t>::max();
};

class Survey {
 public:
  Survey(Demuxer& demuxer, int streamIndex) : demuxer_(demuxer), streamIndex_(streamIndex), packet_(av_packet_alloc()) {
    demuxer_.selectStream(streamIndex);
  }

  // `joining`: what comes first after a jump may be the rest of a frame whose time was before it.
  Findings read(int packets, bool joining) {
    Findings found;
    if (!packet_) return found;
    const AVCodecParameters& parameters = *demuxer_.stream(streamIndex_)->codecpar;
    // The second field of an H.264 frame is a packet of its own and need not have a time.
    const bool hasFields = parameters.codec_id == AV_CODEC_ID_H264 && parameters.field_order > AV_FIELD_PROGRESSIVE;
    std::unordered_set<std::int64_t> times;
    std::int64_t lastDts = std::numeric_limits<std::int64_t>::min();
    for (int count = 0; count < packets && demuxer_.read(*packet_) >= 0;) {
      if (packet_->stream_index != streamIndex_ || packet_->size <= 0) continue;
      const bool isFirst = count++ < 2 && joining;
      if (packet_->pts == AV_NOPTS_VALUE) {
        found.missing |= !isFirst && !hasFields;
      } else {
        found.doubled |= !times.insert(packet_->pts).second && !hasFields;
        found.earliest = std::min(found.earliest, packet_->pts);
      }
      if (packet_->dts == AV_NOPTS_VALUE) continue;
      found.reordered |= packet_->pts != packet_->dts;
      // Where a joined movie's clock was made to run on, decoding times of the parts overlap by the reordering.
      found.backwards |= packet_->dts < lastDts && !demuxer_.runsOn();
      lastDts = packet_->dts;
    }
    return found;
  }

 private:
  Demuxer& demuxer_;
  int streamIndex_;
  AvPtr<AVPacket> packet_;
};

bool isNamed(const Demuxer& demuxer, std::string_view name) {
  return demuxer.context()->iformat->name == name;
}

bool contradictsAtPlaces(Demuxer& demuxer, Survey& survey, std::int64_t size) {
  std::int64_t former = std::numeric_limits<std::int64_t>::min();
  for (int place = 0; place < kPlaces; ++place) {
    if (place > 0 && demuxer.seek(-1, size / kPlaces * place, AVSEEK_FLAG_BYTE) < 0) return false;
    const Findings found = survey.read(kPacketsAPlace, place > 0);
    if (found.doubled || found.backwards) return true;
    if (found.earliest == std::numeric_limits<std::int64_t>::max()) continue;
    if (found.earliest <= former) return true;
    former = found.earliest;
  }
  return false;
}

// Matroska cannot store a time before its zero: such frames come without one.
bool beginsUntimed(FramePackets& packets) {
  constexpr std::size_t kHead = 8;
  while (packets.queue().size() < kHead && packets.readMore()) {
  }
  return std::any_of(packets.queue().begin(), packets.queue().end(),
                     [](const AvPtr<AVPacket>& packet) { return packet->pts == AV_NOPTS_VALUE; });
}

TimesKind surveyPackets(MovieSource& source, int streamIndex) {
  std::string error;
  const std::unique_ptr<Demuxer> demuxer = source.makeDemuxer(&error);
  if (!demuxer || streamIndex >= demuxer->streamCount()) return TimesKind::stated;  // opening it again will tell
  Survey survey(*demuxer, streamIndex);
  const std::int64_t size = demuxer->context()->pb == nullptr ? 0 : avio_size(demuxer->context()->pb);
  const bool isSmall = size <= kSmallFile;
  if (!isSmall && (isNamed(*demuxer, "mpegts") || isNamed(*demuxer, "mpeg"))) {
    return contradictsAtPlaces(*demuxer, survey, size) ? TimesKind::contradictory : TimesKind::stated;
  }
  const Findings found = survey.read(isSmall ? std::numeric_limits<int>::max() : kPacketsAtHead, false);
  // MXF states decoding times in place of presentation times for what it wraps frame by frame.
  const bool isReordered = demuxer->stream(streamIndex)->codecpar->video_delay > 0;
  const bool lies = isNamed(*demuxer, "mxf") && isReordered && !found.reordered;
  if (found.doubled || found.backwards || lies) return TimesKind::contradictory;
  return found.missing ? TimesKind::incomplete : TimesKind::stated;
}

}  // namespace

TimesKind surveyTimes(MovieSource& source, int streamIndex, FramePackets& opened) {
  const Demuxer& demuxer = *opened.demuxer();
  if (demuxer.isMovFamily()) return TimesKind::stated;
  if (demuxer.isMatroska()) return beginsUntimed(opened) ? TimesKind::contradictory : TimesKind::stated;
  const bool hasNoTimes = isNamed(demuxer, "avi") || (demuxer.context()->iformat->flags & AVFMT_NOTIMESTAMPS) != 0;
  return hasNoTimes ? TimesKind::notStated : surveyPackets(source, streamIndex);
}

}  // namespace vistrelle::platform
