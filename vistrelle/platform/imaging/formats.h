#pragma once

#include <optional>
#include <span>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/imaging/picture.h"

/// One writer and one reader a picture format, all from and to memory. Writers give nothing when the raster does not
/// fit the format or memory is short, readers when the data is not a whole picture of the format. PNG, TIFF and GIF
/// keep alpha, the others lay the raster on black. The resolution of the raster is stored where the format can hold it.
namespace vistrelle::platform {

using EncodedPicture = std::optional<Data>;

/// Longest side of a format that counts in 16 bits.
inline constexpr int kMaxSide16 = 65500;

/// Baseline, 4:2:0, BT.601 full range, standard Huffman tables, JFIF resolution, sRGB profile. Quality 1 to 100.
EncodedPicture encodeJpeg(const Bitmap& raster, int quality);
EncodedPicture encodeTiff(const Bitmap& raster);  ///< uncompressed, sRGB profile
EncodedPicture encodeBmp(const Bitmap& raster);   ///< 24 bits, version 5 header naming sRGB
EncodedPicture encodeGif(const Bitmap& raster);   ///< up to 256 colours, pixels less than half opaque are transparent
EncodedPicture encodePng(const Bitmap& raster);   ///< sRGB, pHYs
EncodedPicture encodeJpeg2000(const Bitmap& raster);  ///< lossless, enumerated sRGB, capture resolution
EncodedPicture encodePdf(const Bitmap& raster);       ///< one page of the raster's point size, sRGB profile

using EncodedBytes = std::span<const std::uint8_t>;
std::shared_ptr<Bitmap> decodeJpeg(EncodedBytes bytes);
std::shared_ptr<Bitmap> decodeTiff(EncodedBytes bytes);
std::shared_ptr<Bitmap> decodeBmp(EncodedBytes bytes);
std::shared_ptr<Bitmap> decodeGif(EncodedBytes bytes);
std::shared_ptr<Bitmap> decodePng(EncodedBytes bytes);
std::shared_ptr<Bitmap> decodeJpeg2000(EncodedBytes bytes);

/// Picks the reader by the first bytes.
std::shared_ptr<Bitmap> decodePicture(EncodedBytes bytes);

Data dataOf(EncodedBytes bytes);
/// Multiplies colour by alpha in place.
void premultiply(std::uint8_t* rgba, std::size_t pixels);
/// One row with alpha taken out of the colour.
void unpremultiply(const std::uint8_t* row, int pixels, std::uint8_t* rgba);
/// One row of three bytes a pixel, laid on black.
void onBlack(const std::uint8_t* row, int pixels, std::uint8_t* rgb);

}  // namespace vistrelle::platform
