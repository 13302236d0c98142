#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/confined/channel.h"
#include "vistrelle/platform/media/confined/messages.h"

namespace vistrelle::platform {

/// No text in a message is longer; what is longer is cut.
constexpr std::size_t kMaxTextBytes = 32 * 1024;

constexpr std::uint32_t number(wire::Kind kind) {
  return static_cast<std::uint32_t>(kind);
}

/// What a worker tells about a movie that it has loaded.
std::vector<Message> answersAbout(Asset& movie);

/// The same as its user keeps it.
struct TrackRecord {
  std::string description;
  std::int32_t id = 0;
  MediaType type = MediaType::other;
  OptionalText typeCode;
  std::vector<FormatDescription> formats;
  TimeRange range;
  float frameRate = 0;
  bool isEnabled = false;
  bool isDecodable = false;
  bool isProtected = false;
  bool hasPictures = false;
};

struct MovieRecord {
  MediaTime duration = MediaTime::zero();
  MediaTime headerDuration = MediaTime::invalid();
  bool isPlayable = false;
  bool isProtected = false;
  bool hasPictures = false;
  std::uint32_t expectedTracks = 0;
  std::vector<TrackRecord> tracks;
};

/// A natural size as it came; nothing for a message that cannot be one.
std::optional<Size> sizeOf(const Message& message);

/// Puts a record together from messages, none of which is believed: false from take() for one that cannot be true.
class MovieRecordReader {
 public:
  bool take(const Message& message);
  bool isComplete() const;
  const MovieRecord& record() const { return record_; }

 private:
  bool takeMovie(const Message& message);
  bool takeTrack(const Message& message);
  bool takeFormat(const Message& message);

  bool hasMovie_ = false;
  std::uint32_t expectedFormats_ = 0;
  MovieRecord record_;
};

}  // namespace vistrelle::platform
