#pragma once

#include <array>
#include <cstdint>
#include <type_traits>

#include "vistrelle/platform/media/confined/confinement.h"

/// The bodies of the messages between a process that uses movies and a worker that reads them. Both are the same
/// program, so layouts agree; flags travel as whole numbers because another process may send any byte.
namespace vistrelle::platform::wire {

enum class Kind : std::uint32_t {
  none,
  // to a worker
  open,           ///< Open, tail: the movie's name; with its descriptor. Answered by movie, tracks and formats
  announce,       ///< Announce, tail: times
  copyFrame,      ///< FrameRequest. Answered by frame
  drop,           ///< Drop: a generator is not needed any more
  measure,        ///< Measure. Answered by size
  room,           ///< Granted, with a memory file to put a picture in; without when there is none
  reference,      ///< Granted, tail: an error text; with the descriptor of the file referred to
  waitingRoom,    ///< Granted, with a temporary file's descriptor
  describeMovie,  ///< Nothing. Answered by pieces: the metadata
  describeTrack,  ///< Describe. Answered by pieces: the details
  startReading,   ///< StartReading. Answered by reading
  nextSample,     ///< Reader. Answered by reading, and by pieces when that says that there is a sample
  endReading,     ///< Reader: it is not needed any more
  // from a worker
  hello,              ///< ConfinementReport, once at the start
  log,                ///< Nothing, tail: a line
  progress,           ///< Nothing: it is at work
  movie,              ///< Movie
  track,              ///< Track, tail: the description
  format,             ///< Format: of the track before
  frame,              ///< Frame, tail: the error text
  size,               ///< Size
  roomWanted,         ///< PlaneShape. Answered by room
  referenceWanted,    ///< Nothing, tail: the path relative to the movie's folder. Answered by reference
  waitingRoomWanted,  ///< Nothing. Answered by waitingRoom
  piece,              ///< Piece, tail: bytes
  reading             ///< Reading, tail: the error text
};

struct Nothing {
  std::uint32_t unused = 0;
};

struct Time {
  std::int64_t value = 0;
  std::int64_t epoch = 0;
  std::int32_t scale = 0;
  std::uint32_t flags = 0;
};

struct Range {
  Time start;
  Time duration;
};

struct Open {
  std::int64_t size = 0;
};

/// Which pictures are meant: a generator's number, and the track that it shows (-1: the movie chooses).
struct Announce {
  std::uint32_t generator = 0;
  std::int32_t track = -1;
  std::uint32_t isFirst = 0;
  std::uint32_t isLast = 0;
};

struct FrameRequest {
  Time time;
  std::uint32_t generator = 0;
  std::int32_t track = -1;
  std::uint32_t appliesTransform = 0;
  std::uint32_t apertureMode = 0;
};

struct Drop {
  std::uint32_t generator = 0;
};

/// The natural size of a track, which may take decoding a frame (-1: of the movie).
struct Measure {
  std::int32_t track = -1;
};

struct Size {
  double width = 0;
  double height = 0;
};

struct Describe {
  std::int32_t track = 0;
};

/// A reader of samples: its number, unique in the movie, and the track that it reads.
struct StartReading {
  std::uint32_t reader = 0;
  std::int32_t track = 0;
};

struct Reader {
  std::uint32_t reader = 0;
};

struct Granted {
  std::int64_t size = -1;  ///< of the file that comes along; -1 when none does
};

struct Movie {
  Time duration;
  Time headerDuration;
  std::uint32_t isPlayable = 0;
  std::uint32_t isProtected = 0;
  std::uint32_t hasPictures = 0;
  std::uint32_t tracks = 0;
};

using Code = std::array<char, 32>;  ///< a short text, ended by a zero byte

struct Track {
  Range range;
  Code typeCode{};
  std::int32_t id = 0;
  std::uint32_t type = 0;
  std::uint32_t hasTypeCode = 0;
  std::uint32_t isEnabled = 0;
  std::uint32_t isDecodable = 0;
  std::uint32_t isProtected = 0;
  std::uint32_t hasPictures = 0;
  std::uint32_t formats = 0;
  float frameRate = 0;
};

struct Format {
  Code code{};
  std::int32_t width = 0;
  std::int32_t height = 0;
  std::array<double, 4> cleanAperture{};  ///< x, y, width, height
};

/// What decides how much room the planes of a picture take.
struct PlaneShape {
  Code layout{};
  std::int32_t width = 0;
  std::int32_t height = 0;
};

/// One of the pieces of something long. All but the last are as long as a text may be.
struct Piece {
  std::uint32_t isLast = 0;
};

/// How reading stands after a request, and the sample that was read.
struct Reading {
  Time presentation;
  Time duration;
  std::uint32_t status = 0;  ///< a ReaderStatus
  std::uint32_t hasSample = 0;
};

/// The answer to a request. Planes lie in the room granted before, laid out as its shape says.
struct Frame {
  Time time;
  std::uint32_t hasPicture = 0;
  std::int32_t chromaLocation = 0;
  std::array<double, 4> visible{};
  double presentationWidth = 0;
  double presentationHeight = 0;
  std::array<std::uint8_t, 4> colour{};  ///< primaries, transfer, matrix, range
  std::uint32_t isMirrored = 0;
  std::int32_t quarterTurns = 0;
  std::uint32_t isInterlaced = 0;
  std::uint32_t isTopFieldFirst = 0;
};

// What goes to a worker has no padding that could carry our memory along.
static_assert(std::has_unique_object_representations_v<Time> && std::has_unique_object_representations_v<Open> &&
              std::has_unique_object_representations_v<Announce> &&
              std::has_unique_object_representations_v<FrameRequest> &&
              std::has_unique_object_representations_v<Drop> && std::has_unique_object_representations_v<Measure> &&
              std::has_unique_object_representations_v<Describe> &&
              std::has_unique_object_representations_v<StartReading> &&
              std::has_unique_object_representations_v<Reader> && std::has_unique_object_representations_v<Granted>);

}  // namespace vistrelle::platform::wire
