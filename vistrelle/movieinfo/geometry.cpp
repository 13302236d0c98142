#include "vistrelle/movieinfo/geometry.h"

#include <array>
#include <memory>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using platform::ApertureMode;
using platform::Dictionary;
using platform::FrameResult;
using platform::ImageGenerator;
using platform::MediaTime;
using platform::Size;

constexpr int kPasses = 3;

struct PixelSize {
  std::int64_t width = 0;
  std::int64_t height = 0;
  bool isKnown() const { return width >= 1 && height >= 1; }
  /// Each side replaces the one that was known, unless it is zero.
  void take(const PixelSize& measured) {
    if (measured.width != 0) width = measured.width;
    if (measured.height != 0) height = measured.height;
  }
};

/// What the three aperture modes measured.
struct Apertures {
  PixelSize clean;
  PixelSize encoded;
};

MediaTime firstTime() {
  return MediaTime::makeWithSeconds(0.0, 1);
}

/// The generator with the display transform applied. The same time is going to be asked for three times, so that its
/// frame is decoded once and kept.
void prepare(ImageGenerator& generator) {
  generator.setAppliesPreferredTrackTransform(true);
  const std::array<MediaTime, kPasses> times{firstTime(), firstTime(), firstTime()};
  generator.announce(times);
}

PixelSize sizeOf(const FrameResult& frame) {
  if (!frame.picture) return {};
  return {truncatedInteger(frame.picture->width()), truncatedInteger(frame.picture->height())};
}

Apertures measure(ImageGenerator& generator) {
  Apertures sizes;
  constexpr std::array<ApertureMode, kPasses> modes{ApertureMode::cleanAperture, ApertureMode::productionAperture,
                                                    ApertureMode::encodedPixels};
  for (const ApertureMode mode : modes) {
    generator.setApertureMode(mode);
    const FrameResult frame = generator.copyFrame(firstTime());
    if (!frame.error.empty()) {
      log("movieSizes aperture :-( {}", frame.error);
      break;
    }
    const PixelSize size = sizeOf(frame);
    switch (mode) {
      case ApertureMode::cleanAperture:
        sizes.clean.take(size);
        log("movieSizes clean    : {} * {}", sizes.clean.width, sizes.clean.height);
        break;
      case ApertureMode::productionAperture:
        log("movieSizes productio: {} * {}", size.width, size.height);
        break;
      case ApertureMode::encodedPixels:
        sizes.encoded.take(size);
        log("movieSizes pixels   : {} * {}", sizes.encoded.width, sizes.encoded.height);
        break;
    }
  }
  return sizes;
}

void addNaturalSize(Dictionary& sizes, const Size& natural) {
  log("movieSizes natural  : {:.0f} * {:.0f}", natural.width, natural.height);
  if (natural.width > 0) sizes.insert_or_assign("w_width", truncatedInteger(natural.width));
  if (natural.height > 0) sizes.insert_or_assign("w_height", truncatedInteger(natural.height));
}

void addPictureSizes(Dictionary& sizes, const Apertures& apertures) {
  const auto& [clean, encoded] = apertures;
  if (!encoded.isKnown()) return;
  sizes.insert_or_assign("v0_width", encoded.width);
  sizes.insert_or_assign("v0_height", encoded.height);
  if (clean.isKnown()) {
    const auto ratios = qtDarParDico(clean.width, clean.height, encoded.width, encoded.height);
    for (const auto& [key, value] : ratios.value_or(Dictionary())) sizes.insert_or_assign(key, value);
  }
  log("movieSizes md : {}", platform::description(platform::Value(sizes)));
}

}  // namespace

std::optional<Dictionary> movieSize(const platform::OptionalText& path) {
  log("movieSize           - begin");
  if (!movieLoad(path)) return std::nullopt;
  const Movie movie = MYMOVIEget();
  if (!movieTrackTypes(movie, kVideoTracks)) return std::nullopt;
  Dictionary sizes;
  addNaturalSize(sizes, movie->naturalSize());
  if (isVerbose()) {
    log("        input infos : (isPlayable={} DRM={}) {}", movie->isPlayable(), movie->hasProtectedContent(),
        tracksDescription(visualTracks(movie)));
  }
  const std::unique_ptr<ImageGenerator> generator = movie->makeImageGenerator();
  logVerbose("…initWithAsset");
  if (!generator) {
    log("AVAssetImageGenerato:-( failed to create ({})", platform::lastPathComponent(*path));
    return std::nullopt;
  }
  prepare(*generator);
  addPictureSizes(sizes, measure(*generator));
  if (sizes.empty()) return std::nullopt;
  return sizes;
}

Size movieApertureSize(const Movie& movie) {
  if (!movieTrackTypes(movie, kVideoTracks)) return {};
  const Size natural = movie->naturalSize();
  log("-1 w * h: {:.0f} * {:.0f}", natural.width, natural.height);
  const std::unique_ptr<ImageGenerator> generator = movie->makeImageGenerator();
  if (!generator) {
    log("AVAssetImageGenerato:-( failed to create from asset");
    return {};
  }
  prepare(*generator);
  generator->setApertureMode(ApertureMode::cleanAperture);
  PixelSize kept;
  // Three times the same question: intended.
  for (int pass = 0; pass < kPasses; ++pass) {
    const FrameResult frame = generator->copyFrame(firstTime());
    if (!frame.error.empty()) {
      log("aperture error      : {}", frame.error);
      break;
    }
    kept.take(sizeOf(frame));
    log("#{} w * h: {} * {}", pass, kept.width, kept.height);
  }
  return {static_cast<double>(kept.width), static_cast<double>(kept.height)};
}

}  // namespace vistrelle
