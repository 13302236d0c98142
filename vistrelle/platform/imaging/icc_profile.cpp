#include "vistrelle/platform/imaging/icc_profile.h"

#include <lcms2.h>

#include <array>
#include <cmath>
#include <memory>
#include <vector>

namespace vistrelle::platform {
namespace {

constexpr int kCurveEntries = 810;
constexpr std::size_t kDateOffset = 24;  // ICC.1:2001-04, 6.1: twelve bytes, six big-endian numbers

struct LcmsDeleter {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
  void operator()(cmsMLU* text) const { cmsMLUfree(text); }
};

/// IEC 61966-2-1, coded value to light.
std::vector<std::uint16_t> srgbCurve() {
  std::vector<std::uint16_t> table(kCurveEntries);
  for (std::size_t i = 0; i < table.size(); ++i) {
    const double coded = static_cast<double>(i) / (kCurveEntries - 1);
    const double light = coded <= 0.04045 ? coded / 12.92 : std::pow((coded + 0.055) / 1.055, 2.4);
    table[i] = static_cast<std::uint16_t>(std::lround(light * 65535));
  }
  return table;
}

void setText(cmsHPROFILE profile, cmsTagSignature tag, const char* text) {
  const std::unique_ptr<cmsMLU, LcmsDeleter> words(cmsMLUalloc(nullptr, 1));
  if (!words) return;
  cmsMLUsetASCII(words.get(), "en", "US", text);
  cmsWriteTag(profile, tag, words.get());
}

std::vector<std::uint8_t> makeProfile() {
  const auto table = srgbCurve();
  const std::unique_ptr<cmsToneCurve, LcmsDeleter> curve(
      cmsBuildTabulatedToneCurve16(nullptr, kCurveEntries, table.data()));
  if (!curve) return {};
  constexpr cmsCIExyY kD65{0.3127, 0.3290, 1};
  constexpr cmsCIExyYTRIPLE kPrimaries{{0.64, 0.33, 1}, {0.30, 0.60, 1}, {0.15, 0.06, 1}};
  std::array<cmsToneCurve*, 3> curves{curve.get(), curve.get(), curve.get()};
  const std::unique_ptr<void, LcmsDeleter> profile(cmsCreateRGBProfile(&kD65, &kPrimaries, curves.data()));
  if (!profile) return {};
  cmsSetProfileVersion(profile.get(), 2.1);
  setText(profile.get(), cmsSigProfileDescriptionTag, "sRGB");
  setText(profile.get(), cmsSigCopyrightTag, "No copyright, use freely");
  cmsUInt32Number size = 0;
  if (!cmsSaveProfileToMem(profile.get(), nullptr, &size)) return {};
  std::vector<std::uint8_t> bytes(size);
  if (!cmsSaveProfileToMem(profile.get(), bytes.data(), &size)) return {};
  // The library writes the time of day; the same picture must give the same file on every day: 2026-01-01 00:00:00.
  constexpr std::array<std::uint8_t, 12> kDate{0x07, 0xEA, 0, 1, 0, 1, 0, 0, 0, 0, 0, 0};
  for (std::size_t i = 0; i < kDate.size(); ++i) bytes[kDateOffset + i] = kDate[i];
  return bytes;
}

}  // namespace

std::span<const std::uint8_t> srgbProfile() {
  static const std::vector<std::uint8_t> profile = makeProfile();
  return profile;
}

}  // namespace vistrelle::platform
