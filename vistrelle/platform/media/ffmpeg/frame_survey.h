#pragma once

#include "vistrelle/platform/media/ffmpeg/frame_packets.h"

namespace vistrelle::platform {

/// How far the presentation times of a stream can be relied on.
enum class TimesKind {
  stated,        ///< every frame says when it is shown
  notStated,     ///< the container has no presentation times: frames are counted from zero
  incomplete,    ///< some are missing, those that are there hold: frames are counted from one to the next of them
  contradictory  ///< some are doubled or run backwards: frames are counted from the first one's time
};

/// Looks at the container and, where that says nothing, at the packets: all of a small movie, those at several places
/// of a large one (what is missing between known times is then filled in when it is met). Nothing is decoded.
/// The same movie always gives the same answer. `opened` stands at its start, and still does afterwards.
TimesKind surveyTimes(MovieSource& source, int streamIndex, FramePackets& opened);

}  // namespace vistrelle::platform
