#include "vistrelle/image/export.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <limits>

#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/synthetic_pictures.h"
#include "vistrelle/image/rescale.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle {
namespace {

using platform::Bitmap;
using platform::Colour;
using platform::Picture;
using ::testing::ElementsAre;
using testing::pixelAt;
using testing::readFile;
using testing::RecordingLog;
using testing::Rgba;
using testing::ScratchFolder;
using ::testing::StartsWith;

std::shared_ptr<const Bitmap> scenery(int width = 80, int height = 64) {
  return testing::paintedRaster(width, height, testing::scenery);
}

std::string textOf(const platform::EncodedPicture& picture) {
  return picture ? std::string(reinterpret_cast<const char*>(picture->data()), picture->size()) : std::string();
}

std::string exported(const std::string& name, float quality) {
  const ScratchFolder folder;
  EXPECT_TRUE(imgExport(scenery(), folder.file(name), quality)) << name;
  return readFile(folder.file(name));
}

TEST(ImgExport, NeedsARasterAndAPath) {
  const ScratchFolder folder;
  EXPECT_FALSE(imgExport(nullptr, folder.write("there.jpg", "x"), 0.6F));
  EXPECT_FALSE(imgExport(scenery(), std::nullopt, 0.6F));
}

TEST(ImgExport, QualityOutsideItsRangeIs90) {
  const std::string at90 = textOf(platform::encodeJpeg(*scenery(), 90));
  for (const float quality : {0.0F, -1.0F, 1.5F, std::nanf(""), std::numeric_limits<float>::infinity()}) {
    EXPECT_EQ(exported("a.jpg", quality), at90) << quality;
  }
  EXPECT_EQ(exported("a.jpg", 1.0F), textOf(platform::encodeJpeg(*scenery(), 100)));
  EXPECT_EQ(exported("a.jpg", 0.6F), textOf(platform::encodeJpeg(*scenery(), 60)));
  EXPECT_EQ(exported("a.jpeg", 0.255F), textOf(platform::encodeJpeg(*scenery(), 26)));
}

TEST(ImgExport, OnlyJpgAndJpegHaveAQuality) {
  const std::string at60 = textOf(platform::encodeJpeg(*scenery(), 60));
  EXPECT_EQ(exported("a.JPG", 0.6F), at60);
  EXPECT_EQ(exported("a.Jpeg", 0.6F), at60);
  const std::string usual = textOf(platform::encodeJpeg(*scenery(), 75));
  for (const char* name : {"a.jpe", "plain", "a.mov", ".jpg", "a.jpg "}) EXPECT_EQ(exported(name, 0.6F), usual) << name;
}

TEST(ImgExport, TheExtensionNamesTheFormat) {
  EXPECT_THAT(exported("a.tif", 1), StartsWith("II*"));
  EXPECT_THAT(exported("a.TIFF", 1), StartsWith("II*"));
  EXPECT_THAT(exported("a.Bmp", 1), StartsWith("BM"));
  EXPECT_THAT(exported("a.GIF", 1), StartsWith("GIF89a"));
  EXPECT_THAT(exported("a.PNG", 1), StartsWith("\x89PNG"));
  EXPECT_EQ(exported("a.jp2", 1).substr(4, 4), "jP  ");
  EXPECT_EQ(exported("a.JPX", 1).substr(4, 4), "jP  ");
  EXPECT_THAT(exported("a.PDF", 1), StartsWith("%PDF-"));
}

TEST(ImgExport, TheEndIsLoggedWhenVerbose) {
  const ScratchFolder folder;
  {
    const RecordingLog log(true);
    imgExport(scenery(), folder.file("a.png"), 1);
    EXPECT_EQ(log.count("imgExport - end"), 1);
  }
  const RecordingLog log(false);
  imgExport(scenery(), folder.file("a.png"), 1);
  EXPECT_THAT(log.lines(), ElementsAre());
}

TEST(ImgExport, APdfIsAnnouncedAlways) {
  const ScratchFolder folder;
  const std::string good = folder.file("a.PDF");
  const std::string bad = folder.file("missing/a.pdf");
  const RecordingLog log(false);
  EXPECT_TRUE(imgExport(scenery(), good, 1));
  EXPECT_FALSE(imgExport(scenery(), bad, 1));
  EXPECT_THAT(log.lines(),
              ElementsAre("imgSaveAs…pdf       :-) '" + good + "'", "imgSaveAs…pdf       :-( '" + bad + "'"));
}

TEST(ImgExport, APdfIsAsLargeAsTheRasterInPoints) {
  const ScratchFolder folder;
  const auto raster = stretch(std::make_shared<const Picture>(scenery()), 300, 150, false, 150);
  ASSERT_TRUE(imgExport(raster, folder.file("a.pdf"), 1));
  EXPECT_NE(readFile(folder.file("a.pdf")).find("/MediaBox [0 0 144.0000 72.0000]"), std::string::npos);
}

TEST(ImgExport, AMissingFolderFails) {
  const ScratchFolder folder;
  for (const char* name : {"no/a.jpg", "no/a.png", "no/a.tif", "no/a.gif", "no/a.bmp", "no/a.jp2", "no/a.pdf"}) {
    EXPECT_FALSE(imgExport(scenery(), folder.file(name), 1)) << name;
  }
  EXPECT_FALSE(imgExport(scenery(), std::string(), 1));
}

TEST(ImgExport, AnExistingFileIsWrittenInPlaceAndCutToSize) {
  const ScratchFolder folder;
  const std::string path = folder.write("a.jpg", std::string(1 << 20, 'x'));
  struct stat before {};
  stat(path.c_str(), &before);
  EXPECT_TRUE(imgExport(scenery(), path, 0.6F));
  struct stat after {};
  stat(path.c_str(), &after);
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ(readFile(path), textOf(platform::encodeJpeg(*scenery(), 60)));
}

/// Every write fails.
class ReadOnlyManager : public platform::ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  platform::FileResult writeInPlace(const std::string& path, platform::Bytes /*bytes*/) override {
    return platform::FileResult(EROFS, path);
  }
};

