#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/demuxer.h"

namespace vistrelle::platform {

/// A higher rate is taken for a container's clock, where packets can tell.
constexpr double kFastestFrameRate = 240;

/// What the packets of a stream cover, in its time base and in packet times.
struct PacketSpan {
  std::int64_t count = 0;
  std::optional<std::int64_t> start;
  std::optional<std::int64_t> end;  ///< a last packet that states no duration lasts as long as the one before it
  std::optional<bool> varies;       ///< whether the distances of the times differ by more than one tick
};

struct PacketScan {
  std::vector<PacketSpan> streams;           ///< by stream index
  std::shared_ptr<const ClockPieces> clock;  ///< where the movie's clock starts again; null where it does not
  bool isComplete = false;                   ///< every packet of the movie was seen; otherwise counts mean nothing
  int status = 0;                            ///< negative when the scan was interrupted
};

/// What the audio and video streams of a movie without sample tables cover: their first packets and the end of the
/// file are read, all packets where the end cannot be found otherwise. Nothing is decoded. Moves the demuxer.
PacketScan scanPackets(Demuxer& demuxer, std::int64_t fileSize);

}  // namespace vistrelle::platform
