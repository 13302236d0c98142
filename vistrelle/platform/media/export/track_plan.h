#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/ratio.h"
#include "vistrelle/platform/media/export/source_track.h"
#include "vistrelle/platform/media/mov/movie_writer.h"

namespace vistrelle::platform {

/// A stretch of a track that is written: media of a source laid over `target` seconds; empty without a source.
struct Piece {
  const SourceTrack* source = nullptr;
  Ratio media;        ///< where it begins in the source's media
  Ratio mediaLength;  ///< of the source's media
  Ratio start;        ///< on the timeline that is written
  Ratio length;

  Ratio end() const { return start + length; }
  /// How much slower it runs than its source.
  Ratio stretch() const { return length / mediaLength; }
};

/// What `segments` need, piece by piece, without gaps; neighbours that continue each other are one piece.
std::vector<Piece> piecesOf(const std::vector<Segment>& segments, const SourceTracks& sources);

/// Pieces that can share one track of a QuickTime movie, with empty stretches where the others are.
std::vector<std::vector<Piece>> tracksOf(const std::vector<Piece>& pieces);

/// A track as it will be written, offsets of samples still those of their sources.
struct PlannedTrack {
  mov::WrittenTrack track;
  /// Which source the samples up to `end` are of; none for those of the plan's own bytes.
  struct Origin {
    std::size_t end = 0;
    const SourceTrack* source = nullptr;
  };
  std::vector<Origin> origins;
  /// HEVC pictures at which decoding is taken up from another place, and the bytes of their length fields.
  struct Splice {
    std::size_t sample = 0;
    int lengthBytes = 4;
  };
  std::vector<Splice> splices;
  std::vector<Piece> pieces;
  std::vector<std::uint8_t> ownBytes;  ///< samples made anew; offsets count from their start

  /// The place of a source's sample entry among the track's, which are all different. The same are those that have the
  /// same bytes but for the place of their data, which is this file.
  std::uint16_t descriptionOf(const SourceTrack& source, std::uint16_t index);
};

/// Plans one track: which samples are taken, with which times, and the edits that show exactly the pieces. False with
/// an error text when the samples' numbers are beyond what a movie can say or a sample cannot be read.
bool planTrack(std::vector<Piece> pieces, std::int64_t movieTimeScale, PlannedTrack& plan, std::string* error);

/// A time scale that says all boundaries of the pieces exactly, where 31 bits are enough for one.
std::int64_t movieTimeScaleOf(const std::vector<std::vector<Piece>>& tracks);

}  // namespace vistrelle::platform