TEST(ImgExport, AnOldFileThatCannotBeReplacedStillCountsButNotForPdf) {
  const ScratchFolder folder;
  const std::string picture = folder.write("a.jpg", "old");
  const std::string page = folder.write("a.pdf", "old");
  const platform::Installed<platform::FileManager> installed(
      platform::fileManager(), std::make_shared<ReadOnlyManager>(platform::fileManager().get()));
  EXPECT_TRUE(imgExport(scenery(), picture, 1));
  EXPECT_FALSE(imgExport(scenery(), page, 1));
  EXPECT_FALSE(imgExport(scenery(), folder.file("new.jpg"), 1));
  EXPECT_EQ(readFile(picture), "old");
}

TEST(ImgExport, AReadOnlyFileIsKeptAndCounts) {
  const ScratchFolder folder;
  const std::string path = folder.write("a.png", "old");
  chmod(path.c_str(), 0444);
  chmod(folder.path().c_str(), 0755);
  EXPECT_TRUE(testing::inChild([&] {
    testing::becomeNobody();
    EXPECT_TRUE(imgExport(scenery(), path, 1));
    EXPECT_FALSE(imgExport(scenery(), folder.file("new.png"), 1));
  }));
  EXPECT_EQ(readFile(path), "old");
}

TEST(ImgExport, AFullDiskLeavesTheOldFileOrNone) {
  if (!testing::isAdministrator()) GTEST_SKIP() << "mounting a small file system needs the administrator";
  const ScratchFolder folder;
  EXPECT_TRUE(testing::inChild([&] {
    ASSERT_TRUE(testing::mountScratch(folder.path().c_str(), "size=64k"));
    const std::string old = folder.write("old.bmp", "old");
    const auto large = scenery(400, 300);  // 360,000 bytes as BMP
    EXPECT_FALSE(imgExport(large, folder.file("new.bmp"), 1));
    struct stat info {};
    EXPECT_NE(stat(folder.file("new.bmp").c_str(), &info), 0);
    EXPECT_TRUE(imgExport(large, old, 1));  // the old one is there
    EXPECT_EQ(readFile(old), "old");
    EXPECT_FALSE(imgExport(large, folder.file("new.pdf"), 1) && readFile(folder.file("new.pdf")).empty());
    EXPECT_TRUE(imgExport(scenery(16, 12), folder.file("small.jpg"), 0.6F));
  }));
}

TEST(ImgExport, ExpandsTheHomeFolder) {
  const ScratchFolder folder;
  EXPECT_TRUE(testing::inChild([&] {
    setenv("HOME", folder.path().c_str(), 1);
    EXPECT_TRUE(imgExport(scenery(), "~/a.png", 1));
    EXPECT_EQ(imgSizes("~/a.png"), std::pair(std::int64_t{80}, std::int64_t{64}));
    EXPECT_TRUE(imgRescale(platform::Value("~/a.png"), "~/b.pdf", 10, 10, 0, 72, 1));
  }));
  EXPECT_THAT(readFile(folder.file("a.png")), StartsWith("\x89PNG"));
  EXPECT_THAT(readFile(folder.file("b.pdf")), StartsWith("%PDF"));
}

TEST(ImgExport, ASideBeyondTheFormatWritesNothing) {
  const ScratchFolder folder;
  EXPECT_FALSE(imgExport(std::shared_ptr<const Bitmap>(Bitmap::make(65501, 1)), folder.file("a.jpg"), 1));
}

// ---- solid colours ----------------------------------------------------------------------------------

constexpr Colour kOrange{1, 0.5, 0.25, 1};

