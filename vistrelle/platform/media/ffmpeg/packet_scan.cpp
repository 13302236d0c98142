#include "vistrelle/platform/media/ffmpeg/packet_scan.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kHeadBytes = std::int64_t{4} << 20;
constexpr std::int64_t kPacketsForStart = 32;
constexpr std::int64_t kFirstTailBytes = std::int64_t{1} << 20;
// Above this a movie whose end cannot be found through an index is believed when it states how long it is.
constexpr std::int64_t kMaxScanBytes = std::int64_t{64} << 20;

// Transport and program streams: a part of a joined movie has at least so many pictures.
constexpr std::int64_t kFewestPackets = 8;
constexpr std::int64_t kClockSecond = 90000;

bool isSoundOrPicture(const AVStream& stream) {
  const AVMediaType type = stream.codecpar->codec_type;
  return (type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO) &&
         (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
}

class Scanner {
 public:
  Scanner(Demuxer& demuxer, std::int64_t fileSize)
      : demuxer_(demuxer), fileSize_(fileSize), packet_(av_packet_alloc()) {}

  PacketScan scan() {
    if (!packet_) return failed(AVERROR(ENOMEM));
    result_.streams.resize(static_cast<std::size_t>(demuxer_.streamCount()));
    int status = readHead();
    if (status >= 0) status = readTail();
    if (status >= 0) measure();
    return status < 0 && status != AVERROR_EOF ? failed(status) : std::move(result_);
  }

 private:
  /// What a stream covers until its clock starts again.
  struct Stretch {
    std::int64_t position = -1;  // in bytes, of its first packet
    std::array<std::int64_t, 2> lastPositions{-1, -1};
    std::int64_t count = 0;
    std::optional<std::int64_t> start;
    std::optional<std::int64_t> last;  // the two latest presentation times
    std::optional<std::int64_t> before;
    std::int64_t duration = 0;  // of the latest one, as its packet says
    std::optional<std::int64_t> lastDts;
    std::int64_t untimed = 0;  // packets without a presentation time
    bool isReordered = false;
    bool jumps = false;  // among its first packets the clock goes far ahead
    std::vector<std::int64_t> times;
  };

  PacketScan failed(int status) {
    result_.status = status;
    return std::move(result_);
  }

  void note(const AVPacket& packet) {
    const auto index = static_cast<std::size_t>(packet.stream_index);
    if (index >= result_.streams.size()) result_.streams.resize(index + 1);
    PacketSpan& span = result_.streams[index];
    ++span.count;
    const std::int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    if (time == AV_NOPTS_VALUE || (packet.flags & AV_PKT_FLAG_DISCARD) != 0) return;
    if (inHead_) span.start = span.start ? std::min(*span.start, time) : time;
    Stretch& stretch = stretchOf(packet);
    ++stretch.count;
    stretch.start = stretch.start ? std::min(*stretch.start, time) : time;
    stretch.times.push_back(time);
    if (!stretch.last || time > *stretch.last) {
      stretch.before = std::exchange(stretch.last, time);
      stretch.duration = std::max<std::int64_t>(packet.duration, 0);
    } else if (time < *stretch.last && (!stretch.before || time > *stretch.before)) {
      stretch.before = time;
    }
    if (packet.pts == AV_NOPTS_VALUE) ++stretch.untimed;
    if (packet.dts == AV_NOPTS_VALUE) return;
    const std::int64_t step = av_sat_sub64(packet.dts, stretch.lastDts.value_or(packet.dts));
    stretch.jumps |= stretch.count <= kFewestPackets && step > kClockSecond;
    stretch.lastDts = packet.dts;
    stretch.isReordered |= packet.pts != AV_NOPTS_VALUE && packet.pts > packet.dts;
  }

  Stretch& stretchOf(const AVPacket& packet) {
    std::vector<Stretch>& stretches = stretches_[packet.stream_index];
    std::int64_t& position = positions_[packet.stream_index];
    if (packet.pos >= 0) position = packet.pos;
    if (stretches.empty() || startsAgain(stretches.back(), packet)) {
      stretches.emplace_back();
      stretches.back().position = position;
    }
    std::array<std::int64_t, 2>& last = stretches.back().lastPositions;
    if (last[1] != position) last = {last[1], position};
    return stretches.back();
  }

  // Less than half a second may be a guess at what a packet does not state. libavformat takes a clock that goes far
  // back for one that has gone through its 33 bits.
  static bool isBackwards(std::int64_t former, std::int64_t dts) {
    constexpr std::int64_t kHalfClock = std::int64_t{1} << 32;
    return av_sat_sub64(former, dts) > kClockSecond / 2 || av_sat_sub64(dts, former) > kHalfClock;
  }

  bool startsAgain(const Stretch& former, const AVPacket& packet) const {
    if (!demuxer_.seeksByByte() || !former.lastDts || packet.dts == AV_NOPTS_VALUE) return false;
    return isBackwards(*former.lastDts, packet.dts);
  }

  void forget() {
    stretches_.clear();
    positions_.clear();
    for (PacketSpan& span : result_.streams) span.count = 0;
  }

  /// Rounding to a container's clock makes two neighbouring distances of one rate.
  bool differ(std::vector<std::int64_t>& times) const {
    std::sort(times.begin(), times.end());
    std::int64_t shortest = 0;
    std::int64_t longest = 0;
    for (std::size_t i = 1; i < times.size(); ++i) {
      const std::int64_t distance = av_sat_sub64(times[i], times[i - 1]);
      shortest = i == 1 ? distance : std::min(shortest, distance);
      longest = std::max(longest, distance);
    }
    return longest - shortest > 1;
  }

  // Nothing when a stretch is so short, or so soon goes on elsewhere, that a damaged time is the likelier cause.
  std::shared_ptr<const ClockPieces> clockOf(int reference) const {
    const auto found = stretches_.find(reference);
    if (found == stretches_.end() || found->second.size() < 2) return nullptr;
    const std::vector<Stretch>& stretches = found->second;
    const AVStream& stream = *demuxer_.stream(reference);
    std::vector<ClockPieces::Piece> pieces;
    std::int64_t end = 0;
    for (std::size_t i = 0; i < stretches.size(); ++i) {
      if (stretches[i].count < kFewestPackets || stretches[i].position < 0) return nullptr;
      if (i > 0 && stretches[i].jumps) return nullptr;
      const std::int64_t offset = i == 0 ? 0 : av_sat_sub64(end, *stretches[i].start);
      pieces.push_back({i == 0 ? 0 : firstPositionOf(i, stretches), offset, av_sat_add64(*stretches[i].start, offset)});
      if (i > 0 && pieces[i].position <= pieces[i - 1].position) return nullptr;
      end = av_sat_add64(endOf(stretches[i], stream), offset);
    }
    std::set<std::int64_t> lastPackets;
    for (const auto& [index, parts] : stretches_) {
      for (const Stretch& part : parts) lastPackets.insert(part.lastPositions.begin(), part.lastPositions.end());
    }
    return std::make_shared<const ClockPieces>(std::move(pieces), std::move(lastPackets), fileSize_, end);
  }

  // Of all streams that start again with the pictures the first one says where.
  std::int64_t firstPositionOf(std::size_t number, const std::vector<Stretch>& pictures) const {
    std::int64_t first = pictures[number].position;
    for (const auto& [index, stretches] : stretches_) {
      if (stretches.size() != pictures.size()) continue;
      const std::int64_t position = stretches[number].position;
      if (position > pictures[number - 1].position) first = std::min(first, position);
    }
    return first;
  }

  void measure() {
    if (result_.isComplete) result_.clock = clockOf(av_find_default_stream_index(demuxer_.context()));
    for (auto& [index, stretches] : stretches_) {
      PacketSpan& span = result_.streams[static_cast<std::size_t>(index)];
      std::vector<std::int64_t> times;
      for (const Stretch& stretch : stretches) {
        const std::int64_t offset = result_.clock ? result_.clock->offsetAt(stretch.position) : 0;
        const std::int64_t end = av_sat_add64(endOf(stretch, *demuxer_.stream(index)), offset);
        span.end = span.end ? std::max(*span.end, end) : end;
        for (const std::int64_t time : stretch.times) times.push_back(av_sat_add64(time, offset));
      }
      if (result_.isComplete) span.varies = differ(times);
    }
  }

  static std::int64_t endOf(const Stretch& stretch, const AVStream& stream) {
    const std::int64_t stated = statedEndOf(stretch, stream);
    if (stretch.untimed == 0 || !stretch.lastDts) return stated;
    // Program streams need not say when a frame is shown that they say how to decode. Of those only the last one that
    // others lean on can be shown after all that say it.
    const AVCodecID codec = stream.codecpar->codec_id;
    if (codec != AV_CODEC_ID_MPEG1VIDEO && codec != AV_CODEC_ID_MPEG2VIDEO) return stated;
    const std::int64_t frame = av_sat_sub64(stated, *stretch.last);
    const bool isDelayed = stretch.isReordered && stream.codecpar->video_delay > 0;
    const std::int64_t shown = av_sat_add64(av_sat_add64(*stretch.lastDts, frame), isDelayed ? frame : 0);
    return std::clamp(shown, stated, av_sat_add64(stated, frame));
  }

  static std::int64_t statedEndOf(const Stretch& latest, const AVStream& stream) {
    const bool isPicture = stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
    // Where a container's clock is taken for a frame rate, packets get a duration of one tick.
    const double shortest = isPicture ? 1 / kFastestFrameRate : 0;
    if (static_cast<double>(latest.duration) * av_q2d(stream.time_base) > shortest) {
      return av_sat_add64(*latest.last, latest.duration);
    }
    const std::int64_t repeated = latest.before ? av_sat_sub64(*latest.last, *latest.before) : 0;
    const std::int64_t longest = av_sat_add64(*latest.last, repeated);
    // The end that the container states is taken when it can be true.
    if (stream.duration > 0 && stream.start_time != AV_NOPTS_VALUE) {
      const std::int64_t stated = av_sat_add64(stream.start_time, stream.duration);
      if (stated > *latest.last && stated < longest) return stated;
    }
    return longest;
  }

  template <typename Test>
  bool everyStream(Test test) const {
    for (int i = 0; i < demuxer_.streamCount(); ++i) {
      if (isSoundOrPicture(*demuxer_.stream(i)) && !test(i)) return false;
    }
    return true;
  }

  bool hasEnd(int index) const {
    const auto found = stretches_.find(index);
    return found != stretches_.end() && found->second.back().last.has_value();
  }

  bool isStartKnown(int index) const {
    if (demuxer_.hasStreamInfo()) return demuxer_.stream(index)->start_time != AV_NOPTS_VALUE;
    const auto position = static_cast<std::size_t>(index);
    return position < result_.streams.size() && result_.streams[position].count >= kPacketsForStart;
  }

  /// Until every stream has said where it starts. libavformat notes that when it has looked at decoded frames;
  /// otherwise it is the earliest time of the first packets, among which reordered ones are.
  int readHead() {
    std::int64_t seen = 0;
    int status = 0;
    while (status >= 0 && seen < kHeadBytes && !everyStream([this](int i) { return isStartKnown(i); })) {
      status = demuxer_.read(*packet_);
      if (status < 0) break;
      note(*packet_);
      seen += packet_->size;
    }
    if (status == AVERROR_EXIT) return status;
    atEnd_ = status < 0;  // damaged data ends a movie like its end does
    result_.streams.resize(std::max(result_.streams.size(), static_cast<std::size_t>(demuxer_.streamCount())));
    for (int i = 0; i < demuxer_.streamCount(); ++i) {
      const std::int64_t start = demuxer_.stream(i)->start_time;
      std::optional<std::int64_t>& known = result_.streams[static_cast<std::size_t>(i)].start;
      if (start != AV_NOPTS_VALUE && (demuxer_.hasStreamInfo() || !known)) known = start;
    }
    inHead_ = false;
    return 0;
  }

  int readToEnd() {
    for (;;) {
      const int status = demuxer_.read(*packet_);
      if (status == AVERROR_EXIT) return status;
      if (status < 0) return 0;
      note(*packet_);
    }
  }

  bool statesDurations() const {
    const AVFormatContext& context = *demuxer_.context();
    if (context.duration_estimation_method == AVFMT_DURATION_FROM_BITRATE) return false;
    return context.duration > 0 || everyStream([this](int i) { return demuxer_.stream(i)->duration > 0; });
  }

  int readTail() {
    if (atEnd_) {
      result_.isComplete = true;
      return 0;
    }
    // Raw streams have no tail to look at: only their frames can be counted.
    const bool hasTimes = (demuxer_.context()->iformat->flags & AVFMT_NOTIMESTAMPS) == 0;
    if (fileSize_ > kFirstTailBytes && hasTimes) {
      const int status = demuxer_.seeksByByte() ? readTailByBytes() : readTailByIndex();
      if (status < 0) return status;
      if (demuxer_.seeksByByte() && clockStartsAgain()) return readAllAgain();
      if (foundInTail_) return 0;
      if (fileSize_ > kMaxScanBytes && statesDurations()) return 0;
    }
    // What the head left is read: the counts are those of the whole movie, unless a tail was tried before.
    if (const int status = readToEnd(); status < 0) return status;
    result_.isComplete = !moved_;
    return 0;
  }

  int readAllAgain() {
    forget();
    if (demuxer_.seek(-1, 0, AVSEEK_FLAG_BYTE) < 0) return 0;
    if (const int status = readToEnd(); status < 0) return status;
    result_.isComplete = true;
    return 0;
  }

  // Looked for in what has been read, and at places between.
  bool clockStartsAgain() {
    constexpr std::int64_t kPlaces = 16;
    const int reference = av_find_default_stream_index(demuxer_.context());
    const auto found = stretches_.find(reference);
    if (found == stretches_.end()) return false;
    if (found->second.size() > 1) return true;
    const std::optional<std::int64_t> last = found->second.back().lastDts;
    std::optional<std::int64_t> former;
    for (std::int64_t place = 0; place < kPlaces; ++place) {
      const std::optional<std::int64_t> dts = firstTimeAfter(fileSize_ / kPlaces * place, reference);
      if (!dts) continue;
      if (isBackwards(former.value_or(*dts), *dts)) return true;
      former = dts;
    }
    return former && last && isBackwards(*former, *last);
  }

  std::optional<std::int64_t> firstTimeAfter(std::int64_t position, int index) {
    constexpr int kMostPackets = 256;
    if (demuxer_.seek(-1, position, AVSEEK_FLAG_BYTE) < 0) return std::nullopt;
    moved_ = true;
    for (int i = 0; i < kMostPackets && demuxer_.read(*packet_) >= 0; ++i) {
      if (packet_->stream_index == index && packet_->dts != AV_NOPTS_VALUE) return packet_->dts;
    }
    return std::nullopt;
  }

  int readTailByBytes() {
    for (std::int64_t bytes = kFirstTailBytes; bytes < fileSize_; bytes *= 4) {
      if (demuxer_.seek(-1, fileSize_ - bytes, AVSEEK_FLAG_BYTE) < 0) return 0;
      moved_ = true;
      forget();
      if (const int status = readToEnd(); status < 0) return status;
      foundInTail_ = everyStream([this](int i) { return hasEnd(i); });
      if (foundInTail_) return 0;
    }
    forget();
    demuxer_.seek(-1, 0, AVSEEK_FLAG_BYTE);
    return 0;
  }

  /// From the last place that the container's index knows.
  int readTailByIndex() {
    const int reference = av_find_default_stream_index(demuxer_.context());
    if (reference < 0) return 0;
    AVStream* stream = demuxer_.stream(reference);
    const std::int64_t start = stream->start_time != AV_NOPTS_VALUE ? stream->start_time : 0;
    // Some containers read their index on the first seek only.
    moved_ = true;
    forget();
    if (demuxer_.seek(reference, start, AVSEEK_FLAG_BACKWARD) < 0) return 0;
    const int entries = avformat_index_get_entries_count(stream);
    if (entries < 2) return 0;
    const std::int64_t last = avformat_index_get_entry(stream, entries - 1)->timestamp;
    if (demuxer_.seek(reference, last, AVSEEK_FLAG_BACKWARD) >= 0) {
      if (const int status = readToEnd(); status < 0) return status;
      foundInTail_ = everyStream([this](int i) { return hasEnd(i); });
      if (foundInTail_) return 0;
    }
    forget();
    demuxer_.seek(reference, start, AVSEEK_FLAG_BACKWARD);
    return 0;
  }

  Demuxer& demuxer_;
  std::int64_t fileSize_;
  std::map<int, std::vector<Stretch>> stretches_;  // of all packets read, or of those since the last jump
  std::map<int, std::int64_t> positions_;          // of the last packet that knows its own
  AvPtr<AVPacket> packet_;
  PacketScan result_;
  bool inHead_ = true;
  bool atEnd_ = false;
  bool moved_ = false;
  bool foundInTail_ = false;
};

}  // namespace

PacketScan scanPackets(Demuxer& demuxer, std::int64_t fileSize) {
  return Scanner(demuxer, fileSize).scan();
}

}  // namespace vistrelle::platform
