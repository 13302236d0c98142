#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/packet_scan.h"
#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// ETSI TS 103 572: the configuration record of a Dolby Vision stream.
struct DolbyVision {
  int profile = 0;
  int compatibility = 0;
};

/// What the container of a movie says about one of its streams, beyond what opening and decoding it needs.
struct StreamNotes {
  std::string mediaTypeCode;                    ///< empty when unknown
  std::vector<FormatDescription> descriptions;  ///< in the order of the movie
  AVRational pixelAspect{0, 1};                 ///< 0/1 when the container states none
  bool isLookedInto = false;                    ///< libavformat has decoded some of it: its parameters are complete
  std::optional<Orientation> orientation;
  std::optional<DolbyVision> dolbyVision;
  bool hasStaticHdrMetadata = false;  ///< mastering display or content light level
  std::optional<FrameRate> frameRate;
  OptionalText language;
  OptionalText timecode;
  MediaTime headerDuration;        ///< invalid when the header states none
  MediaTime sampleDuration;        ///< of all samples of a movie's own track together, before edits; else invalid
  bool reachesBeyondFile = false;  ///< the index names samples behind the end of the file
};

/// The notes of a stream; `track` is the movie's own track where there is one.
StreamNotes noteStream(const AVFormatContext& container, const AVStream& stream, MediaType type,
                       const mov::Track* track, bool isLookedInto);

/// Adds what the packets of a stream that cover `range` say of its frame rate; their count is 0 where not all were
/// seen. `guessed` serves where neither the container nor they tell.
void completeFrameRate(StreamNotes& notes, const PacketSpan& packets, const TimeRange& range, float guessed);

}  // namespace vistrelle::platform
