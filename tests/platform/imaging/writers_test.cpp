#include <gtest/gtest.h>
#include <lcms2.h>
#include <png.h>

#include <cstring>
#include <map>

#include "tests/support/scratch_folder.h"
#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/icc_profile.h"

namespace vistrelle::platform {
namespace {

using testing::paintedRaster;
using testing::pixelAt;
using testing::Rgba;

using Octets = std::vector<std::uint8_t>;

Octets octets(const EncodedPicture& picture) {
  EXPECT_TRUE(picture.has_value());
  if (!picture) return {};
  const auto* start = reinterpret_cast<const std::uint8_t*>(picture->data());
  return {start, start + picture->size()};
}

std::uint32_t bigEndian(const Octets& bytes, std::size_t at, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value = value << 8 | bytes.at(at + i);
  return value;
}

std::uint32_t littleEndian(const Octets& bytes, std::size_t at, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count; ++i) value |= static_cast<std::uint32_t>(bytes.at(at + i)) << 8 * i;
  return value;
}

std::size_t placeOf(const Octets& bytes, const std::string& text) {
  const auto found = std::search(bytes.begin(), bytes.end(), text.begin(), text.end());
  return found == bytes.end() ? std::string::npos : static_cast<std::size_t>(found - bytes.begin());
}

/// Four columns of eight patches, 16 pixels each: code values survive 4:2:0 in their middles.
const std::vector<Rgba> kPatches{{200, 30, 30, 255}, {30, 200, 30, 255},   {30, 30, 200, 255}, {255, 255, 255, 255},
                                 {0, 0, 0, 255},     {128, 128, 128, 255}, {255, 200, 0, 255}, {0, 160, 160, 255}};
constexpr int kPatch = 16;

std::shared_ptr<Bitmap> patches() {
  return paintedRaster(4 * kPatch, 2 * kPatch,
                       [](int x, int y) { return kPatches[static_cast<std::size_t>(x / kPatch + y / kPatch * 4)]; });
}

int worstPatch(const Bitmap& raster) {
  int worst = 0;
  for (std::size_t i = 0; i < kPatches.size(); ++i) {
    const int x = static_cast<int>(i % 4) * kPatch + kPatch / 2;
    const int y = static_cast<int>(i / 4) * kPatch + kPatch / 2;
    worst = std::max(worst, testing::largestDifference(pixelAt(raster, x, y), kPatches[i]));
  }
  return worst;
}

int worstPixel(const Bitmap& a, const Bitmap& b) {
  int worst = 0;
  for (int y = 0; y < a.height(); ++y) {
    for (int x = 0; x < a.width(); ++x) {
      worst = std::max(worst, testing::largestDifference(pixelAt(a, x, y), pixelAt(b, x, y)));
    }
  }
  return worst;
}

std::shared_ptr<Bitmap> scenery(int width, int height, double dpi = 72) {
  auto raster = paintedRaster(width, height, testing::scenery);
  raster->setPointSize(width * 72 / dpi, height * 72 / dpi);
  return raster;
}

// ---- every format -----------------------------------------------------------------------------------

struct Format {
  const char* name;
  EncodedPicture (*encode)(const Bitmap&);
  int tolerance;  ///< of a patch
};

EncodedPicture encodeGoodJpeg(const Bitmap& raster) {
  return encodeJpeg(raster, 90);
}

const std::vector<Format> kFormats{{"jpeg", encodeGoodJpeg, 3}, {"tiff", encodeTiff, 0}, {"bmp", encodeBmp, 0},
                                   {"gif", encodeGif, 0},       {"png", encodePng, 0},   {"jp2", encodeJpeg2000, 0}};

TEST(Writers, ColoursSurviveEveryFormat) {
  for (const Format& format : kFormats) {
    const auto decoded = decodePicture(octets(format.encode(*patches())));
    ASSERT_TRUE(decoded) << format.name;
    EXPECT_EQ(decoded->width(), 4 * kPatch) << format.name;
    EXPECT_EQ(decoded->height(), 2 * kPatch) << format.name;
    EXPECT_LE(worstPatch(*decoded), format.tolerance) << format.name;
  }
}

TEST(Writers, OddSizesAndSinglePixels) {
  for (const Format& format : kFormats) {
    for (const auto& [width, height] : std::vector<std::pair<int, int>>{{1, 1}, {3, 1}, {1, 5}, {17, 33}}) {
      const auto decoded = decodePicture(octets(format.encode(*scenery(width, height))));
      ASSERT_TRUE(decoded) << format.name << width;
      EXPECT_EQ(decoded->width(), width) << format.name;
      EXPECT_EQ(decoded->height(), height) << format.name;
    }
  }
}

TEST(Writers, TheSameRasterGivesTheSameBytes) {
  for (const Format& format : kFormats) {
    EXPECT_EQ(octets(format.encode(*scenery(40, 30))), octets(format.encode(*scenery(40, 30)))) << format.name;
  }
  EXPECT_EQ(octets(encodePdf(*scenery(40, 30))), octets(encodePdf(*scenery(40, 30))));
}

TEST(Writers, TransparencyIsKeptWhereTheFormatMay) {
  const auto raster = paintedRaster(8, 8, [](int x, int) { return Rgba{200, 100, 50, x < 4 ? 255 : 0}; });
  for (const Format& format :
       {Format{"png", encodePng, 0}, Format{"tiff", encodeTiff, 0}, Format{"gif", encodeGif, 0}}) {
    const auto decoded = decodePicture(octets(format.encode(*raster)));
    ASSERT_TRUE(decoded) << format.name;
    EXPECT_EQ(pixelAt(*decoded, 1, 4), (Rgba{200, 100, 50, 255})) << format.name;
    EXPECT_EQ(pixelAt(*decoded, 6, 4), (Rgba{0, 0, 0, 0})) << format.name;
  }
}

TEST(Writers, HalfTransparencyInPngAndTiff) {
  const auto raster = paintedRaster(8, 8, [](int, int) { return Rgba{200, 100, 50, 128}; });
  EXPECT_LE(worstPixel(*decodePng(octets(encodePng(*raster))), *raster), 1);
  EXPECT_EQ(worstPixel(*decodeTiff(octets(encodeTiff(*raster))), *raster), 0);
}

TEST(Writers, TheOthersLayOnBlack) {
  const auto raster = paintedRaster(16, 16, [](int, int) { return Rgba{200, 100, 50, 128}; });
  for (const Format& format :
       {Format{"jpeg", encodeGoodJpeg, 3}, Format{"bmp", encodeBmp, 0}, Format{"jp2", encodeJpeg2000, 0}}) {
    const auto decoded = decodePicture(octets(format.encode(*raster)));
    ASSERT_TRUE(decoded) << format.name;
    EXPECT_LE(testing::largestDifference(pixelAt(*decoded, 8, 8), {100, 50, 25, 255}), format.tolerance) << format.name;
  }
}

TEST(Writers, SidesBeyondTheFormatAreRefused) {
  const auto wide = Bitmap::make(65501, 1);
  EXPECT_FALSE(encodeJpeg(*wide, 75));
  EXPECT_FALSE(encodeGif(*wide));
  EXPECT_TRUE(encodeJpeg(*Bitmap::make(65500, 1), 75));
  EXPECT_TRUE(encodePng(*wide));
}

// ---- JPEG -------------------------------------------------------------------------------------------

/// The segments before the first scan by marker; several of one kind one after the other.
std::multimap<int, Octets> jpegSegments(const Octets& file) {
  std::multimap<int, Octets> segments;
  std::size_t at = 2;
  while (at + 4 <= file.size()) {
    EXPECT_EQ(file[at], 0xFF);
    const int marker = file[at + 1];
    const std::size_t length = bigEndian(file, at + 2, 2);
    segments.emplace(marker, Octets(file.begin() + static_cast<std::ptrdiff_t>(at) + 4,
                                    file.begin() + static_cast<std::ptrdiff_t>(at + 2 + length)));
    if (marker == 0xDA) break;
    at += 2 + length;
  }
  return segments;
}

constexpr int kApp0 = 0xE0;
constexpr int kApp2 = 0xE2;
constexpr int kBaseline = 0xC0;
constexpr int kHuffman = 0xC4;
constexpr int kQuantization = 0xDB;

TEST(Jpeg, IsBaselineWithHalvedChroma) {
  const auto segments = jpegSegments(octets(encodeJpeg(*scenery(80, 64), 60)));
  ASSERT_EQ(segments.count(kBaseline), 1U);
  const Octets frame = segments.find(kBaseline)->second;
  EXPECT_EQ(frame[0], 8);
  EXPECT_EQ(bigEndian(frame, 1, 2), 64U);
  EXPECT_EQ(bigEndian(frame, 3, 2), 80U);
  EXPECT_EQ(frame[5], 3);
  EXPECT_EQ(frame[7], 0x22);
  EXPECT_EQ(frame[10], 0x11);
  EXPECT_EQ(frame[13], 0x11);
  EXPECT_EQ(segments.count(0xDD), 0U);  // no restart intervals
}

TEST(Jpeg, UsesTheStandardHuffmanTables) {
  const auto segments = jpegSegments(octets(encodeJpeg(*scenery(80, 64), 60)));
  std::size_t total = 0;
  const auto [first, last] = segments.equal_range(kHuffman);
  for (auto segment = first; segment != last; ++segment) total += segment->second.size();
  // ITU-T T.81, annex K.3: 12 + 12 + 162 + 162 symbols and 17 bytes a table.
  EXPECT_EQ(total, 4U * 17 + 12 + 12 + 162 + 162);
  const Octets luma = first->second;
  const Octets wanted{0x00, 0, 1, 5, 1, 1, 1, 1, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), luma.begin()));
}

