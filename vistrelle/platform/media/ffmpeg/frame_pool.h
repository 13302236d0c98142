#pragma once

#include <cstddef>
#include <mutex>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Memory for the frames of one decoder: one piece a frame, in large pages, used again and again. The decoder's own
/// pieces are cleared by hand and cost a fault for each small page. Frames may outlive the pool.
class FramePool {
 public:
  FramePool() = default;
  ~FramePool();
  FramePool(const FramePool&) = delete;
  FramePool& operator=(const FramePool&) = delete;

  /// Serves `context`, which has not been opened yet and must not outlive the pool. Small frames, planes larger than
  /// `mostBytes`, frames with a palette and decoders that bring memory of their own stay as they are.
  void serve(AVCodecContext& context, std::size_t mostBytes);

 private:
  struct Places;
  static int provide(AVCodecContext* context, AVFrame* frame, int flags);
  AVBufferRef* piece(std::size_t bytes);

  std::size_t mostBytes_ = 0;
  std::mutex mutex_;  // several frames may be decoded at a time
  AVBufferPool* pool_ = nullptr;
  std::size_t bytes_ = 0;
};

}  // namespace vistrelle::platform
