#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <random>

#include "tests/support/scratch_folder.h"
#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle::platform {
namespace {

using testing::pixelAt;
using testing::Rgba;
using testing::ScratchFolder;

std::string textOf(const EncodedPicture& picture) {
  return picture ? std::string(reinterpret_cast<const char*>(picture->data()), picture->size()) : std::string();
}

EncodedBytes bytesOf(const std::string& text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

std::vector<std::pair<std::string, std::string>> sampleFiles() {
  const auto raster = testing::paintedRaster(48, 32, testing::scenery);
  return {{"jpeg", textOf(encodeJpeg(*raster, 80))}, {"png", textOf(encodePng(*raster))},
          {"tiff", textOf(encodeTiff(*raster))},     {"gif", textOf(encodeGif(*raster))},
          {"bmp", textOf(encodeBmp(*raster))},       {"jp2", textOf(encodeJpeg2000(*raster))}};
}

TEST(Load, KnowsAFileByItsContentNotItsName) {
  const ScratchFolder folder;
  for (const auto& [name, content] : sampleFiles()) {
    const auto picture = Picture::load(folder.write(name + ".txt", content));
    ASSERT_TRUE(picture) << name;
    EXPECT_TRUE(picture->isValid());
    EXPECT_EQ(picture->width(), 48);
    EXPECT_EQ(picture->height(), 32);
    EXPECT_LE(testing::largestDifference(pixelAt(*picture->bitmap(), 20, 10), testing::scenery(20, 10)),
              name == "gif" || name == "jpeg" ? 40 : 0)
        << name;
  }
}

TEST(Load, NothingForAnythingElse) {
  const ScratchFolder folder;
  EXPECT_FALSE(Picture::load(folder.file("missing.png")));
  EXPECT_FALSE(Picture::load(folder.path()));
  EXPECT_FALSE(Picture::load("/dev/zero"));
  EXPECT_FALSE(Picture::load(""));
  EXPECT_FALSE(Picture::load(folder.write("empty.png", "")));
  EXPECT_FALSE(Picture::load(folder.write("text.png", "this is not a picture")));
  EXPECT_FALSE(Picture::load(folder.write("page.pdf", textOf(encodePdf(*Bitmap::make(4, 4))))));
}

TEST(Load, DoesNotWaitForAWriterOfAFifo) {
  const ScratchFolder folder;
  const std::string fifo = folder.file("fifo.png");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(Picture::load(fifo));
}

TEST(Decode, TruncatedFilesGiveNothing) {
  for (const auto& [name, content] : sampleFiles()) {
    // The last bytes of some formats are a trailer that no pixel needs; of a TIFF that is all behind the raw pixels.
    const std::size_t needed = name == "tiff" ? std::size_t{48} * 32 * 4 : content.size() - content.size() / 8;
    for (std::size_t length = 0; length < needed; length += 1 + content.size() / 97) {
      EXPECT_FALSE(decodePicture(bytesOf(content.substr(0, length)))) << name << " cut to " << length;
    }
  }
}

TEST(Decode, DamagedFilesNeitherCrashNorHang) {
  std::mt19937 random(20261121);
  for (const auto& [name, content] : sampleFiles()) {
    for (int round = 0; round < 150; ++round) {
      std::string damaged = content;
      for (int i = 0; i < 1 + round % 6; ++i) {
        // Mostly in the headers.
        const std::size_t range = round % 3 == 0 ? damaged.size() : std::min<std::size_t>(damaged.size(), 160);
        damaged[random() % range] = static_cast<char>(random());
      }
      const auto decoded = decodePicture(bytesOf(damaged));
      EXPECT_TRUE(!decoded || decoded->width() > 0) << name;
    }
  }
}

/// A PNG header that claims these sides; its check sum is right, there are no pixels.
std::string hugePng(std::uint32_t width, std::uint32_t height);

std::uint32_t crc(const std::string& text) {
  std::uint32_t value = 0xFFFFFFFF;
  for (const char c : text) {
    value ^= static_cast<std::uint8_t>(c);
    for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ (value & 1 ? 0xEDB88320U : 0U);
  }
  return ~value;
}

std::string big32(std::uint32_t value) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift);
  return text;
}

