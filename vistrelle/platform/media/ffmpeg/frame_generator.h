#pragma once

#include <memory>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/frame_run.h"

namespace vistrelle::platform {

/// An image generator that tells what it did.
class FrameGenerator : public ImageGenerator {
 public:
  virtual FrameStatistics statistics() const = 0;
};

/// Delivers the frames of one video stream. Nothing is read before the first picture is asked for.
///
/// The rule: the last frame whose presentation time is not after the asked time, on the movie's timeline, with proof;
/// see FrameTimeline for rounding and for streams that do not state their times. The same movie and time give the same
/// frame, whatever was asked before and however many threads decode. A frame that was decoded with errors is delivered
/// with a log line that says so.
///
/// Of an announced list each group of pictures is decoded once, whatever the order. One frame may be decoded by the
/// runs on both sides of a group's edge: the key frame that follows, where the frames before it lean on it (open
/// groups) or where the packets alone cannot prove that nothing lies between (containers without a sample table). A
/// frame whose waiting picture could not be kept, and frames of damaged stretches, are decoded again.
std::unique_ptr<FrameGenerator> makeFrameGenerator(std::shared_ptr<MovieSource> source, int streamIndex,
                                                   const FrameOptions& options = {});

}  // namespace vistrelle::platform
