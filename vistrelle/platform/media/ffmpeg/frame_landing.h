#pragma once

#include <cstdint>

#include "vistrelle/platform/media/ffmpeg/frame_packets.h"

namespace vistrelle::platform {

/// What the container offers to somebody who wants to begin in the middle. All values in the stream's time base.
struct LandingRules {
  bool hasIndex = false;      ///< seeking by presentation time is worth a try (sample table, cues)
  std::int64_t second = 1;    ///< about a second
  std::int64_t earliest = 0;  ///< nothing lies before it
  std::int64_t latest = 0;    ///< nothing lies after it
};

/// Where decoding begins: at the first packet of the queue.
struct Landing {
  bool fromStart = false;
  std::int64_t keyPts = 0;  ///< of the key packet it begins at; the earliest value for fromStart
};

LandingRules landingRules(MovieSource& source, int streamIndex, FramePackets& packets);

/// Brings `packets` to the last key packet whose presentation time is not after `limit`, as far as the container lets
/// one find it: tries that end on a later key are repeated further back, and the start of the stream is the last
/// resort. Packets are looked at and not decoded: the proof is a packet flagged as key, with a presentation time at or
/// before `limit`. False only when the movie cannot be read.
bool landOnKey(FramePackets& packets, const LandingRules& rules, std::int64_t limit, Landing* landing);
/// To the very first packet.
bool landOnStart(FramePackets& packets, Landing* landing);

}  // namespace vistrelle::platform
