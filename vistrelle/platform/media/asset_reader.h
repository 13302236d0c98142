#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/asset.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// The numbers are the ones that log lines print.
enum class ReaderStatus : std::int64_t { unknown = 0, reading = 1, completed = 2, failed = 3, cancelled = 4 };

/// One sample of a track as stored, on the movie's timeline.
struct SampleBuffer {
  Data bytes;
  MediaTime presentation;
  MediaTime duration;
};

/// Reads the samples of one track of a movie in decoding order. Used from one thread.
class AssetReader {
 public:
  virtual ~AssetReader() = default;
  /// Whether `track` belongs to the movie and no other output has been added.
  virtual bool canAddOutput(const std::shared_ptr<Track>& track) const = 0;
  virtual void addOutput(const std::shared_ptr<Track>& track) = 0;
  /// False, with status failed and an error, when reading cannot begin.
  virtual bool startReading() = 0;
  /// The next sample; nothing at the end (status completed) and on an error (status failed).
  virtual std::optional<SampleBuffer> copyNextSampleBuffer() = 0;
  virtual ReaderStatus status() const = 0;
  /// Absent unless the status is failed.
  virtual OptionalText error() const = 0;
  virtual void cancelReading() = 0;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
