#pragma once

#include <optional>
#include <string>

#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/frame_run.h"
#include "vistrelle/platform/media/ffmpeg/frame_survey.h"
#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"

namespace vistrelle::platform {

/// Whether the stream is Dolby Vision of profile 5, whose colours only its metadata make right; the other profiles have
/// a base layer that is HDR10, HLG or SDR by itself.
bool lacksBaseLayer(const AVStream& stream);

/// What the container says about how a stream's frames are to be shown.
FrameShape frameShapeOf(const StreamFacts& facts, const AVStream& stream);

/// The rules for runs over a stream whose packets, at their start, have been surveyed.
RunRules runRulesFor(MovieSource& source, int streamIndex, FramePackets& packets, TimesKind times);

}  // namespace vistrelle::platform