std::string hugePng(std::uint32_t width, std::uint32_t height) {
  const std::string header = "IHDR" + big32(width) + big32(height) + std::string("\x08\x06\0\0\0", 5);
  return std::string("\x89PNG\r\n\x1A\n") + big32(13) + header + big32(crc(header)) + big32(0) + "IDAT" +
         big32(crc("IDAT"));
}

TEST(Decode, AbsurdSizesAreRefusedBeforeTheyAreAllocated) {
  EXPECT_FALSE(decodePicture(bytesOf(hugePng(0x7FFFFFFF, 0x7FFFFFFF))));
  EXPECT_FALSE(decodePicture(bytesOf(hugePng(1 << 15, 1 << 15))));

  std::string bmp = textOf(encodeBmp(*testing::paintedRaster(4, 4, testing::scenery)));
  for (const char* sides : {"\xFF\xFF\xFF\x7F\xFF\xFF\xFF\x7F", "\x00\x00\x00\x80\x00\x00\x00\x80"}) {
    std::memcpy(&bmp[18], sides, 8);
    EXPECT_FALSE(decodePicture(bytesOf(bmp)));
  }

  std::string jp2 = textOf(encodeJpeg2000(*testing::paintedRaster(16, 16, testing::scenery)));
  const std::size_t size = jp2.find("\xFF\x51");
  ASSERT_NE(size, std::string::npos);
  for (std::size_t i = 0; i < 8; ++i) jp2[size + 6 + i] = '\x7F';
  EXPECT_FALSE(decodePicture(bytesOf(jp2)));

  std::string gif = textOf(encodeGif(*testing::paintedRaster(4, 4, testing::scenery)));
  std::memcpy(&gif[6], "\xFF\xFF\xFF\xFF", 4);  // 65,535 squared pixels of screen
  EXPECT_FALSE(decodePicture(bytesOf(gif)));
}

TEST(Decode, AFewBytesDoNotUnfoldToGigabytes) {
  // Code blocks without data are complete: only the size in the headers makes this one huge.
  std::string jp2 = textOf(encodeJpeg2000(*testing::paintedRaster(48, 32, [](int, int) {
    return Rgba{128, 128, 128, 255};
  })));
  const std::size_t header = jp2.find("ihdr");
  const std::size_t size = jp2.find("\xFF\x4F\xFF\x51");
  ASSERT_NE(header, std::string::npos);
  ASSERT_NE(size, std::string::npos);
  const auto claim = [&](std::uint32_t side) {
    for (const std::size_t at : {header + 4, header + 8, size + 8, size + 12, size + 24, size + 28}) {
      jp2.replace(at, 4, big32(side));
    }
    return decodePicture(bytesOf(jp2));
  };
  EXPECT_TRUE(claim(512));
  EXPECT_FALSE(claim(16384));
}

std::string little(std::uint32_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i));
  return text;
}

/// A TIFF picture one pixel wide whose tiles of so many columns and 16 rows are all the same few bytes.
std::string tiffOfWideTiles(std::uint32_t height, std::uint32_t columns) {
  std::string tile;
  for (std::uint32_t i = 0; i < columns * 16 / 128; ++i) tile += std::string("\x81\x00", 2);  // PackBits: 128 zeros
  const std::uint32_t tiles = height / 16;
  constexpr std::uint32_t kData = 8;
  const auto offsets = static_cast<std::uint32_t>(kData + tile.size());
  std::string file = "II*" + std::string(1, '\0') + little(offsets + 8 * tiles, 4) + tile;
  for (std::uint32_t i = 0; i < tiles; ++i) file += little(kData, 4);
  for (std::uint32_t i = 0; i < tiles; ++i) file += little(static_cast<std::uint32_t>(tile.size()), 4);
  constexpr int kLong = 4;
  const std::vector<std::array<std::uint32_t, 3>> entries{
      {256, 1, 1}, {257, 1, height},  {258, 1, 8},  {259, 1, 32773},       {262, 1, 1},
      {277, 1, 1}, {322, 1, columns}, {323, 1, 16}, {324, tiles, offsets}, {325, tiles, offsets + 4 * tiles}};
  file += little(static_cast<std::uint32_t>(entries.size()), 2);
  for (const auto& [tag, count, value] : entries) {
    file += little(tag, 2) + little(kLong, 2) + little(count, 4) + little(value, 4);
  }
  return file + little(0, 4);
}

TEST(Decode, TilesBeyondATiffPictureAreNotDecodedWithoutEnd) {
  EXPECT_TRUE(decodePicture(bytesOf(tiffOfWideTiles(1024, 1024))));
  // 4 GiB to decode for 65,536 pixels.
  EXPECT_FALSE(decodePicture(bytesOf(tiffOfWideTiles(65536, 65536))));
}

/// A progressive JPEG picture whose scans say over and over that nothing changes: 34 bytes each.
std::string jpegOfScans(std::uint32_t side, int scans) {
  const auto marker = [](char kind, const std::string& content) {
    return std::string("\xFF") + kind + big32(static_cast<std::uint32_t>(content.size()) + 2).substr(2) + content;
  };
  std::string file = "\xFF\xD8" + marker('\xDB', std::string(1, '\0') + std::string(64, '\1'));
  file += marker('\xC2', "\x08" + big32(side).substr(2) + big32(side).substr(2) + std::string("\1\1\x11\0", 4));
  // One code of one bit: a run of up to 32,767 blocks without a further coefficient.
  file += marker('\xC4', std::string("\x10\1", 2) + std::string(15, '\0') + "\xE0");
  std::string bits;
  for (std::uint32_t blocks = side / 8 * (side / 8), done = 0; done < blocks; done += 32767)
    bits += '0' + std::string(14, '1');
  bits.resize((bits.size() + 7) / 8 * 8, '1');
  std::string data;
  for (std::size_t at = 0; at < bits.size(); at += 8) {
    data += static_cast<char>(std::stoi(bits.substr(at, 8), nullptr, 2));
    if (data.back() == '\xFF') data += '\0';
  }
  for (int i = 0; i < scans; ++i) file += marker('\xDA', std::string("\1\1\0\1\x3F\0", 6)) + data;
  return file + "\xFF\xD9";
}

TEST(Decode, ScansOfAJpegPictureAreLimitedByItsSize) {
  EXPECT_TRUE(decodePicture(bytesOf(jpegOfScans(256, 300))));
  EXPECT_TRUE(decodePicture(bytesOf(jpegOfScans(4096, 20))));
  EXPECT_FALSE(decodePicture(bytesOf(jpegOfScans(4096, 300))));
}

TEST(Decode, BmpVariants) {
  // 2 x 2, top down, 32 bits, masks with alpha behind a 40-byte header is 3 masks only; here a palette of 2 colours.
  std::string file("BM\0\0\0\0\0\0\0\0\x3E\0\0\0", 14);
  file += std::string("\x28\0\0\0\x02\0\0\0\x02\0\0\0\x01\0\x01\0\0\0\0\0\0\0\0\0", 24) + std::string(16, '\0');
  file += std::string("\x10\x20\x30\0\xA0\xB0\xC0\0", 8);
  file += std::string("\x40\0\0\0\x80\0\0\0", 8);  // lower row: 0 1, upper row: 1 0
  const auto bitmap = decodePicture(bytesOf(file));
  ASSERT_TRUE(bitmap);
  const Rgba dark{0x30, 0x20, 0x10, 255};
  const Rgba light{0xC0, 0xB0, 0xA0, 255};
  EXPECT_EQ(pixelAt(*bitmap, 0, 0), light);
  EXPECT_EQ(pixelAt(*bitmap, 1, 0), dark);
  EXPECT_EQ(pixelAt(*bitmap, 0, 1), dark);
  EXPECT_EQ(pixelAt(*bitmap, 1, 1), light);
}

}  // namespace
}  // namespace vistrelle::platform
