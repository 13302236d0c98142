#pragma once

#include <span>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/media/mov/movie_header.h"
#include "vistrelle/platform/media/mov/sample_span.h"

namespace vistrelle::platform::mov {

/// A track while its boxes are read; fragments go on adding to `span`.
struct OpenTrack {
  Track facts;
  SampleSpan span;
  std::uint32_t defaultDuration = 0;  ///< of trex (14496-12, 8.8.3)
  bool hasFragments = false;
};

/// Reads the content of a 'trak' box (14496-12, 8.3).
OpenTrack readTrack(std::span<const std::uint8_t> content);

/// Adds the samples of a 'traf' box (14496-12, 8.8.6) to the track it names, if there is one.
void readTrackFragment(std::span<const std::uint8_t> content, std::span<OpenTrack> tracks);

}  // namespace vistrelle::platform::mov
