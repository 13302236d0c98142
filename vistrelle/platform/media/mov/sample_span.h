#pragma once

#include <cstdint>
#include <optional>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform::mov {

/// Adds up what runs of samples cover. Times are in the track's time scale; sums stop at 2^62.
class SampleSpan {
 public:
  /// `count` samples from the decoding time reached so far, all of the same duration and composition offset.
  void add(std::uint64_t count, std::uint32_t duration, std::int64_t compositionOffset);
  /// The decoding time of the next sample (a fragment states its own).
  void moveTo(std::uint64_t decodeTime);
  SampleFacts facts() const;

 private:
  void noteDuration(std::uint64_t count, std::uint32_t duration);

  std::uint64_t count_ = 0;
  std::uint64_t duration_ = 0;
  std::uint64_t decodeTime_ = 0;
  std::optional<std::int64_t> first_;
  std::int64_t end_ = 0;
  std::uint32_t usualDuration_ = 0;  // of the samples before the last run
  std::uint32_t lastDuration_ = 0;
  bool varies_ = false;
};

}  // namespace vistrelle::platform::mov
