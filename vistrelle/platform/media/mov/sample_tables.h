#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform::mov {

/// Times and places beyond this are those of no movie; one sample more, however large, does not overflow 64 bits.
constexpr std::int64_t kFarthest = std::int64_t{1} << 62;

/// `count` samples that lie one behind the other and are alike; more than one only of uncompressed sound and its like
/// (SampleTables::packetBytes is not 0 then).
struct Sample {
  std::int64_t offset = 0;      ///< in the file; at most kFarthest
  std::int64_t decodeTime = 0;  ///< of the first; track time scale
  std::uint32_t size = 0;       ///< of one sample
  std::uint32_t duration = 0;   ///< of one sample
  std::int32_t compositionOffset = 0;
  std::uint32_t count = 1;
  std::uint16_t description = 0;  ///< index into the descriptions, from 0
  bool isSync = true;

  std::int64_t presentation() const { return decodeTime + compositionOffset; }
  std::int64_t span() const { return std::int64_t{duration} * count; }
};

/// References to other tracks (14496-12, 8.3.3).
struct TrackReference {
  FourCc type = 0;
  std::vector<std::uint32_t> tracks;
};

/// What stands in the headers of a track besides its samples, as a copy of the track needs it. Boxes are complete,
/// header included.
struct TrackHeader {
  bool isEnabled = true;
  std::int16_t layer = 0;
  std::int16_t alternateGroup = 0;
  std::uint16_t volume = 0;  ///< 8.8
  std::array<std::int32_t, 9> matrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};
  std::uint32_t width = 0;   ///< 16.16
  std::uint32_t height = 0;  ///< 16.16
  FourCc handler = 0;
  std::uint16_t language = 0x7fff;        ///< as stored; unspecified
  std::vector<std::uint8_t> apertures;    ///< 'tapt', QuickTime's track aperture modes; may be empty
  std::vector<std::uint8_t> mediaHeader;  ///< vmhd, smhd, gmhd ...; may be empty
  std::vector<std::uint8_t> notes;        ///< 'udta' and 'meta' boxes: what is said about the track; may be empty
};

/// A track with all its samples in decoding order, from its tables and all fragments.
struct SampleTables {
  std::uint32_t id = 0;
  std::uint32_t timeScale = 0;
  TrackHeader header;
  std::vector<Edit> edits;
  std::vector<TrackReference> references;
  std::vector<std::vector<std::uint8_t>> descriptions;  ///< sample entries, complete
  std::vector<bool> otherFiles;                         ///< of each data reference: whether it is not this file
  std::vector<Sample> samples;
  std::uint64_t lostSamples = 0;  ///< that the table of sizes states and others have no place for
  /// Where samples are too many to be listed one by one: `packetBytes` bytes hold `packetSamples` of them, and
  /// `Sample::size` is what the size table says of one, which need not be its real size.
  std::uint32_t packetBytes = 0;
  std::uint32_t packetSamples = 1;

  /// Whether samples of a description lie in another file (14496-12, 8.7.2).
  bool isElsewhere(std::uint16_t description) const;
  std::int64_t bytesOf(const Sample& sample) const {
    if (packetBytes == 0) return std::int64_t{sample.size} * sample.count;
    return std::int64_t{sample.count} / packetSamples * packetBytes;
  }
};

struct MovieTables {
  std::uint32_t timeScale = 0;
  bool hasFragments = false;
  std::vector<std::uint8_t> notes;   ///< 'udta' and 'meta' boxes without chapters; may be empty
  std::vector<SampleTables> tracks;  ///< all of the movie; samples only of those asked for
};

/// Reads the tables of the movie; samples are listed of the tracks with the numbers `wanted` only. Nothing when there
/// is no movie box or it cannot be read within 256 MiB of boxes. Samples that tables do not agree on are left out.
std::optional<MovieTables> readMovieTables(std::int64_t size, const ReadAt& readAt,
                                           const std::set<std::uint32_t>& wanted);

}  // namespace vistrelle::platform::mov
