#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "vistrelle/platform/media/ffmpeg/frame_plan.h"
#include "vistrelle/platform/media/ffmpeg/frame_run.h"
#include "vistrelle/platform/media/ffmpeg/frame_search.h"
#include "vistrelle/platform/media/ffmpeg/frame_store.h"

namespace vistrelle::platform {

/// Finds the frames of one stream: a reading, a decoder, and what is still going to be asked for. Used from one thread
/// at a time; several of them over one movie know nothing of each other and find the same frames.
class FrameFinder {
 public:
  FrameFinder(std::shared_ptr<MovieSource> source, int streamIndex, const FrameOptions& options, RunRules rules = {});
  FrameFinder(const FrameFinder&) = delete;
  FrameFinder& operator=(const FrameFinder&) = delete;

  FrameRun& run() { return run_; }
  const FrameStatistics& statistics() const { return statistics_; }

  /// Forgets what was announced before.
  void announce(std::span<const std::int64_t> places);
  /// The frame for a place, announced or not. Not found: why.
  FrameRun::Answer find(std::int64_t place);
  /// The same, past all that was announced and found before.
  FrameRun::Answer search(std::int64_t place) { return search_.find(place); }

 private:
  FrameRun::Answer knownOrSearched(std::int64_t place);

  FrameStatistics statistics_;
  FramePlan plan_;
  FrameStore store_;
  FrameRun run_;
  FrameSearch search_;
};

}  // namespace vistrelle::platform