TEST(Jpeg, QualityScalesTheStandardQuantization) {
  const auto first = [](int quality) {
    return static_cast<int>(jpegSegments(octets(encodeJpeg(*scenery(16, 16), quality))).find(kQuantization)->second[1]);
  };
  // T.81 table K.1 begins with 16; at quality q above 50 it is scaled by (200 - 2q) %.
  EXPECT_EQ(first(50), 16);
  EXPECT_EQ(first(60), 13);
  EXPECT_EQ(first(75), 8);
  EXPECT_EQ(first(90), 3);
  EXPECT_EQ(first(100), 1);
}

TEST(Jpeg, StoresTheResolution) {
  for (const int dpi : {72, 144, 300}) {
    const Octets app0 = jpegSegments(octets(encodeJpeg(*scenery(80, 64, dpi), 60))).find(kApp0)->second;
    EXPECT_EQ(std::memcmp(app0.data(), "JFIF", 5), 0);
    EXPECT_EQ(app0[7], 1);  // dots per inch
    EXPECT_EQ(bigEndian(app0, 8, 2), static_cast<unsigned>(dpi));
    EXPECT_EQ(bigEndian(app0, 10, 2), static_cast<unsigned>(dpi));
  }
}

TEST(Jpeg, CarriesTheProfile) {
  const Octets app2 = jpegSegments(octets(encodeJpeg(*scenery(80, 64), 60))).find(kApp2)->second;
  EXPECT_EQ(std::memcmp(app2.data(), "ICC_PROFILE\0\1\1", 14), 0);
  const auto profile = srgbProfile();
  EXPECT_EQ(Octets(app2.begin() + 14, app2.end()), Octets(profile.begin(), profile.end()));
}

TEST(Jpeg, ARealPictureIsOverThreeKilobytesAndATinyOneUnder) {
  const auto detailed = paintedRaster(80, 64, [](int x, int y) {
    const Rgba base = testing::scenery(x * 2, y * 2);
    const int grain = (x * 37 + y * 101 + x * y * 7) % 23;
    return Rgba{std::min(255, base[0] + grain), std::min(255, base[1] + grain), std::min(255, base[2] + grain), 255};
  });
  EXPECT_GT(octets(encodeJpeg(*detailed, 60)).size(), 3072U);
  EXPECT_LT(octets(encodeJpeg(*scenery(16, 12), 60)).size(), 3072U);
}

// ---- the profile ------------------------------------------------------------------------------------

TEST(Profile, IsSmallVersionTwoAndAlwaysTheSame) {
  const auto profile = srgbProfile();
  const Octets bytes(profile.begin(), profile.end());
  EXPECT_NEAR(static_cast<double>(bytes.size()), 2200, 100);
  EXPECT_EQ(bigEndian(bytes, 0, 4), bytes.size());
  EXPECT_EQ(bytes[8], 2);
  EXPECT_EQ(bigEndian(bytes, 24, 2), 2026U);
  EXPECT_EQ(srgbProfile().data(), profile.data());
}

