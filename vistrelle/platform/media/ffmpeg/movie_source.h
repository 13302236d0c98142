#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/demuxer.h"
#include "vistrelle/platform/media/ffmpeg/file_io.h"
#include "vistrelle/platform/media/ffmpeg/first_frame.h"
#include "vistrelle/platform/media/ffmpeg/frame_edits.h"
#include "vistrelle/platform/media/ffmpeg/stream_notes.h"
#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// What is known of one stream of a movie.
struct StreamFacts {
  int index = -1;            ///< the same in every Demuxer of the movie
  std::int32_t trackId = 0;  ///< unique in the movie, from 1
  MediaType type = MediaType::other;
  bool isTrack = true;  ///< false for attached pictures and streams that are no tracks of the movie
  bool isEnabled = true;
  bool isProtected = false;
  bool isDecodable = true;
  TimeRange range;  ///< on the movie's timeline; invalid times when there is no sample
  float frameRate = 0;
  std::optional<FrameEdits> edits;                  ///< where libavformat does not apply them exactly
  std::optional<mov::CleanAperture> cleanAperture;  ///< as stored (ISO/IEC 14496-12, 12.1.4)
  std::optional<mov::PixelAspect> pixelAspect;      ///< as stored
  AvPtr<AVCodecParameters> parameters;              ///< complete; use these for decoders, not a later Demuxer's
  StreamNotes notes;
};

/// An opened movie: its bytes and facts. Immutable once opened; any thread. Knows no path.
class MovieSource {
 public:
  /// Reads and checks everything. Empty with an error text on failure or interrupt.
  static std::shared_ptr<MovieSource> open(std::shared_ptr<InputBytes> bytes, std::shared_ptr<Interrupt> interrupt,
                                           std::string* error);

  /// By stream index.
  const std::vector<StreamFacts>& streams() const { return streams_; }
  /// MOV/MP4 family: times of packets are times of the movie's timeline, edit lists applied.
  bool isMovFamily() const { return isMovFamily_; }
  /// What counts as zero, in packet times: zero for the MOV family, else the container's start time.
  MediaTime zero() const { return zero_; }
  MediaTime duration() const { return duration_; }
  /// The time on the movie's timeline of `ticks` in the stream's time base: ticks x time base - zero.
  MediaTime timeOf(int streamIndex, std::int64_t ticks) const;
  AVRational timeBase(int streamIndex) const { return timeBases_[static_cast<std::size_t>(streamIndex)]; }
  /// The first enabled video track in file order, the first one where none is enabled; -1 without video.
  int pictureStream() const;

  /// A reading from the start of the movie. The first call gets the one that the facts were read with.
  std::unique_ptr<Demuxer> makeDemuxer(std::string* error);
  /// The same, never the one that the facts were read with.
  std::unique_ptr<Demuxer> openDemuxer(std::string* error);
  /// The first frame of a stream, decoded once; empty when none comes out.
  std::shared_ptr<const FirstFrame> firstFrame(int streamIndex);
  const MovieMetadata& metadata() const { return metadata_; }
  /// By the movie's header; invalid when it states none.
  MediaTime headerDuration() const { return headerDuration_; }
  /// A reading whose times are those of the tracks: edit lists not applied.
  std::unique_ptr<Demuxer> makeUneditedDemuxer(std::string* error);
  const std::shared_ptr<Interrupt>& interrupt() const { return interrupt_; }
  const std::shared_ptr<InputBytes>& bytes() const { return bytes_; }

 private:
  friend class MovieReader;
  MovieSource() = default;

  std::shared_ptr<InputBytes> bytes_;
  std::shared_ptr<Interrupt> interrupt_;
  std::vector<StreamFacts> streams_;
  std::vector<AVRational> timeBases_;
  std::shared_ptr<const ClockPieces> clock_;
  bool isMovFamily_ = false;
  MediaTime zero_;
  MediaTime duration_;
  std::mutex mutex_;
  std::unique_ptr<Demuxer> first_;
  MovieMetadata metadata_;
  MediaTime headerDuration_;
  std::mutex frameMutex_;
  std::map<int, std::shared_ptr<const FirstFrame>> firstFrames_;
};

}  // namespace vistrelle::platform
