#include <algorithm>
#include <array>
#include <cmath>
#include <new>

#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/jp2_stream.h"

namespace vistrelle::platform {
namespace {

constexpr int kMostResolutions = 6;

using Bytes8 = std::vector<std::uint8_t>;

std::uint32_t read32(const Bytes8& bytes, std::size_t at) {
  return static_cast<std::uint32_t>(bytes[at]) << 24 | static_cast<std::uint32_t>(bytes[at + 1]) << 16 |
         static_cast<std::uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

/// A resolution box with a capture resolution, ISO/IEC 15444-1, I.5.3.7: pixels a metre as a fraction times a power
/// of ten, down and across. 100 / 2.54 is 10000 / 254.
std::array<std::uint8_t, 26> resolutionBox(double dpi) {
  const auto numerator = static_cast<unsigned>(std::lround(std::clamp(dpi, 1.0, 65535.0)));
  const auto high = static_cast<std::uint8_t>(numerator >> 8);
  const auto low = static_cast<std::uint8_t>(numerator);
  return {0, 0, 0, 26, 'r', 'e', 's', ' ', 0, 0, 0, 18, 'r', 'e', 's', 'c', high, low, 0, 254, high, low, 0, 254, 4, 4};
}

/// The library writes no resolution: the box goes at the end of the header box ("jp2h").
void insertResolution(Bytes8& file, double dpi) {
  std::size_t place = 0;
  while (place + 8 <= file.size()) {
    const std::uint32_t length = read32(file, place);
    if (length < 8 || length > file.size() - place) return;
    if (std::equal(file.begin() + static_cast<std::ptrdiff_t>(place) + 4,
                   file.begin() + static_cast<std::ptrdiff_t>(place) + 8, "jp2h")) {
      const auto box = resolutionBox(dpi);
      file.insert(file.begin() + static_cast<std::ptrdiff_t>(place + length), box.begin(), box.end());
      const std::uint32_t longer = length + static_cast<std::uint32_t>(box.size());
      for (std::size_t i = 0; i < 4; ++i) file[place + i] = static_cast<std::uint8_t>(longer >> (24 - 8 * i));
      return;
    }
    place += length;
  }
}

Jp2Image imageOf(const Bitmap& raster) {
  std::array<opj_image_cmptparm_t, 3> parameters{};
  for (auto& component : parameters) {
    component.dx = component.dy = 1;
    component.w = static_cast<OPJ_UINT32>(raster.width());
    component.h = static_cast<OPJ_UINT32>(raster.height());
    component.prec = 8;
  }
  Jp2Image image(opj_image_create(3, parameters.data(), OPJ_CLRSPC_SRGB));
  if (!image) return nullptr;
  image->x1 = parameters[0].w;
  image->y1 = parameters[0].h;
  std::size_t at = 0;
  for (int y = 0; y < raster.height(); ++y) {
    const std::uint8_t* row = raster.row(y);
    for (int x = 0; x < raster.width(); ++x, row += 4, ++at) {
      for (std::size_t part = 0; part < 3; ++part) image->comps[part].data[at] = row[part];
    }
  }
  return image;
}

int resolutionsFor(const Bitmap& raster) {
  int count = 1;
  while (count < kMostResolutions && std::min(raster.width(), raster.height()) >> count > 0) ++count;
  return count;
}

}  // namespace

EncodedPicture encodeJpeg2000(const Bitmap& raster) {
  try {
    const auto image = imageOf(raster);
    const Jp2Codec codec(opj_create_compress(OPJ_CODEC_JP2));
    if (!image || !codec) return std::nullopt;
    silence(codec.get());
    opj_cparameters_t parameters;
    opj_set_default_encoder_parameters(&parameters);
    parameters.tcp_numlayers = 1;
    parameters.cp_disto_alloc = 1;  // with a rate of 0: everything is kept, reversibly
    parameters.numresolution = resolutionsFor(raster);
    parameters.tcp_mct = 1;
    Jp2Memory memory;
    const auto stream = openJp2(memory, false);
    if (!stream || !opj_setup_encoder(codec.get(), &parameters, image.get()) ||
        !opj_start_compress(codec.get(), image.get(), stream.get()) || !opj_encode(codec.get(), stream.get()) ||
        !opj_end_compress(codec.get(), stream.get())) {
      return std::nullopt;
    }
    insertResolution(memory.written, raster.dpi());
    return dataOf(memory.written);
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform
