#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "vistrelle/platform/media/movie_metadata.h"

/// The header of an ISO base media file (ISO/IEC 14496-12, "14496-12" below) or a QuickTime movie, read by ourselves:
/// what libavformat does not pass on, and what the samples say where headers contradict them.
namespace vistrelle::platform::mov {

/// Four characters as stored: 'a' 'v' 'c' '1' is 0x61766331.
using FourCc = std::uint32_t;

constexpr FourCc fourCc(const char (&text)[5]) {
  const auto byte = [&text](int i) { return static_cast<FourCc>(static_cast<unsigned char>(text[i])); };
  return byte(0) << 24 | byte(1) << 16 | byte(2) << 8 | byte(3);
}

/// The code as text. Bytes beyond ASCII are characters of Mac Roman, in which such codes have been written.
std::string textOf(FourCc code);

/// A fraction as stored; a denominator of 0 is possible in damaged files and never in what the reader gives out.
struct Fraction {
  std::int32_t numerator = 0;
  std::int32_t denominator = 1;
};

/// 14496-12, 12.1.4: size of the shown part and the offset of its centre from the centre of the stored picture.
struct CleanAperture {
  Fraction width;
  Fraction height;
  Fraction horizontalOffset;
  Fraction verticalOffset;
};

/// 14496-12, 12.1.4: relative width and height of a pixel.
struct PixelAspect {
  std::uint32_t horizontal = 1;
  std::uint32_t vertical = 1;
};

/// One entry of 'stsd' (14496-12, 8.5.2).
struct SampleEntry {
  FourCc type = 0;
  std::uint16_t width = 0;   ///< of the stored picture; 0 when the track is not video
  std::uint16_t height = 0;  ///< of the stored picture; 0 when the track is not video
  std::optional<CleanAperture> cleanAperture;
  std::optional<PixelAspect> pixelAspect;
};

/// Width and height in pixels, stored as 16.16.
struct FixedSize {
  double width = 0;
  double height = 0;
};

/// QuickTime File Format, "Track aperture mode dimensions": the sizes of a track's pictures in its three modes.
struct TrackApertures {
  FixedSize clean;       ///< 'clef'
  FixedSize production;  ///< 'prof'
  FixedSize encoded;     ///< 'enof'
};

/// 14496-12, 8.6.6. An empty edit has a media time of -1.
struct Edit {
  std::uint64_t duration = 0;   ///< in the movie's time scale; 0 in a fragmented file: to the end
  std::int64_t mediaTime = 0;   ///< in the track's time scale
  std::int32_t rate = 0x10000;  ///< 16.16
};

/// 14496-12, 8.7.2.
struct DataReference {
  FourCc type = 0;
  bool isSelfContained = true;
  std::string location;  ///< of a "url " entry, as stored
};

/// What the samples of a track say, from the sample tables and all fragments.
struct SampleFacts {
  std::uint64_t count = 0;
  std::uint64_t duration = 0;          ///< of all samples together, track time scale
  std::int64_t firstPresentation = 0;  ///< earliest presentation time, before edits
  std::int64_t endOfPresentation = 0;  ///< latest end of a sample, before edits
  std::uint32_t sampleDuration = 0;    ///< of every sample but the last; 0 where they differ
};

struct Track {
  std::uint32_t id = 0;
  bool isEnabled = false;
  FourCc handler = 0;
  std::uint32_t timeScale = 0;
  std::uint64_t headerDuration = 0;  ///< of mdhd, track time scale
  std::string language;              ///< of mdhd, or the extended language where there is one (8.4.6); may be empty
  FixedSize size;                    ///< of tkhd
  FourCc sampleEntry = 0;            ///< of the first sample description, as stored
  std::vector<SampleEntry> sampleEntries;
  bool isProtected = false;  ///< encv, enca, drmi, drms or a protection scheme in any sample description
  std::optional<CleanAperture> cleanAperture;
  std::optional<PixelAspect> pixelAspect;
  std::optional<TrackApertures> apertures;
  std::vector<std::uint32_t> chapterTracks;  ///< numbers of the tracks that hold its chapters ('chap' reference)
  std::vector<Edit> edits;
  std::vector<DataReference> dataReferences;
  std::uint16_t dataReferenceIndex = 1;  ///< of the first sample description, from 1
  SampleFacts samples;
};

struct MovieHeader {
  std::uint32_t timeScale = 0;
  std::uint64_t headerDuration = 0;
  bool allowsFragments = false;  ///< has an mvex box
  std::uint32_t fragmentCount = 0;
  bool isProtected = false;  ///< protection stated for the whole movie or any track
  std::vector<Track> tracks;
  MovieMetadata metadata;
  std::size_t metadataItems = 0;  ///< of all lists of items in the file
};

/// Reads up to buffer.size() bytes at an offset; how many came, negative on error or interrupt.
using ReadAt = std::function<std::int64_t(std::int64_t offset, std::span<std::uint8_t> buffer)>;

/// Reads the header of a file of `size` bytes. Nothing when there is no movie box or it cannot be read within the
/// limits (64 MiB of boxes, 100 tracks, 2^24 entries a table); a damaged part is left out and costs nothing else.
/// Media data is not read.
std::optional<MovieHeader> readMovieHeader(std::int64_t size, const ReadAt& readAt);

}  // namespace vistrelle::platform::mov
