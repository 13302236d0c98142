#include "vistrelle/platform/imaging/tone_mapping.h"

#include <algorithm>
#include <cmath>

namespace vistrelle::platform {
namespace {

// ITU-T H.273, tables 2 and 3.
constexpr int kPrimariesBt709 = 1;
constexpr int kPrimariesBt2020 = 9;
constexpr int kPrimariesXyz = 10;
constexpr int kPrimariesP3Dci = 11;
constexpr int kPrimariesP3D65 = 12;
constexpr int kTransferLinear = 8;
constexpr int kTransferPq = 16;
constexpr int kTransferHlg = 18;

constexpr double kDiffuseWhite = 203;  // cd/m2
constexpr double kHlgPeak = 1000;      // cd/m2
constexpr double kPqPeak = 10000;      // cd/m2
constexpr double kHlgGamma = 1.2;      // system gamma at a peak of 1,000 cd/m2
constexpr double kCinemaGamma = 2.6;
constexpr double kCinemaWhite = 48 / 52.37;  // of the code's range
constexpr int kSteps = 4096;

// Light above the knee is bent; with this knee diffuse white keeps 83.6 % of display white, coded 235.
constexpr float kKnee = 0.66F;

using Matrix = std::array<std::array<float, 3>, 3>;
constexpr Matrix kIdentity{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
// Linear light to BT.709 primaries, white D65 throughout (from the chromaticities of H.273 table 2).
constexpr Matrix kFromBt2020{
    {{1.660491F, -0.587641F, -0.072850F}, {-0.124550F, 1.132900F, -0.008349F}, {-0.018151F, -0.100579F, 1.118730F}}};
constexpr Matrix kFromP3D65{
    {{1.224940F, -0.224940F, 0.0F}, {-0.042057F, 1.042057F, 0.0F}, {-0.019638F, -0.078636F, 1.098274F}}};

constexpr Matrix kFromXyz{
    {{3.240970F, -1.537383F, -0.498611F}, {-0.969244F, 1.875968F, 0.041555F}, {0.055630F, -0.203977F, 1.056972F}}};

Matrix toBt709(int primaries) {
  switch (primaries) {
    case kPrimariesBt2020:
      return kFromBt2020;
    case kPrimariesXyz:
      return kFromXyz;
    case kPrimariesP3Dci:  // its greenish white is shown as white
    case kPrimariesP3D65:
      return kFromP3D65;
    default:
      return kIdentity;
  }
}

bool isWide(int primaries) {
  return primaries == kPrimariesBt2020 || primaries == kPrimariesP3Dci || primaries == kPrimariesP3D65;
}

/// SMPTE ST 2084, cd/m2.
double pqLight(double coded) {
  constexpr double m1 = 2610.0 / 16384;
  constexpr double m2 = 2523.0 / 4096 * 128;
  constexpr double c1 = 3424.0 / 4096;
  constexpr double c2 = 2413.0 / 4096 * 32;
  constexpr double c3 = 2392.0 / 4096 * 32;
  const double root = std::pow(coded, 1 / m2);
  return 10000 * std::pow(std::max(root - c1, 0.0) / (c2 - c3 * root), 1 / m1);
}

/// Scene light from 0 to 1 (BT.2100, table 5).
double hlgSceneLight(double coded) {
  constexpr double a = 0.17883277;
  constexpr double b = 0.28466892;
  constexpr double c = 0.55991073;
  return coded <= 0.5 ? coded * coded / 3 : (std::exp((coded - c) / a) + b) / 12;
}

double srgbLight(double coded) {
  return coded <= 0.04045 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
}

double srgbCoded(double light) {
  return light <= 0.0031308 ? 12.92 * light : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

float lookUp(const std::vector<float>& table, float value) {
  const float place = std::clamp(value, 0.0F, 1.0F) * (kSteps - 1);
  const auto index = std::min(static_cast<std::size_t>(place), static_cast<std::size_t>(kSteps - 2));
  const float part = place - static_cast<float>(index);
  return table[index] + (table[index + 1] - table[index]) * part;
}

/// Display light (1 being white) for light relative to diffuse white: Reinhard's extended curve above the knee, white
/// at `peak`.
float rollOff(float light, float peak) {
  if (light <= kKnee) return light;
  const float top = (peak - kKnee) / (1 - kKnee);
  const float above = (light - kKnee) / (1 - kKnee);
  return std::min(1.0F, kKnee + (1 - kKnee) * above * (1 + above / (top * top)) / (1 + above));
}

}  // namespace

std::unique_ptr<ToneMapping> ToneMapping::make(const ColourTags& tags, bool isXyz) {
  const auto mapping = [](Curve curve, int primaries) {
    return std::unique_ptr<ToneMapping>(new ToneMapping(curve, primaries));
  };
  if (isXyz) return mapping(Curve::cinema, kPrimariesXyz);
  const bool isHlg = tags.transfer == kTransferHlg;
  if (isHlg || tags.transfer == kTransferPq) {
    // BT.2100 knows BT.2020 primaries only; P3 and BT.709 are what else is really met.
    const bool isOther = isWide(tags.primaries) || tags.primaries == kPrimariesBt709;
    return mapping(isHlg ? Curve::hlg : Curve::pq, isOther ? tags.primaries : kPrimariesBt2020);
  }
  if (tags.transfer == kTransferLinear) return mapping(Curve::linear, tags.primaries);
  return isWide(tags.primaries) ? mapping(Curve::srgb, tags.primaries) : nullptr;
}

ToneMapping::ToneMapping(Curve curve, int primaries)
    : curve_(curve), toSrgb_(toBt709(primaries)), light_(kSteps), coded_(kSteps) {
  const auto lightOf = [curve](double coded) {
    switch (curve) {
      case Curve::pq:
        return pqLight(coded) / kDiffuseWhite;
      case Curve::hlg:
        return hlgSceneLight(coded);
      case Curve::cinema:
        return std::pow(coded, kCinemaGamma) / kCinemaWhite;
      case Curve::linear:
        return coded;
      default:
        return srgbLight(coded);
    }
  };
  for (std::size_t step = 0; step < kSteps; ++step) {
    const double value = static_cast<double>(step) / (kSteps - 1);
    light_[step] = static_cast<float>(lightOf(value));
    coded_[step] = static_cast<float>(srgbCoded(value * value));
  }
}

std::array<float, 3> ToneMapping::toLight(const float* coded) const {
  std::array<float, 3> light{lookUp(light_, coded[0]), lookUp(light_, coded[1]), lookUp(light_, coded[2])};
  if (curve_ == Curve::hlg) {
    const float luminance = 0.2627F * light[0] + 0.6780F * light[1] + 0.0593F * light[2];
    const float gain = luminance <= 0 ? 0.0F
                                      : std::pow(luminance, static_cast<float>(kHlgGamma - 1)) *
                                            static_cast<float>(kHlgPeak / kDiffuseWhite);
    for (float& part : light) part *= gain;
  }
  return light;
}

void ToneMapping::apply(float* rgba, int count) const {
  const bool isHighRange = curve_ == Curve::pq || curve_ == Curve::hlg;
  const auto peak = static_cast<float>((curve_ == Curve::pq ? kPqPeak : kHlgPeak) / kDiffuseWhite);
  for (int i = 0; i < count; ++i) {
    float* pixel = rgba + static_cast<std::size_t>(i) * 4;
    const auto light = toLight(pixel);
    std::array<float, 3> mapped{};
    for (std::size_t row = 0; row < 3; ++row) {
      for (std::size_t column = 0; column < 3; ++column) mapped[row] += toSrgb_[row][column] * light[column];
      mapped[row] = std::max(mapped[row], 0.0F);
    }
    // One factor for the three keeps the hue.
    const float brightest = std::max({mapped[0], mapped[1], mapped[2]});
    const float factor = !isHighRange || brightest <= kKnee ? 1.0F : rollOff(brightest, peak) / brightest;
    for (std::size_t row = 0; row < 3; ++row) pixel[row] = lookUp(coded_, std::sqrt(mapped[row] * factor));
  }
}

}  // namespace vistrelle::platform
