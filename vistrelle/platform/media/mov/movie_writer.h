#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::platform::mov {

/// A sample, or several alike that lie one behind the other, of a movie that is written.
struct WrittenSample {
  std::int64_t offset = 0;  ///< in the file
  std::int32_t compositionOffset = 0;
  std::uint32_t size = 0;   ///< of one sample, as the size table says it
  std::uint32_t bytes = 0;  ///< of all together
  std::uint32_t duration = 0;
  std::uint32_t count = 1;
  std::uint16_t description = 0;
  bool isSync = true;
  bool startsChunk = false;  ///< may not share a chunk with the sample before
};

/// A track of a movie that is written.
struct WrittenTrack {
  std::uint32_t id = 0;
  std::uint32_t timeScale = 1;
  TrackHeader header;
  std::vector<TrackReference> references;
  std::vector<Edit> edits;  ///< durations in the movie's time scale
  std::vector<std::vector<std::uint8_t>> descriptions;
  std::vector<WrittenSample> samples;
};

struct WrittenMovie {
  std::uint32_t timeScale = 1;
  std::uint64_t duration = 0;
  std::vector<WrittenTrack> tracks;
  std::vector<std::uint8_t> notes;  ///< complete boxes that stand behind the tracks
};

/// The complete 'moov' box of a QuickTime movie whose samples lie in the same file (14496-12, clause 8; QuickTime's
/// own forms of 'hdlr' and the sound and base media headers).
std::vector<std::uint8_t> movieBox(const WrittenMovie& movie);

/// The boxes before the samples: 'ftyp' of a QuickTime movie, and 'wide' (eight bytes that a long 'mdat' header takes
/// over), then the header of 'mdat'. Always of the same length.
std::vector<std::uint8_t> mediaDataHead(std::uint64_t mediaBytes);

}  // namespace vistrelle::platform::mov
