#include "vistrelle/platform/imaging/colour_conversion.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "vistrelle/platform/imaging/frame_layout.h"
#include "vistrelle/platform/imaging/tone_mapping.h"

namespace vistrelle::platform {
namespace {

// ITU-T H.273, table 4 (matrix coefficients).
constexpr int kMatrixBt709 = 1;
constexpr int kMatrixFcc = 4;
constexpr int kMatrixBt470Bg = 5;
constexpr int kMatrixSmpte170M = 6;
constexpr int kMatrixSmpte240M = 7;
constexpr int kMatrixYCgCo = 8;
constexpr int kMatrixBt2020 = 9;
constexpr int kMatrixBt2020Constant = 10;
constexpr int kMatrixIctcp = 14;

constexpr int kLinesOfHighDefinition = 720;
constexpr int kChunk = 512;

struct LumaWeights {
  double red;
  double blue;
};

LumaWeights weights(int matrix, int lines) {
  switch (matrix) {
    case kMatrixBt709:
      return {0.2126, 0.0722};
    case kMatrixFcc:
      return {0.30, 0.11};
    case kMatrixBt470Bg:
    case kMatrixSmpte170M:
      return {0.299, 0.114};
    case kMatrixSmpte240M:
      return {0.212, 0.087};
    case kMatrixBt2020:
    case kMatrixBt2020Constant:
    case kMatrixIctcp:
      return {0.2627, 0.0593};
    default:
      return lines >= kLinesOfHighDefinition ? weights(kMatrixBt709, lines) : weights(kMatrixSmpte170M, lines);
  }
}

/// Factors of blue and red difference (each -0.5 to 0.5) for red, green and blue; H.273 equations 38 to 43 and 53 to
/// 55 solved for R, G, B.
std::array<std::array<double, 2>, 3> chromaFactors(int matrix, int lines) {
  if (matrix == kMatrixYCgCo) return {{{-1, 1}, {1, 0}, {-1, -1}}};
  const auto [red, blue] = weights(matrix, lines);
  const double green = 1 - red - blue;
  return {{{0, 2 * (1 - red)}, {-2 * (1 - blue) * blue / green, -2 * (1 - red) * red / green}, {2 * (1 - blue), 0}}};
}

// Plain loops, built for several generations of the processor; all give the same bits, as nothing is fused
// (-ffp-contract=off). Sanitizers cannot have it: what picks the version runs before they are set up.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && !defined(__SANITIZE_ADDRESS__) && \
    !defined(__SANITIZE_THREAD__)
#define VISTRELLE_WIDE __attribute__((target_clones("avx2", "default")))
#else
#define VISTRELLE_WIDE
#endif

struct Mixture {
  float luma;
  float blue;
  float red;
  float constant;
};

VISTRELLE_WIDE void mix(const std::uint16_t* luma, const std::uint16_t* blue, const std::uint16_t* red, int count,
                        Mixture shares, std::uint8_t* out) {
  for (int i = 0; i < count; ++i) {
    const float value = static_cast<float>(luma[i]) * shares.luma + static_cast<float>(blue[i]) * shares.blue +
                        static_cast<float>(red[i]) * shares.red + shares.constant;
    out[i] = static_cast<std::uint8_t>(static_cast<int>(std::min(std::max(value, 0.0F), 255.0F)));
  }
}

VISTRELLE_WIDE void interleave(const std::uint8_t* red, const std::uint8_t* green, const std::uint8_t* blue, int count,
                               std::uint8_t* rgba) {
  for (int i = 0; i < count; ++i) {
    const auto at = static_cast<std::size_t>(i);
    rgba[4 * at] = red[at];
    rgba[4 * at + 1] = green[at];
    rgba[4 * at + 2] = blue[at];
    rgba[4 * at + 3] = 255;
  }
}

}  // namespace

ColourConversion::ColourConversion(const PlanarImage& image, const FrameLayout& layout)
    : tones_(ToneMapping::make(image.colour, layout.isXyz)) {
  // Samples of d bits stand in the upper bits of 16: code value c is c x 2^(16-d).
  const double full = std::ldexp(std::ldexp(1.0, layout.depth) - 1, 16 - layout.depth);
  const double lumaSpan = layout.fullRange ? full : 219.0 * 256;
  const double chromaSpan = layout.fullRange ? full : 224.0 * 256;
  lumaScale_ = static_cast<float>(1 / lumaSpan);
  lumaOffset_ = layout.fullRange ? 0.0F : 16.0F * 256;
  chromaOffset_ = 32768.0F;
  alphaScale_ = static_cast<float>(1 / full);
  const auto factors = chromaFactors(image.colour.matrix, image.height);
  for (std::size_t row = 0; row < 3; ++row) {
    for (std::size_t column = 0; column < 2; ++column) {
      chroma_[row][column] = static_cast<float>(factors[row][column] / chromaSpan);
    }
  }
}

ColourConversion::~ColourConversion() = default;

void ColourConversion::toRgba8(const std::uint16_t* luma, const std::uint16_t* blue, const std::uint16_t* red,
                               int count, std::uint8_t* rgba) const {
  if (tones_) {
    std::vector<float> row(static_cast<std::size_t>(count) * 4);
    toFloat(luma, blue, red, nullptr, count, row.data());
    for (std::size_t i = 0; i < row.size(); ++i) {
      rgba[i] = static_cast<std::uint8_t>(std::clamp(row[i], 0.0F, 1.0F) * 255.0F + 0.5F);
    }
    return;
  }
  // Planes of one chunk first: these loops are plain enough for the compiler to work on several pixels at once.
  std::array<std::array<std::uint8_t, kChunk>, 3> planes;
  for (int start = 0; start < count; start += kChunk) {
    const int length = std::min(kChunk, count - start);
    for (std::size_t plane = 0; plane < 3; ++plane) {
      const float scale = lumaScale_ * 255.0F;
      const float fromBlue = chroma_[plane][0] * 255.0F;
      const float fromRed = chroma_[plane][1] * 255.0F;
      const float constant = 0.5F - lumaOffset_ * scale - chromaOffset_ * (fromBlue + fromRed);
      mix(luma + start, blue + start, red + start, length, {scale, fromBlue, fromRed, constant}, planes[plane].data());
    }
    interleave(planes[0].data(), planes[1].data(), planes[2].data(), length,
               rgba + static_cast<std::size_t>(start) * 4);
  }
}

void ColourConversion::toFloat(const std::uint16_t* luma, const std::uint16_t* blue, const std::uint16_t* red,
                               const std::uint16_t* alpha, int count, float* rgba) const {
  for (int i = 0; i < count; ++i) {
    float* pixel = rgba + static_cast<std::size_t>(i) * 4;
    const float y = (static_cast<float>(luma[i]) - lumaOffset_) * lumaScale_;
    const float u = static_cast<float>(blue[i]) - chromaOffset_;
    const float v = static_cast<float>(red[i]) - chromaOffset_;
    for (std::size_t plane = 0; plane < 3; ++plane) {
      pixel[plane] = std::clamp(y + u * chroma_[plane][0] + v * chroma_[plane][1], 0.0F, 1.0F);
    }
    pixel[3] = 1;
  }
  mapTones(rgba, count);
  if (!alpha) return;
  for (int i = 0; i < count; ++i) {
    float* pixel = rgba + static_cast<std::size_t>(i) * 4;
    const float opacity = std::min(static_cast<float>(alpha[i]) * alphaScale_, 1.0F);
    for (std::size_t plane = 0; plane < 4; ++plane) pixel[plane] *= opacity;
  }
}

void ColourConversion::mapTones(float* rgba, int count) const {
  if (tones_) tones_->apply(rgba, count);
}

}  // namespace vistrelle::platform
