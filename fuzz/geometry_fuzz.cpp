// Picture geometry from any facts: ratios, clean apertures, orientation, the shape of a decoded frame, and the sizes
// that a movie reports.

#include <array>
#include <cmath>
#include <cstdint>

#include "fuzz/support.h"
#include "tests/support/fake_movie.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movieinfo/geometry.h"
#include "vistrelle/platform/imaging/frame_layout.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/track_shape.h"

namespace {

using namespace vistrelle::platform;
using namespace vistrelle::testing;

mov::Fraction fraction(Input& input) {
  mov::Fraction result{input.take<std::int32_t>(), input.take<std::int32_t>()};
  if (result.denominator == 0) result.denominator = 1;  // which the readers of headers see to
  return result;
}

mov::CleanAperture aperture(Input& input) {
  return {fraction(input), fraction(input), fraction(input), fraction(input)};
}

void checkRatios(Input& input) {
  std::array<std::int64_t, 4> sides{};
  const bool isSmall = input.take<std::uint8_t>() % 2 == 0;
  for (std::int64_t& side : sides) side = isSmall ? input.take<std::uint16_t>() : input.take<std::int64_t>();
  const auto ratios = vistrelle::qtDarPar(sides[0], sides[1], sides[2], sides[3]);
  const auto named = vistrelle::qtDarParDico(sides[0], sides[1], sides[2], sides[3]);
  for (const std::string& ratio : ratios) require(ratio.find(':') != std::string::npos);
  if (named) require(named->size() == 2 && ratios.size() >= 2 && named->at("v0_dar") == Value(ratios[0]));
}

void checkFrame(Input& input) {
  const auto frame = std::shared_ptr<AVFrame>(av_frame_alloc(), [](AVFrame* f) { av_frame_free(&f); });
  frame->format = AV_PIX_FMT_GRAY8;
  frame->width = 1 + input.take<std::uint8_t>();
  frame->height = 1 + input.take<std::uint8_t>();
  require(av_frame_get_buffer(frame.get(), 0) == 0);
  frame->sample_aspect_ratio = {input.take<std::int32_t>(), input.take<std::int32_t>()};
  std::array<std::int32_t, 9> matrix{};
  for (std::int32_t& value : matrix) value = input.take<std::int32_t>();
  AVFrameSideData* side = av_frame_new_side_data(frame.get(), AV_FRAME_DATA_DISPLAYMATRIX, sizeof matrix);
  require(side != nullptr);
  std::memcpy(side->data, matrix.data(), sizeof matrix);
  const int turns = orientationOfMatrix(matrix).quarterTurnsClockwise;
  require(turns >= 0 && turns < 4);

  FrameShape shape;
  const int flags = input.take<std::uint8_t>();
  if ((flags & 1) != 0) shape.cleanAperture = aperture(input);
  if ((flags & 2) != 0) shape.pixelAspect = {input.take<std::int32_t>(), input.take<std::int32_t>()};
  const auto mode = static_cast<ApertureMode>(flags / 4 % 3);
  const PlanarImage image = planarImage(frame, shape, mode, (flags & 64) != 0);
  const PixelRect& seen = image.visible;
  require(seen.x >= 0 && seen.y >= 0 && seen.width >= 1 && seen.height >= 1);
  require(seen.x + seen.width <= image.width + 1e-6 && seen.y + seen.height <= image.height + 1e-6);
  require(image.presentationWidth >= 1 && std::isfinite(image.presentationWidth) && image.presentationHeight >= 1);
  (void)isDrawable(image);

  const Rect clean = cleanRect(shape.cleanAperture, frame->width, frame->height);
  require(clean.x >= 0 && clean.width >= 0 && clean.x + clean.width <= frame->width + 1e-6);
  const Size size = presentationSize(clean, frame->sample_aspect_ratio);
  require(std::isfinite(size.width) && size.width >= 0 && std::isfinite(size.height) && size.height >= 0);
}

/// A movie whose every size is the input's.
void checkMovie(Input& input) {
  const auto movie = videoMovie(1);
  movie->size = Size{input.take<double>(), input.take<double>()};
  std::vector<Size> sizes;
  for (int i = 0; i < 3; ++i) sizes.push_back({input.take<double>(), input.take<double>()});
  movie->answer = [sizes](int n, const MediaTime& time) {
    PlanarImage image;
    image.presentationWidth = sizes[static_cast<std::size_t>(n) % 3].width;
    image.presentationHeight = sizes[static_cast<std::size_t>(n) % 3].height;
    return FrameResult{std::make_shared<const Picture>(image), time, ""};
  };
  const auto library = std::make_shared<FakeLibrary>();
  library->movies["/fuzz.mov"] = movie;
  const Installed<MediaLibrary> installed(mediaLibrary(), library);
  vistrelle::MYMOVIErelease();
  const auto reported = vistrelle::movieSize("/fuzz.mov");
  if (reported) {
    for (const auto& [key, value] : *reported)
      require(value.number().value_or(1) >= 1 || key == "w_width" || key == "w_height");
  }
  (void)vistrelle::movieApertureSize(movie);
  vistrelle::MYMOVIErelease();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool silenced = (silenceLog(), true);
  require(silenced);
  Input input(data, size);
  switch (input.take<std::uint8_t>() % 3) {
    case 0:
      checkRatios(input);
      break;
    case 1:
      checkFrame(input);
      break;
    default:
      checkMovie(input);
  }
  return 0;
}
