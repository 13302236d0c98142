#include "vistrelle/platform/media/ffmpeg/packet_scan.h"

#include <algorithm>
#include <map>
#include <utility>

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kHeadBytes = std::int64_t{4} << 20;
constexpr std::int64_t kPacketsForStart = 32;
constexpr std::int64_t kFirstTailBytes = std::int64_t{1} << 20;
// Above this a movie whose end cannot be found through an index is believed when it states how long it is.
constexpr std::int64_t kMaxScanBytes = std::int64_t{64} << 20;

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
    if (status >= 0 && result_.isComplete) compareDistances();
    return status < 0 && status != AVERROR_EOF ? failed(status) : std::move(result_);
  }

 private:
  /// The two latest presentation times of a stream, and how long the latest packet says it lasts.
  struct Latest {
    std::optional<std::int64_t> last;
    std::optional<std::int64_t> before;
    std::int64_t duration = 0;
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
    times_[packet.stream_index].push_back(time);
    if (inHead_) span.start = span.start ? std::min(*span.start, time) : time;
    Latest& latest = latest_[packet.stream_index];
    if (!latest.last || time > *latest.last) {
      latest.before = std::exchange(latest.last, time);
      latest.duration = std::max<std::int64_t>(packet.duration, 0);
    } else if (time < *latest.last && (!latest.before || time > *latest.before)) {
      latest.before = time;
    }
    span.end = endOf(latest, *demuxer_.stream(packet.stream_index));
  }

  /// Rounding to a container's clock makes two neighbouring distances of one rate.
  void compareDistances() {
    for (auto& [index, times] : times_) {
      std::sort(times.begin(), times.end());
      std::int64_t shortest = 0;
      std::int64_t longest = 0;
      for (std::size_t i = 1; i < times.size(); ++i) {
        const std::int64_t distance = av_sat_sub64(times[i], times[i - 1]);
        shortest = i == 1 ? distance : std::min(shortest, distance);
        longest = std::max(longest, distance);
      }
      result_.streams[static_cast<std::size_t>(index)].varies = longest - shortest > 1;
    }
  }

  static std::int64_t endOf(const Latest& latest, const AVStream& stream) {
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
    const auto position = static_cast<std::size_t>(index);
    return position < result_.streams.size() && result_.streams[position].end.has_value();
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
      if (status < 0 || everyStream([this](int i) { return hasEnd(i) && foundInTail_; })) return status;
      if (fileSize_ > kMaxScanBytes && statesDurations()) return 0;
    }
    // What the head left is read: the counts are those of the whole movie, unless a tail was tried before.
    if (const int status = readToEnd(); status < 0) return status;
    result_.isComplete = !moved_;
    return 0;
  }

  void forgetEnds() {
    for (PacketSpan& span : result_.streams) span.end.reset();
    latest_.clear();
  }

  int readTailByBytes() {
    for (std::int64_t bytes = kFirstTailBytes; bytes < fileSize_; bytes *= 4) {
      if (demuxer_.seek(-1, fileSize_ - bytes, AVSEEK_FLAG_BYTE) < 0) return 0;
      moved_ = true;
      forgetEnds();
      if (const int status = readToEnd(); status < 0) return status;
      foundInTail_ = everyStream([this](int i) { return hasEnd(i); });
      if (foundInTail_) return 0;
    }
    forgetEnds();
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
    forgetEnds();
    if (demuxer_.seek(reference, start, AVSEEK_FLAG_BACKWARD) < 0) return 0;
    const int entries = avformat_index_get_entries_count(stream);
    if (entries < 2) return 0;
    const std::int64_t last = avformat_index_get_entry(stream, entries - 1)->timestamp;
    if (demuxer_.seek(reference, last, AVSEEK_FLAG_BACKWARD) >= 0) {
      if (const int status = readToEnd(); status < 0) return status;
      foundInTail_ = everyStream([this](int i) { return hasEnd(i); });
      if (foundInTail_) return 0;
    }
    forgetEnds();
    demuxer_.seek(reference, start, AVSEEK_FLAG_BACKWARD);
    return 0;
  }

  Demuxer& demuxer_;
  std::int64_t fileSize_;
  std::map<int, Latest> latest_;
  std::map<int, std::vector<std::int64_t>> times_;  // of all packets seen
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