TEST(ImgFillColor, FillsTheWholePictureInEveryFormat) {
  const ScratchFolder folder;
  for (const char* name : {"a.jpg", "a.png", "a.tif", "a.bmp", "a.gif", "a.jp2", "a"}) {
    ASSERT_TRUE(imgFillColor(kOrange, folder.file(name), 50, 20)) << name;
    const auto picture = Picture::load(folder.file(name));
    ASSERT_TRUE(picture) << name;
    EXPECT_EQ(picture->width(), 50) << name;
    EXPECT_EQ(picture->height(), 20) << name;
    for (const auto& [x, y] : std::vector<std::pair<int, int>>{{0, 0}, {49, 19}, {25, 10}}) {
      EXPECT_LE(testing::largestDifference(pixelAt(*picture->bitmap(), x, y), {255, 128, 64, 255}), 3) << name;
    }
  }
  const RecordingLog log(false);
  EXPECT_TRUE(imgFillColor(kOrange, folder.file("a.pdf"), 50, 20));
  EXPECT_EQ(log.lines().size(), 1U);
}

TEST(ImgFillColor, IsJpegOfFullQuality) {
  const ScratchFolder folder;
  ASSERT_TRUE(imgFillColor(kOrange, folder.file("a.jpg"), 50, 20));
  const auto raster = testing::paintedRaster(50, 20, [](int, int) { return Rgba{255, 128, 64, 255}; });
  EXPECT_EQ(readFile(folder.file("a.jpg")), textOf(platform::encodeJpeg(*raster, 100)));
}

TEST(ImgFillColor, LaysASeeThroughColourOnBlack) {
  const ScratchFolder folder;
  ASSERT_TRUE(imgFillColor(Colour{1, 1, 1, 0.5}, folder.file("a.png"), 8, 8));
  EXPECT_EQ(pixelAt(*Picture::load(folder.file("a.png"))->bitmap(), 4, 4), (Rgba{128, 128, 128, 255}));
}

TEST(ImgFillColor, NeedsAColourAPathAndASize) {
  const ScratchFolder folder;
  EXPECT_FALSE(imgFillColor(std::nullopt, folder.file("a.png"), 8, 8));
  EXPECT_FALSE(imgFillColor(kOrange, std::nullopt, 8, 8));
  EXPECT_FALSE(imgFillColor(kOrange, folder.write("old.png", "old"), 0, 8));
  EXPECT_FALSE(imgFillColor(kOrange, folder.file("a.png"), 2000000000, 2000000000));
}

TEST(ImgColorSwatchPng, MultipliesAlphaByTheOpacity) {
  const ScratchFolder folder;
  const auto pixel = [&](const Colour& colour, float opacity) {
    EXPECT_TRUE(imgColorSwatchPng(colour, folder.file("a.jpg"), 30, 10, opacity));
    EXPECT_THAT(readFile(folder.file("a.jpg")), StartsWith("\x89PNG"));  // whatever the name says
    const auto picture = Picture::load(folder.file("a.jpg"));
    EXPECT_EQ(picture->width(), 30);
    EXPECT_EQ(picture->height(), 10);
    return pixelAt(*picture->bitmap(), 29, 9);
  };
  EXPECT_EQ(pixel({1, 0, 0, 1}, 1), (Rgba{255, 0, 0, 255}));
  EXPECT_LE(testing::largestDifference(pixel({1, 0, 0, 1}, 0.5F), {128, 0, 0, 128}), 1);
  EXPECT_LE(testing::largestDifference(pixel({1, 0, 0, 0.5}, 0.5F), {64, 0, 0, 64}), 1);
  EXPECT_EQ(pixel({1, 0, 0, 1}, 0), (Rgba{0, 0, 0, 0}));
}

TEST(ImgColorSwatchPng, HasOnePointAPixel) {
  const ScratchFolder folder;
  ASSERT_TRUE(imgColorSwatchPng(kOrange, folder.file("a.png"), 30, 10, 1));
  const std::string file = readFile(folder.file("a.png"));
  EXPECT_EQ(file.substr(file.find("pHYs") + 4, 4), std::string("\x00\x00\x0B\x13", 4));
}

TEST(ImgColorSwatchPng, WithoutARasterOnlyAnOldFileCounts) {
  const ScratchFolder folder;
  EXPECT_FALSE(imgColorSwatchPng(kOrange, folder.file("a.png"), 0, 10, 1));
  EXPECT_TRUE(imgColorSwatchPng(kOrange, folder.write("old.png", "old"), -4, 10, 1));
  EXPECT_EQ(readFile(folder.file("old.png")), "old");
  EXPECT_FALSE(imgColorSwatchPng(std::nullopt, folder.file("old.png"), 4, 10, 1));
  EXPECT_FALSE(imgColorSwatchPng(kOrange, std::nullopt, 4, 10, 1));
}

}  // namespace
}  // namespace vistrelle
