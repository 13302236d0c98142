#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/media_time.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// Frames a second as an exact fraction in lowest terms.
struct FrameRate {
  std::int64_t numerator = 0;
  std::int64_t denominator = 1;
  /// Whether frames last differently long; absent where only reading the whole movie would tell. A last frame of its
  /// own length does not count.
  std::optional<bool> varies;
};

/// Facts of a track beyond those of Track. Absent: the movie does not say. Names are those that FFmpeg publishes
/// ("h264", "High", "yuv420p10le", "bt2020nc").
struct TrackDetails {
  OptionalText codec;
  OptionalText profile;
  OptionalText language;  ///< ISO 639-2 or BCP 47 as stored

  // Pictures.
  OptionalText pixelFormat;
  std::optional<std::int64_t> bitDepth;  ///< bits of a component; of a sample for sound that stores whole numbers
  OptionalText colourPrimaries;
  OptionalText colourTransfer;
  OptionalText colourMatrix;
  OptionalText colourRange;  ///< "tv" (limited) or "pc" (full)
  /// "SDR", "HLG", "PQ" (no static metadata), "HDR10", "HDR10+" or "Dolby Vision profile 8.4"; absent without pictures.
  OptionalText hdrClass;
  std::optional<std::int64_t> rotation;  ///< degrees clockwise: 0, 90, 180, 270; absent without pictures
  bool isMirrored = false;               ///< left and right are exchanged before the turn
  std::optional<FrameRate> frameRate;

  // Sound.
  std::optional<std::int64_t> sampleRate;
  std::optional<std::int64_t> channels;

  // Durations. `Track::timeRange` is what the samples cover.
  MediaTime headerDuration;    ///< as the movie's header states for the track; invalid when it states none
  MediaTime decodedDuration;   ///< found by decoding to the end; only where the header cannot be true, else invalid
  OptionalText startTimecode;  ///< "01:00:00:00"; a semicolon before the frames where frame numbers are dropped
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