TEST(Profile, IsSrgb) {
  const auto bytes = srgbProfile();
  void* ours = cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size()));
  ASSERT_TRUE(ours);
  EXPECT_TRUE(cmsIsTag(ours, cmsSigRedTRCTag));
  void* reference = cmsCreate_sRGBProfile();
  void* transform =
      cmsCreateTransform(ours, TYPE_RGB_8, reference, TYPE_RGB_8, INTENT_RELATIVE_COLORIMETRIC, cmsFLAGS_NOOPTIMIZE);
  ASSERT_TRUE(transform);
  for (int red = 0; red < 256; red += 15) {
    for (int blue = 0; blue < 256; blue += 51) {
      const std::uint8_t in[3] = {static_cast<std::uint8_t>(red), 100, static_cast<std::uint8_t>(blue)};
      std::uint8_t out[3] = {};
      cmsDoTransform(transform, in, out, 1);
      for (int part = 0; part < 3; ++part) EXPECT_NEAR(in[part], out[part], 1);
    }
  }
  cmsDeleteTransform(transform);
  cmsCloseProfile(reference);
  cmsCloseProfile(ours);
}

// ---- the others -------------------------------------------------------------------------------------

TEST(Png, NamesSrgbAndItsResolution) {
  const Octets file = octets(encodePng(*scenery(20, 10, 300)));
  const std::size_t srgb = placeOf(file, "sRGB");
  ASSERT_NE(srgb, std::string::npos);
  EXPECT_EQ(file[srgb + 4], PNG_sRGB_INTENT_PERCEPTUAL);
  const std::size_t density = placeOf(file, "pHYs");
  ASSERT_NE(density, std::string::npos);
  EXPECT_EQ(bigEndian(file, density + 4, 4), 11811U);
  EXPECT_EQ(bigEndian(file, density + 8, 4), 11811U);
  EXPECT_EQ(file[density + 12], 1);
  EXPECT_EQ(file[25], PNG_COLOR_TYPE_RGBA);
  EXPECT_LT(density, placeOf(file, "IDAT"));
}

/// The value or offset of a tag in the first directory of a little-endian TIFF; 0 when it is not there.
std::uint32_t tiffEntry(const Octets& file, std::uint32_t tag, std::uint32_t* count = nullptr) {
  const std::size_t directory = littleEndian(file, 4, 4);
  const std::uint32_t entries = littleEndian(file, directory, 2);
  for (std::uint32_t i = 0; i < entries; ++i) {
    const std::size_t entry = directory + 2 + 12 * i;
    if (littleEndian(file, entry, 2) != tag) continue;
    if (count) *count = littleEndian(file, entry + 4, 4);
    const bool isShort = littleEndian(file, entry + 2, 2) == 3 && littleEndian(file, entry + 4, 4) <= 1;
    return littleEndian(file, entry + 8, isShort ? 2 : 4);
  }
  return 0;
}

TEST(Tiff, TagsResolutionProfileAndAlpha) {
  const Octets file = octets(encodeTiff(*scenery(20, 10, 150)));
  EXPECT_EQ(std::memcmp(file.data(), "II*\0", 4), 0);
  EXPECT_EQ(tiffEntry(file, 259), 1U);  // uncompressed
  EXPECT_EQ(tiffEntry(file, 277), 4U);  // samples
  EXPECT_EQ(tiffEntry(file, 338), 1U);  // alpha multiplied in
  EXPECT_EQ(tiffEntry(file, 296), 2U);  // inches
  const std::size_t resolution = tiffEntry(file, 282);
  EXPECT_EQ(littleEndian(file, resolution, 4), 150 * littleEndian(file, resolution + 4, 4));
  std::uint32_t profileSize = 0;
  EXPECT_NE(tiffEntry(file, 34675, &profileSize), 0U);
  EXPECT_EQ(profileSize, srgbProfile().size());
}

TEST(Bmp, NamesSrgbAndItsResolution) {
  const Octets file = octets(encodeBmp(*scenery(21, 10, 72)));
  EXPECT_EQ(std::memcmp(file.data(), "BM", 2), 0);
  EXPECT_EQ(littleEndian(file, 2, 4), file.size());
  EXPECT_EQ(file.size(), 14 + 124 + 64 * 10U);
  EXPECT_EQ(littleEndian(file, 14, 4), 124U);
  EXPECT_EQ(littleEndian(file, 28, 2), 24U);
  EXPECT_EQ(littleEndian(file, 38, 4), 2835U);
  EXPECT_EQ(std::memcmp(&file[70], "BGRs", 4), 0);
}

