#include "vistrelle/platform/media/ffmpeg/frame_pool.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>

namespace vistrelle::platform {
namespace {

/// A decoder's context that asks for frames of one size and layout.
struct Asking {
  explicit Asking(FramePool& pool, AVPixelFormat format = AV_PIX_FMT_YUV420P, int width = 1920, int height = 1080,
                  AVCodecID id = AV_CODEC_ID_MJPEG, std::size_t mostBytes = std::size_t{1} << 30)
      : codec(avcodec_find_decoder(id)), context(avcodec_alloc_context3(codec)) {
    context->width = context->coded_width = width;
    context->height = context->coded_height = height;
    context->pix_fmt = format;
    context->bits_per_coded_sample = 8;  // what tells the one with a palette which layout it is
    pool.serve(*context, mostBytes);
    EXPECT_EQ(avcodec_open2(context.get(), codec, nullptr), 0);
  }

  AvPtr<AVFrame> frame() {
    AvPtr<AVFrame> made(av_frame_alloc());
    made->width = context->width;
    made->height = context->height;
    made->format = context->pix_fmt;
    EXPECT_EQ(context->get_buffer2(context.get(), made.get(), 0), 0);
    return made;
  }

  const AVCodec* codec;
  AvPtr<AVCodecContext> context;
};

TEST(FramePool, PlanesOfOneFrameStandApartInOnePiece) {
  FramePool pool;
  Asking asking(pool);
  const AvPtr<AVFrame> frame = asking.frame();
  ASSERT_NE(frame->buf[0], nullptr);
  EXPECT_EQ(frame->buf[1], nullptr);
  const int rows[] = {1080, 540, 540};
  const std::uint8_t* end = frame->buf[0]->data;
  for (int plane = 0; plane < 3; ++plane) {
    EXPECT_GE(frame->data[plane], end) << plane;
    EXPECT_GE(frame->linesize[plane], plane == 0 ? 1920 : 960);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(frame->data[plane]) % 32, 0U);
    EXPECT_EQ(frame->linesize[plane] % 32, 0);
    end = frame->data[plane] + frame->linesize[plane] * rows[plane];
    std::memset(frame->data[plane], plane + 1, static_cast<std::size_t>(frame->linesize[plane] * rows[plane]));
  }
  EXPECT_LE(end + 64, frame->buf[0]->data + frame->buf[0]->size);  // vector code goes a little further
  EXPECT_EQ(frame->data[0][frame->linesize[0] * 1080 - 1], 1);
  EXPECT_EQ(frame->data[1][frame->linesize[1] * 540 - 1], 2);
  EXPECT_EQ(frame->data[3], nullptr);
  EXPECT_EQ(frame->extended_data, frame->data);
}

TEST(FramePool, AFrameThatIsGivenBackServesAgain) {
  FramePool pool;
  Asking asking(pool);
  AvPtr<AVFrame> frame = asking.frame();
  const std::uint8_t* place = frame->data[0];
  const AvPtr<AVFrame> other = asking.frame();
  EXPECT_NE(other->data[0], place);
  frame.reset();
  EXPECT_EQ(asking.frame()->data[0], place);
}

TEST(FramePool, FramesOutliveTheirDecoderAndThePool) {
  AvPtr<AVFrame> frame;
  {
    FramePool pool;
    Asking asking(pool);
    frame = asking.frame();
    std::memset(frame->data[0], 7, 1920);
  }
  EXPECT_EQ(frame->data[0][1919], 7);
  std::memset(frame->data[2], 9, static_cast<std::size_t>(frame->linesize[2]) * 540);
  EXPECT_EQ(frame->data[2][0], 9);
}

TEST(FramePool, ASizeThatChangesGivesPiecesOfItsOwn) {
  FramePool pool;
  Asking asking(pool);
  const AvPtr<AVFrame> former = asking.frame();
  asking.context->width = asking.context->coded_width = 3840;
  asking.context->height = asking.context->coded_height = 2160;
  const AvPtr<AVFrame> later = asking.frame();
  EXPECT_GE(later->buf[0]->size, std::size_t{3840} * 2160 * 3 / 2);
  std::memset(later->data[0], 1, static_cast<std::size_t>(later->linesize[0]) * 2160);
  EXPECT_EQ(former->data[0][0], 0);
}

TEST(FramePool, PlanesBeyondTheLimitAreLeftToTheDecoder) {
  constexpr std::size_t kLuma = std::size_t{1920} * 1088;
  FramePool pool;
  Asking asking(pool, AV_PIX_FMT_YUV420P, 1920, 1080, AV_CODEC_ID_MJPEG, kLuma / 2);
  EXPECT_NE(asking.frame()->buf[1], nullptr);
  FramePool other;
  Asking allowed(other, AV_PIX_FMT_YUV420P, 1920, 1080, AV_CODEC_ID_MJPEG, 2 * kLuma);
  EXPECT_EQ(allowed.frame()->buf[1], nullptr);
}

TEST(FramePool, SmallFramesAndPalettesAreLeftToTheDecoder) {
  FramePool pool;
  Asking small(pool, AV_PIX_FMT_YUV420P, 320, 240);
  EXPECT_NE(small.frame()->buf[1], nullptr);  // its own pieces are one a plane
  FramePool other;
  Asking palette(other, AV_PIX_FMT_PAL8, 1920, 1080, AV_CODEC_ID_QTRLE);
  EXPECT_NE(palette.frame()->data[1], nullptr);
}

}  // namespace
}  // namespace vistrelle::platform
