#include "vistrelle/platform/media/ffmpeg/frame_landing.h"

#include <algorithm>
#include <limits>

#include "vistrelle/platform/media/ffmpeg/frame_random_access.h"
#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"

namespace vistrelle::platform {

namespace {

constexpr std::int64_t kNone = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kEarliest = std::numeric_limits<std::int64_t>::min() / 2;
// Packets kept while looking for a later key; more than any real group of pictures that is worth skipping over.
constexpr std::int64_t kMostQueuedBytes = std::int64_t{64} << 20;
constexpr int kTries = 12;

std::int64_t earliestTimeOf(const AVPacket& packet) {
  return std::min(packet.pts == AV_NOPTS_VALUE ? kNone : packet.pts, packet.dts == AV_NOPTS_VALUE ? kNone : packet.dts);
}

// Reads up to the first packet after `limit`, keeping what begins with the last key at or before it.
bool readToKey(FramePackets& packets, std::int64_t limit, std::int64_t* earliestKey) {
  bool found = false;
  while (packets.queuedBytes() <= kMostQueuedBytes && packets.readMore()) {
    const AVPacket& packet = *packets.queue().back();
    const bool isKey = isLandingPacket(packet, *packets.stream()->codecpar);
    if (isKey) *earliestKey = std::min(*earliestKey, earliestTimeOf(packet));
    const bool isAfter = packet.pts != AV_NOPTS_VALUE && packet.pts > limit;
    const bool isLast = isAfter && (packet.flags & AV_PKT_FLAG_DISCARD) == 0;
    if (isKey && !isAfter) {
      while (packets.queue().size() > 1) packets.dropFirst();
      found = true;
    } else if (!found) {
      packets.dropFirst();
    }
    if (isLast) break;
  }
  return found;
}

// Whether the key for `limit` is the first one, so that an untouched demuxer need not seek.
bool beginsAtStart(FramePackets& packets, const LandingRules& rules, std::int64_t limit) {
  if (!packets.isAtStart()) return false;
  if (!rules.hasIndex) return limit < rules.earliest + 2 * rules.second;
  AVStream* stream = packets.stream();
  if (avformat_index_get_entries_count(stream) == 0) return false;
  const AVIndexEntry* first = avformat_index_get_entry(stream, 0);
  const AVIndexEntry* key = avformat_index_get_entry_from_timestamp(stream, limit, AVSEEK_FLAG_BACKWARD);
  return key == nullptr || key->timestamp <= first->timestamp;
}

}  // namespace

LandingRules landingRules(MovieSource& source, int streamIndex, FramePackets& packets) {
  LandingRules rules;
  AVStream* stream = packets.stream();
  rules.hasIndex =
      source.isMovFamily() || packets.demuxer()->isMatroska() || avformat_index_get_entries_count(stream) > 1;
  const AVRational timeBase = stream->time_base;
  rules.second = std::max<std::int64_t>(1, av_rescale_q(1, {1, 1}, timeBase));
  const StreamFacts& facts = source.streams()[static_cast<std::size_t>(streamIndex)];
  const std::int64_t zero = ticksNearest(source.zero(), timeBase);
  const MediaTime end = facts.range.end();
  rules.latest = (end.isNumeric() ? ticksNearest(end, timeBase) : ticksNearest(source.duration(), timeBase)) + zero;
  rules.earliest = facts.range.start.isNumeric() ? ticksNearest(facts.range.start, timeBase) + zero : zero;
  // The range is the movie's, the ticks are the track's.
  if (facts.edits) rules.latest = std::numeric_limits<std::int64_t>::max();
  if (source.isMovFamily() && avformat_index_get_entries_count(stream) > 0) {
    rules.earliest = std::min(rules.earliest, avformat_index_get_entry(stream, 0)->timestamp);
  }
  return rules;
}

bool landOnStart(FramePackets& packets, Landing* landing) {
  *landing = {true, kEarliest};
  return packets.restart();
}

bool landOnKey(FramePackets& packets, const LandingRules& rules, std::int64_t limit, Landing* landing) {
  if (beginsAtStart(packets, rules, limit)) return landOnStart(packets, landing);
  // Containers without an index look for decoding times: what is asked for must lie before the key.
  std::int64_t ask = std::min(limit, rules.latest);
  if (!rules.hasIndex) ask = av_sat_sub64(ask, rules.second / 2);
  std::int64_t step = rules.second;
  for (int attempt = 0; attempt < kTries && ask >= rules.earliest; ++attempt) {
    std::int64_t earliestKey = kNone;
    if (packets.seekBackward(ask) && readToKey(packets, limit, &earliestKey)) {
      *landing = {false, packets.queue().front()->pts};
      return true;
    }
    if (rules.hasIndex && attempt < 3 && earliestKey != kNone) {
      ask = std::min(ask, earliestKey) - 1;
      continue;
    }
    ask = std::min(ask - step, earliestKey == kNone ? kNone : earliestKey - 1);
    step *= 4;  // reaches years long before it could overflow
  }
  return landOnStart(packets, landing);
}

}  // namespace vistrelle::platform