TEST(Jp2, NamesSrgbAndItsResolution) {
  const Octets file = octets(encodeJpeg2000(*scenery(40, 30, 144)));
  const std::size_t header = placeOf(file, "jp2h");
  ASSERT_NE(header, std::string::npos);
  const std::size_t end = header - 4 + bigEndian(file, header - 4, 4);
  const std::size_t colour = placeOf(file, "colr");
  EXPECT_EQ(file[colour + 4], 1);
  EXPECT_EQ(bigEndian(file, colour + 7, 4), 16U);  // enumerated: sRGB
  const std::size_t capture = placeOf(file, "resc");
  ASSERT_LT(capture, end);
  const double vertical = bigEndian(file, capture + 4, 2) / static_cast<double>(bigEndian(file, capture + 6, 2)) *
                          std::pow(10, file[capture + 12]);
  EXPECT_NEAR(vertical, 144 / 0.0254, 0.01);
  EXPECT_EQ(std::memcmp(&file[end + 4], "jp2c", 4), 0);
}

TEST(Gif, FewColoursAreExact) {
  // 256 colours and no more.
  const auto raster = paintedRaster(16, 16, [](int x, int y) { return Rgba{x * 17, y * 17, (x ^ y) * 17, 255}; });
  EXPECT_EQ(worstPixel(*decodeGif(octets(encodeGif(*raster))), *raster), 0);
}

TEST(Gif, FewColoursAndTransparencyAreExactUpToTheLimit) {
  const auto raster = paintedRaster(16, 16, [](int x, int y) {
    return x == 3 && y == 4 ? Rgba{0, 0, 0, 0} : Rgba{x * 17, y * 17, 90, 255};
  });
  EXPECT_EQ(worstPixel(*decodeGif(octets(encodeGif(*raster))), *raster), 0);
}

TEST(Gif, ManyColoursAreWellChosen) {
  const auto raster = scenery(160, 120);
  const auto decoded = decodeGif(octets(encodeGif(*raster)));
  ASSERT_TRUE(decoded);
  // With error diffusion the average over a block is right even where single pixels are not.
  double worst = 0;
  double squares = 0;
  for (int y = 0; y + 8 <= 120; y += 8) {
    for (int x = 0; x + 8 <= 160; x += 8) {
      for (std::size_t part = 0; part < 3; ++part) {
        double sum = 0;
        for (int i = 0; i < 64; ++i) {
          const double difference =
              pixelAt(*decoded, x + i % 8, y + i / 8)[part] - pixelAt(*raster, x + i % 8, y + i / 8)[part];
          sum += difference;
          squares += difference * difference;
        }
        worst = std::max(worst, std::fabs(sum / 64));
      }
    }
  }
  EXPECT_LT(worst, 12);
  EXPECT_GT(10 * std::log10(255 * 255 / (squares / (160.0 * 120 * 3))), 26);
}

TEST(Gif, CarriesTheProfile) {
  const Octets file = octets(encodeGif(*scenery(8, 8)));
  EXPECT_EQ(std::memcmp(file.data(), "GIF89a", 6), 0);
  EXPECT_NE(placeOf(file, "ICCRGBG1012"), std::string::npos);
}

TEST(Pdf, IsOnePageOfThePointSizeWithTheProfile) {
  const Octets file = octets(encodePdf(*scenery(300, 150, 150)));
  EXPECT_EQ(placeOf(file, "%PDF-1.4"), 0U);
  EXPECT_NE(placeOf(file, "/Count 1 "), std::string::npos);
  EXPECT_NE(placeOf(file, "/MediaBox [0 0 144.0000 72.0000]"), std::string::npos);
  EXPECT_NE(placeOf(file, "/Width 300 /Height 150"), std::string::npos);
  EXPECT_NE(placeOf(file, "/ICCBased 6 0 R"), std::string::npos);
  EXPECT_NE(placeOf(file, "144.0000 0 0 72.0000 0 0 cm"), std::string::npos);
}

TEST(Pdf, TheTableOfObjectsIsRight) {
  const Octets file = octets(encodePdf(*scenery(30, 20)));
  const std::string text(file.begin(), file.end());
  const std::size_t table = std::stoul(text.substr(text.rfind("startxref\n") + 10));
  ASSERT_EQ(text.substr(table, 7), "xref\n0 ");
  std::size_t line = text.find('\n', table + 5) + 1 + 20;
  for (int object = 1; object <= 6; ++object, line += 20) {
    const std::size_t offset = std::stoul(text.substr(line, 10));
    EXPECT_EQ(text.substr(offset, 7), std::to_string(object) + " 0 obj");
  }
}

}  // namespace
}  // namespace vistrelle::platform
