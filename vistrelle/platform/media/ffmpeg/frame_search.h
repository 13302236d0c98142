#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vistrelle/platform/media/ffmpeg/frame_plan.h"
#include "vistrelle/platform/media/ffmpeg/frame_run.h"
#include "vistrelle/platform/media/ffmpeg/frame_store.h"

namespace vistrelle::platform {

/// Finds the frame for a place by one run of decoding after another, until one of them proves it, and works out on
/// the way what else was announced.
class FrameSearch {
 public:
  FrameSearch(FrameRun& run, FramePlan& plan, FrameStore& store, bool skips)
      : run_(run), plan_(plan), store_(store), skips_(skips) {}

  FrameRun::Answer find(std::int64_t place);

 private:
  using Answer = FrameRun::Answer;
  Answer goOn(std::int64_t place);
  Answer workUpTo(std::int64_t place, std::int64_t from);
  Answer beginAnew(std::int64_t place);
  bool workOut(std::int64_t place);
  void finishGroup();
  bool isFinal(const Answer& answer) const;
  bool improve(const Answer& answer, std::int64_t* limit, bool* triedBefore);

  FrameRun& run_;
  FramePlan& plan_;
  FrameStore& store_;
  bool skips_;
};

}  // namespace vistrelle::platform
