#include "vistrelle/platform/media/ffmpeg/frame_pool.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/imgutils.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <array>
#include <cstdint>

#include "vistrelle/platform/base/large_memory.h"

namespace vistrelle::platform {
namespace {

constexpr std::size_t kSmallest = std::size_t{1} << 20;  // below, large pages would mostly hold nothing
constexpr std::size_t kAlignment = 64;
// Vector code of decoders reads and writes a little behind a plane.
constexpr std::size_t kBehindPlane = 16 + kAlignment - 1;

void release(void* opaque, std::uint8_t* data) {
  LargeMemoryDeleter{reinterpret_cast<std::size_t>(opaque)}(data);
}

AVBufferRef* allocate(void*, std::size_t bytes) {
  LargeMemory memory = largeMemory(bytes);
  if (!memory) return nullptr;
  void* size = reinterpret_cast<void*>(memory.get_deleter().bytes);
  AVBufferRef* buffer = av_buffer_create(memory.get(), bytes, &release, size, 0);
  if (buffer != nullptr) memory.release();
  return buffer;
}

}  // namespace

/// Where the planes of a frame stand in its piece.
struct FramePool::Places {
  std::array<int, 4> rowBytes{};
  std::array<std::size_t, 4> offsets{};
  std::array<bool, 4> isUsed{};
  std::size_t bytes = 0;

  /// False for layouts that need more than planes, and for planes that the decoder's own pool would be refused. The
  /// sizes are those that it would take.
  bool lay(AVCodecContext& context, const AVFrame& frame, std::size_t mostBytes) {
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const AVPixFmtDescriptor* descriptor = av_pix_fmt_desc_get(format);
    constexpr std::uint64_t kMoreThanPlanes = AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_HWACCEL;
    if (descriptor == nullptr || (descriptor->flags & kMoreThanPlanes) != 0) return false;
    int width = frame.width;
    int height = frame.height;
    std::array<int, AV_NUM_DATA_POINTERS> alignment{};
    avcodec_align_dimensions2(&context, &width, &height, alignment.data());
    const auto isAligned = [&] {
      for (std::size_t plane = 0; plane < rowBytes.size(); ++plane) {
        if (alignment[plane] > 0 && rowBytes[plane] % alignment[plane] != 0) return false;
      }
      return true;
    };
    do {
      // Wider by the lowest bit that is set, until the rows of every plane begin where vectors do.
      if (av_image_fill_linesizes(rowBytes.data(), format, width) < 0) return false;
      width += width & -width;
    } while (!isAligned());
    std::array<std::ptrdiff_t, 4> wideRowBytes{};
    std::ranges::copy(rowBytes, wideRowBytes.begin());
    std::array<std::size_t, 4> sizes{};
    if (av_image_fill_plane_sizes(sizes.data(), format, height, wideRowBytes.data()) < 0) return false;
    for (std::size_t plane = 0; plane < sizes.size(); ++plane) {
      if (sizes[plane] == 0) continue;
      if (sizes[plane] > mostBytes) return false;
      isUsed[plane] = true;
      offsets[plane] = bytes;
      bytes += (sizes[plane] + kBehindPlane + kAlignment - 1) / kAlignment * kAlignment;
    }
    return bytes >= kSmallest;
  }
};

FramePool::~FramePool() {
  av_buffer_pool_uninit(&pool_);
}

void FramePool::serve(AVCodecContext& context, std::size_t mostBytes) {
  mostBytes_ = mostBytes;
  context.opaque = this;
  context.get_buffer2 = &FramePool::provide;
#if LIBAVCODEC_VERSION_MAJOR < 60
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  context.thread_safe_callbacks = 1;
#pragma GCC diagnostic pop
#endif
}

int FramePool::provide(AVCodecContext* context, AVFrame* frame, int flags) {
  FramePool& pool = *static_cast<FramePool*>(context->opaque);
  Places places;
  if (context->codec_type != AVMEDIA_TYPE_VIDEO || (context->codec->capabilities & AV_CODEC_CAP_DR1) == 0 ||
      !places.lay(*context, *frame, pool.mostBytes_)) {
    return avcodec_default_get_buffer2(context, frame, flags);
  }
  AVBufferRef* piece = pool.piece(places.bytes);
  if (piece == nullptr) return AVERROR(ENOMEM);
  frame->buf[0] = piece;
  for (std::size_t plane = 0; plane < places.rowBytes.size(); ++plane) {
    if (!places.isUsed[plane]) continue;
    frame->data[plane] = piece->data + places.offsets[plane];
    frame->linesize[plane] = places.rowBytes[plane];
  }
  frame->extended_data = frame->data;
  return 0;
}

AVBufferRef* FramePool::piece(std::size_t bytes) {
  const std::lock_guard lock(mutex_);
  if (pool_ == nullptr || bytes != bytes_) {
    av_buffer_pool_uninit(&pool_);  // pieces of another size go with their frames
    pool_ = av_buffer_pool_init2(bytes, nullptr, &allocate, nullptr);
    bytes_ = bytes;
  }
  return pool_ == nullptr ? nullptr : av_buffer_pool_get(pool_);
}

}  // namespace vistrelle::platform
