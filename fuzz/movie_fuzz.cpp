// A movie in this process: opened, its facts told, samples read, pictures taken and drawn.

#include <array>
#include <cmath>
#include <cstdint>
#include <set>
#include <vector>

#include "fuzz/movie_bytes.h"
#include "fuzz/support.h"
#include "vistrelle/platform/imaging/drawing.h"
#include "vistrelle/platform/imaging/picture.h"
#include "vistrelle/platform/media/asset_reader.h"

namespace {

using namespace vistrelle::platform;

constexpr int kMostSamples = 200;

void tellFacts(const UrlAsset& movie) {
  require(!movie.duration().isValid() || movie.duration() >= MediaTime::zero());
  (void)movie.hasProtectedContent();
  (void)movie.headerDuration().description();
  (void)description(Value(movie.metadata().common));
  const Size size = movie.naturalSize();
  require(std::isfinite(size.width) && std::isfinite(size.height) && size.width >= 0 && size.height >= 0);
  std::set<std::int32_t> numbers;
  for (const auto& track : movie.tracks()) {
    require(track->trackId() > 0 && numbers.insert(track->trackId()).second);
    const TimeRange range = track->timeRange();
    require(!range.duration.isNumeric() || range.duration >= MediaTime::zero());
    require(std::isfinite(track->nominalFrameRate()) && track->nominalFrameRate() >= 0);
    for (const FormatDescription& format : track->formatDescriptions()) {
      const Rect& clean = format.cleanAperture;
      require(format.width >= 0 && format.height >= 0);
      require(clean.x >= 0 && clean.y >= 0 && clean.width >= 0 && clean.height >= 0);
      require(clean.x + clean.width <= format.width + 1e-6 && clean.y + clean.height <= format.height + 1e-6);
    }
    const TrackDetails details = track->details();
    if (details.rotation) require(*details.rotation % 90 == 0 && *details.rotation < 360);
    if (details.frameRate) require(details.frameRate->denominator > 0);
    require(!track->description().empty());
  }
}

void readSamples(UrlAsset& movie) {
  std::string error;
  const auto tracks = movie.tracks();
  const auto reader = movie.makeReader(&error);
  require((reader == nullptr) == !error.empty());
  if (!reader || tracks.empty() || !reader->canAddOutput(tracks.front())) return;
  reader->addOutput(tracks.front());
  if (!reader->startReading()) return;
  for (int i = 0; i < kMostSamples && reader->copyNextSampleBuffer(); ++i) {
  }
  require((reader->status() == ReaderStatus::failed) == reader->error().has_value());
}

void draw(const Picture& picture) {
  const auto raster = Bitmap::make(40, 30);
  DrawingContext(*raster).draw(picture, {0, 0, 40, 30}, {}, CompositeOperation::sourceOver, 1);
}

void takePictures(UrlAsset& movie, const std::vector<MediaTime>& times) {
  const auto generator = movie.makeImageGenerator();
  if (!generator) return;
  generator->setAppliesPreferredTrackTransform(true);
  generator->announce(times);
  for (const MediaTime& time : times) {
    const FrameResult result = generator->copyFrame(time);
    require((result.picture != nullptr) == result.actualTime.isValid());
    require(result.picture == nullptr || result.error.empty());
    if (!result.picture) continue;
    require(result.picture->planar() != nullptr);
    // A layout that cannot be drawn is no fault; a size that is none would be.
    require(result.picture->width() >= 1 && result.picture->height() >= 1);
    draw(*result.picture);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  const auto movie = openMovie({data, size}, size % 7 == 0 ? 509 : SIZE_MAX);
  tellFacts(*movie);
  const double seconds = movie->duration().isNumeric() ? movie->duration().seconds() : 0;
  const auto at = [seconds](double part) { return MediaTime::makeWithSeconds(seconds * part, 600); };
  takePictures(*movie, {at(0.5), at(0), at(0.3), at(1.1), at(0.5)});
  readSamples(*movie);
  return 0;
}
