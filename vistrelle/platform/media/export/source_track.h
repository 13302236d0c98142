#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/export/ratio.h"
#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::platform {

class MovieSource;

/// A piece of a movie's samples: where it begins and how long it is.
struct ByteRange {
  std::int64_t start = 0;
  std::int64_t length = 0;
  std::int64_t end() const { return start + length; }
};

/// Takes bytes; false ends the copying.
using ByteSink = std::function<bool(std::span<const std::uint8_t>)>;

/// Where the samples of one movie lie. Offsets are those of the sample tables that came with it.
class SampleStore {
 public:
  virtual ~SampleStore() = default;
  /// Hands the ranges (rising, not overlapping) to `sink`, one behind the other. False with an error text when one of
  /// them cannot be read whole; false and no text when the sink refused.
  virtual bool copy(std::span<const ByteRange> ranges, const ByteSink& sink, std::string* error) = 0;
};

/// A stretch of a movie's timeline and the media that fills it; nothing where it is empty. Seconds.
struct MediaStretch {
  Ratio start;
  Ratio length;
  std::optional<Ratio> media;
};

/// A track of a movie with all that it takes to copy samples of it.
struct SourceTrack {
  const Track* track = nullptr;
  const MovieSource* movie = nullptr;
  SampleStore* store = nullptr;
  MediaType type = MediaType::other;
  mov::SampleTables tables;
  int soundLeadIn = 0;                 ///< packets a decoder needs before the first one that is heard
  std::vector<MediaStretch> timeline;  ///< one behind the other from zero on, the last one open to the end
  std::int64_t firstPresentation = 0;  ///< track time scale
  std::int64_t endOfPresentation = 0;  ///< track time scale

  bool isUncompressedSound() const { return tables.packetBytes != 0; }
};

/// The tracks that an export copies from, each opened once. Keeps their movies.
class SourceTracks {
 public:
  SourceTracks();
  ~SourceTracks();
  SourceTracks(const SourceTracks&) = delete;
  SourceTracks& operator=(const SourceTracks&) = delete;

  /// Opens all tracks. False with an error text when one of them is no track of a file or cannot be read.
  bool open(const std::vector<std::shared_ptr<Track>>& tracks, const std::function<bool()>& isCancelled,
            std::string* error);
  /// What the one movie that all tracks are of says about itself: complete boxes. Empty when there are several.
  std::vector<std::uint8_t> notes() const;
  /// The source of a track that was opened.
  const SourceTrack& of(const Track& track) const;

 private:
  struct Movie;
  Movie& movieOf(const std::shared_ptr<MovieSource>& source);
  bool openMovie(Movie& movie, const std::function<bool()>& isCancelled, std::string* error);

  std::vector<std::unique_ptr<Movie>> movies_;
  std::vector<std::unique_ptr<SourceTrack>> sources_;
};

/// What of the source's media fills `length` seconds of its movie's timeline from `start` on, in order; starts count
/// from the beginning of the range. Stretches without any sample are empty.
std::vector<MediaStretch> mediaOf(const SourceTrack& source, const Ratio& start, const Ratio& length);

}  // namespace vistrelle::platform
