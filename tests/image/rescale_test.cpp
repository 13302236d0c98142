#include "vistrelle/image/rescale.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/synthetic_pictures.h"
#include "vistrelle/platform/imaging/formats.h"

namespace vistrelle {
namespace {

using platform::Bitmap;
using platform::OptionalValue;
using platform::Picture;
using platform::Value;
using ::testing::ElementsAre;
using testing::paintedPicture;
using testing::pixelAt;
using testing::RecordingLog;
using testing::Rgba;
using testing::ScratchFolder;

constexpr Rgba kBlack{0, 0, 0, 255};
constexpr Rgba kNothing{0, 0, 0, 0};
constexpr Rgba kWhite{255, 255, 255, 255};

std::shared_ptr<const Picture> whitePicture(int width, int height) {
  return paintedPicture(width, height, [](int, int) { return kWhite; });
}

/// Column and row can be read off the colour of a pixel (16 pixels a step).
Rgba plotted(int x, int y) {
  return {x / 16 * 2, y / 16 * 2, 77, 255};
}

Value picture(std::shared_ptr<const Picture> object) {
  return Value(std::shared_ptr<const platform::Opaque>(std::move(object)));
}

std::string repOf(int width, int height) {
  return platform::format("rep=bitmap {} x {} pixels, {} x {} points", width, height, width, height);
}

std::shared_ptr<const Picture> frame1080() {
  static const auto frame = [] {
    auto image = testing::solidFrame(1920, 1080, {}, 255, 255, 255);
    image.colour.matrix = 1;
    return std::make_shared<const Picture>(image);
  }();
  return frame;
}

// ---- the worked example: 1920 x 1080 asked at 1280 x 960, 72 dpi ------------------------------------

TEST(Stretch, FillsTheBoxAndLogsNothing) {
  const RecordingLog log(true);
  const auto raster = stretch(frame1080(), 1280, 960, false, 72);
  ASSERT_TRUE(raster);
  EXPECT_EQ(raster->width(), 1280);
  EXPECT_EQ(raster->height(), 960);
  for (const auto& [x, y] : std::vector<std::pair<int, int>>{{0, 0}, {1279, 0}, {0, 959}, {1279, 959}, {640, 480}}) {
    EXPECT_EQ(pixelAt(*raster, x, y), kWhite);
  }
  EXPECT_THAT(log.lines(), ElementsAre());
}

TEST(Letterbox, PutsBandsAboveAndBelow) {
  const RecordingLog log(true);
  const auto raster = letterbox(frame1080(), 1280, 960, false, 72);
  ASSERT_TRUE(raster);
  EXPECT_EQ(raster->width(), 1280);
  EXPECT_EQ(raster->height(), 960);
  EXPECT_EQ(pixelAt(*raster, 0, 119), kBlack);
  EXPECT_EQ(pixelAt(*raster, 0, 120), kWhite);
  EXPECT_EQ(pixelAt(*raster, 1279, 839), kWhite);
  EXPECT_EQ(pixelAt(*raster, 1279, 840), kBlack);
  EXPECT_THAT(log.lines(), ElementsAre("img size : 1920 x 1080", "f=1.500000, src = 1920 x 1080 -> dst = 1280 x 720",
                                       repOf(1280, 960), repOf(1280, 960), repOf(1280, 960),
                                       "dstOffset=0:120 (dst=1280*960)", "0:120:1280:720"));
}

TEST(CropFill, CutsBothSidesEqually) {
  const auto source = paintedPicture(1920, 1080, plotted);
  const RecordingLog log(true);
  const auto raster = cropFill(source, 1280, 960, false, 72);
  ASSERT_TRUE(raster);
  EXPECT_EQ(raster->width(), 1280);
  EXPECT_EQ(raster->height(), 960);
  // Columns 239 to 1678 over the whole width.
  EXPECT_NEAR(pixelAt(*raster, 0, 480)[0], 239 / 16 * 2, 2);
  EXPECT_NEAR(pixelAt(*raster, 640, 480)[0], 959 / 16 * 2, 2);
  EXPECT_NEAR(pixelAt(*raster, 1279, 480)[0], 1678 / 16 * 2, 2);
  EXPECT_NEAR(pixelAt(*raster, 640, 0)[1], 0, 1);
  EXPECT_NEAR(pixelAt(*raster, 640, 959)[1], 1079 / 16 * 2, 2);
  EXPECT_THAT(log.lines(), ElementsAre("img size : 1920 x 1080", "f=1.125000, src = 1920 x 1080 -> dst = 1706 x 960",
                                       repOf(1280, 960), repOf(1280, 960), repOf(1280, 960),
                                       "dstOffset=-213:0 (dst=1280*960) -> srcOffset=-239:0 (src=1440*1080)"));
}

TEST(FitCanvas, IsAsLargeAsTheScaledPicture) {
  const RecordingLog log(true);
  const auto raster = fitCanvas(frame1080(), 1280, 960, false, 72);
  ASSERT_TRUE(raster);
  EXPECT_EQ(raster->width(), 1280);
  EXPECT_EQ(raster->height(), 720);
  EXPECT_EQ(pixelAt(*raster, 0, 0), kWhite);
  EXPECT_EQ(pixelAt(*raster, 1279, 719), kWhite);
  EXPECT_THAT(log.lines(), ElementsAre("img size : 1920 x 1080", "f=1.500000, src = 1920 x 1080 -> dst = 1280 x 720"));
}

TEST(CoverCanvas, IsAsLargeAsTheScaledPicture) {
  const auto source = paintedPicture(1920, 1080, plotted);
  const RecordingLog log(true);
  const auto raster = coverCanvas(source, 1280, 960, false, 72);
  ASSERT_TRUE(raster);
  EXPECT_EQ(raster->width(), 1706);
  EXPECT_EQ(raster->height(), 960);
  EXPECT_NEAR(pixelAt(*raster, 1705, 480)[0], 1918 / 16 * 2, 2);
  EXPECT_THAT(log.lines(), ElementsAre("img size : 1920 x 1080", "f=1.125000, src = 1920 x 1080 -> dst = 1706 x 960",
                                       repOf(1706, 960), repOf(1706, 960), repOf(1706, 960)));
}

// ---- backgrounds ------------------------------------------------------------------------------------

TEST(CoverCanvas, FillsTheBoxAndFourMoreNotTheRaster) {
  // A see-through picture of 200 x 100 that covers 50 x 50 as 100 x 50: black up to column 54, then a clear band.
  const auto clear = paintedPicture(200, 100, [](int, int) { return kNothing; });
  const auto wide = coverCanvas(clear, 50, 50, false, 72);
  ASSERT_TRUE(wide);
  EXPECT_EQ(wide->width(), 100);
  EXPECT_EQ(pixelAt(*wide, 53, 0), kBlack);
  EXPECT_EQ(pixelAt(*wide, 54, 0), kNothing);
  EXPECT_EQ(pixelAt(*wide, 99, 49), kNothing);
  // A tall one keeps its band at the top.
  const auto tallClear = paintedPicture(100, 200, [](int, int) { return kNothing; });
  const auto tall = coverCanvas(tallClear, 50, 50, false, 72);
  ASSERT_TRUE(tall);
  EXPECT_EQ(tall->height(), 100);
  EXPECT_EQ(pixelAt(*tall, 0, 46), kBlack);
  EXPECT_EQ(pixelAt(*tall, 0, 45), kNothing);
}

TEST(Modes, TransparentDestinationsKeepTheBarsClear) {
  const auto raster = letterbox(whitePicture(64, 32), 64, 64, true, 72);
  EXPECT_EQ(pixelAt(*raster, 10, 10), kNothing);
  EXPECT_EQ(pixelAt(*raster, 10, 32), kWhite);
  const auto half = paintedPicture(4, 4, [](int, int) { return Rgba{255, 255, 255, 128}; });
  EXPECT_EQ(pixelAt(*stretch(half, 4, 4, true, 72), 1, 1), (Rgba{128, 128, 128, 128}));
  EXPECT_EQ(pixelAt(*stretch(half, 4, 4, false, 72), 1, 1), (Rgba{128, 128, 128, 255}));
}

// ---- single precision -------------------------------------------------------------------------------

TEST(Modes, SizesAreTruncatedInSinglePrecision) {
  const RecordingLog log(true);
  // 1000 / (333 / 111.0f) is 333.33.
  const auto fitted = fitCanvas(whitePicture(1000, 333), 500, 111, false, 72);
  EXPECT_EQ(fitted->width(), 333);
  EXPECT_EQ(fitted->height(), 111);
  // In double precision 1920 / (1920 / 100) is 100; in single precision 19.2 is a little more and 99 is left.
  const auto square = fitCanvas(frame1080(), 100, 100, false, 72);
  EXPECT_EQ(square->width(), 99);
  EXPECT_EQ(square->height(), 56);
  // 1920 / 58 is a little less than in double precision: 58 and not 57.
  EXPECT_EQ(fitCanvas(frame1080(), 58, 100, false, 72)->width(), 58);
}

TEST(CropFill, TheCropIsWorkedOutInSinglePrecision) {
  const RecordingLog log(true);
  // Double precision would show 1920 and 1919 columns.
  EXPECT_TRUE(cropFill(frame1080(), 43, 20, false, 72));
  EXPECT_TRUE(log.has("dstOffset=0:-2 (dst=43*20) -> srcOffset=0:-89 (src=1919*893)"));
  EXPECT_TRUE(cropFill(frame1080(), 44, 20, false, 72));
  EXPECT_TRUE(log.has("dstOffset=0:-2 (dst=44*20) -> srcOffset=0:-87 (src=1920*873)"));
}

TEST(CropFill, OddRestsAreHalvedTowardZero) {
  const RecordingLog log(true);
  // 101 x 50 over 50 x 50: scaled 101 x 50, half of -51 is -25.
  const auto raster = cropFill(paintedPicture(101, 50,
                                              [](int x, int) {
                                                return Rgba{x, x, x, 255};
                                              }),
                               50, 50, false, 72);
  EXPECT_TRUE(log.has("dstOffset=-25:0 (dst=50*50) -> srcOffset=-25:0 (src=51*50)"));
  EXPECT_EQ(pixelAt(*raster, 0, 10)[0], 25);
  EXPECT_EQ(pixelAt(*raster, 49, 10)[0], 75);
}

TEST(CropFill, CutsTopAndBottomOfATallPicture) {
  const auto tall = paintedPicture(40, 100, [](int, int y) { return Rgba{y * 2, 0, 0, 255}; });
  const RecordingLog log(true);
  const auto raster = cropFill(tall, 40, 40, false, 72);
  EXPECT_TRUE(log.has("dstOffset=0:-30 (dst=40*40) -> srcOffset=0:-30 (src=40*40)"));
  EXPECT_EQ(pixelAt(*raster, 5, 0)[0], 60);
  EXPECT_EQ(pixelAt(*raster, 5, 39)[0], 138);
}

// ---- resolution -------------------------------------------------------------------------------------

TEST(Modes, ResolutionZeroAndBelowIs72) {
  for (const double dpi : {0.0, -5.0}) {
    for (const auto mode : {cropFill, letterbox, stretch, fitCanvas, coverCanvas}) {
      const auto raster = mode(whitePicture(20, 10), 20, 20, false, dpi);
      const auto usual = mode(whitePicture(20, 10), 20, 20, false, 72);
      ASSERT_TRUE(raster);
      EXPECT_EQ(raster->pointWidth(), usual->pointWidth());
      EXPECT_EQ(raster->dpi(), 72);
      for (int y = 0; y < raster->height(); ++y) EXPECT_EQ(pixelAt(*raster, 5, y), pixelAt(*usual, 5, y));
    }
  }
}

TEST(Modes, ResolutionSetsThePointSize) {
  for (const auto mode : {cropFill, letterbox, stretch, fitCanvas, coverCanvas}) {
    const auto raster = mode(whitePicture(20, 20), 30, 30, false, 144);
    EXPECT_DOUBLE_EQ(raster->pointWidth(), 15);
    EXPECT_DOUBLE_EQ(raster->pointHeight(), 15);
  }
}

TEST(CropFill, At144TheCropAndTheBoxGrowTogether) {
  const auto source = paintedPicture(1920, 1080, plotted);
  const RecordingLog log(true);
  const auto raster = cropFill(source, 1280, 960, false, 144);
  EXPECT_TRUE(log.has("dstOffset=-213:0 (dst=1280*960) -> srcOffset=-239:0 (src=2880*2160)"));
  // The box is 2560 x 1920 pixels, of which the raster shows the lower left quarter; the crop is twice as large too.
  EXPECT_NEAR(pixelAt(*raster, 0, 480)[0], 239 / 16 * 2, 2);
  EXPECT_NEAR(pixelAt(*raster, 1279, 480)[0], 1678 / 16 * 2, 2);
  EXPECT_NEAR(pixelAt(*raster, 640, 959)[1], 1079 / 16 * 2, 2);
}

TEST(Letterbox, At144TheOffsetIsInPointsAndTheSizeIsNot) {
  const RecordingLog log(true);
  const auto raster = letterbox(whitePicture(64, 32), 64, 64, false, 144);
  EXPECT_TRUE(log.has("dstOffset=0:8 (dst=64*64)"));
  EXPECT_TRUE(log.has("0:8:64:32"));
  EXPECT_EQ(pixelAt(*raster, 32, 15), kBlack);
  EXPECT_EQ(pixelAt(*raster, 32, 16), kWhite);
  EXPECT_EQ(pixelAt(*raster, 63, 47), kWhite);
  EXPECT_EQ(pixelAt(*raster, 32, 48), kBlack);
}

TEST(Letterbox, At36OnlyAQuarterIsFilledAndDrawn) {
  const auto raster = letterbox(whitePicture(64, 64), 64, 64, false, 36);
  // Half a pixel a point: 64 points are the lower left 32 pixels, and so is the fill.
  EXPECT_EQ(pixelAt(*raster, 0, 63), kWhite);
  EXPECT_EQ(pixelAt(*raster, 31, 32), kWhite);
  EXPECT_EQ(pixelAt(*raster, 32, 63), kNothing);
  EXPECT_EQ(pixelAt(*raster, 0, 31), kNothing);
}

TEST(Modes, EveryResolutionGivesARaster) {
  auto frame = testing::solidFrame(64, 32, {}, 255, 255, 255);
  frame.orientation = {true, 1};
  for (const auto& source : {whitePicture(64, 32), std::make_shared<const Picture>(frame)}) {
    for (const double dpi : {5e-324, 1e-300, 1e-9, 1e-6, 1e-4, 1.0, 1e4, 1e9, 1e300, 1.7e308}) {
      for (const auto mode : {cropFill, letterbox, stretch, fitCanvas, coverCanvas}) {
        for (const bool transparent : {false, true}) EXPECT_TRUE(mode(source, 48, 40, transparent, dpi)) << dpi;
      }
    }
  }
}

TEST(Stretch, At36TheWholeRasterIsDrawn) {
  const auto raster = stretch(whitePicture(64, 64), 64, 64, false, 36);
  EXPECT_EQ(pixelAt(*raster, 63, 0), kWhite);
  EXPECT_DOUBLE_EQ(raster->pointWidth(), 128);
}

// ---- sizes that make no raster ----------------------------------------------------------------------

TEST(Modes, ImpossibleSizesGiveNothing) {
  const auto source = whitePicture(192, 108);
  using Sizes = std::vector<std::pair<std::int64_t, std::int64_t>>;
  for (const auto& [width, height] :
       Sizes{{0, 0}, {-1, -1}, {-128, -96}, {2000000000, 2000000000}, {INT64_MAX, INT64_MAX}, {INT64_MIN, INT64_MIN}}) {
    for (const auto mode : {cropFill, letterbox, stretch, fitCanvas, coverCanvas}) {
      EXPECT_FALSE(mode(source, width, height, false, 72)) << width << " x " << height;
    }
  }
  for (const auto& [width, height] : Sizes{{0, 96}, {128, 0}, {-128, 96}, {2000000000, 96}}) {
    for (const auto mode : {cropFill, letterbox, stretch}) {
      EXPECT_FALSE(mode(source, width, height, false, 72)) << width << " x " << height;
    }
  }
  for (const auto& [width, height] : Sizes{{0, 96}, {128, 0}}) {
    EXPECT_FALSE(fitCanvas(source, width, height, false, 72)) << width << " x " << height;
  }
  for (const auto& [width, height] : Sizes{{-128, 96}, {128, -96}}) {
    EXPECT_FALSE(coverCanvas(source, width, height, false, 72)) << width << " x " << height;
    // A negative ratio is never the larger one: the other side decides.
    EXPECT_TRUE(fitCanvas(source, width, height, false, 72)) << width << " x " << height;
  }
  // An infinite ratio is never the smaller one: the other side decides.
  const auto covered = coverCanvas(source, 0, 54, false, 72);
  ASSERT_TRUE(covered);
  EXPECT_EQ(covered->width(), 96);
}

TEST(Modes, RasterLogWithoutRaster) {
  const RecordingLog log(true);
  EXPECT_FALSE(letterbox(whitePicture(4, 4), 0, 0, false, 72));
  EXPECT_EQ(log.count("rep=(null)"), 3);
}

TEST(Modes, AMissingPictureGivesNothingAtOnce) {
  const RecordingLog log(true);
  for (const auto mode : {cropFill, letterbox, stretch, fitCanvas, coverCanvas}) {
    EXPECT_FALSE(mode(nullptr, 10, 10, false, 72));
  }
  EXPECT_THAT(log.lines(), ElementsAre());
}

TEST(Modes, SizesOfAPictureAreTruncated) {
  auto frame = testing::solidFrame(64, 36, {}, 255, 255, 255);
  frame.presentationWidth = 85.9;
  const RecordingLog log(true);
  fitCanvas(std::make_shared<const Picture>(frame), 40, 40, false, 72);
  EXPECT_TRUE(log.has("img size : 85 x 36"));
}

// ---- imgRescale -------------------------------------------------------------------------------------

TEST(ImgRescale, RefusesAnythingButAPathOrAPicture) {
  const ScratchFolder folder;
  for (const OptionalValue& source :
       {OptionalValue(), OptionalValue(Value(12)), OptionalValue(Value(platform::List{})),
        OptionalValue(Value(std::shared_ptr<const platform::Opaque>(Bitmap::make(4, 4))))}) {
    const RecordingLog log(true);
    EXPECT_FALSE(imgRescale(source, folder.file("out.jpg"), 10, 10, 0, 72, 0.6F));
    EXPECT_THAT(log.lines(), ElementsAre("imgRescale          - deb, srcPathStrOrImg = path ? 0, image ? 0"));
  }
}

TEST(ImgRescale, WritesAPictureAndSaysSo) {
  const ScratchFolder folder;
  const std::string path = folder.file("out.jpg");
  const RecordingLog log(true);
  EXPECT_TRUE(imgRescale(picture(whitePicture(64, 32)), path, 32, 32, 0, 72, 0.6F));
  const auto lines = log.lines();
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[0], "imgRescale          - deb, srcPathStrOrImg = path ? 0, image ? 1");
  EXPECT_EQ(lines[1], "imgRescale          : size = 64 x 32");
  EXPECT_EQ(lines[2], "imgRescale          :-) modeInt=0");
  EXPECT_TRUE(log.has("imgExport - end"));
  EXPECT_EQ(imgSizes(path), std::pair(std::int64_t{32}, std::int64_t{32}));
}

TEST(ImgRescale, IsSilentWithoutVerbose) {
  const ScratchFolder folder;
  const RecordingLog log(false);
  EXPECT_TRUE(imgRescale(picture(whitePicture(64, 32)), folder.file("out.png"), 32, 32, 2, 72, 0.6F));
  EXPECT_FALSE(imgRescale(folder.file("missing.png"), folder.file("out.png"), 32, 32, 2, 72, 0.6F));
  EXPECT_THAT(log.lines(), ElementsAre());
}

TEST(ImgRescale, ReadsAPath) {
  const ScratchFolder folder;
  const std::string source = folder.file("in.png");
  ASSERT_TRUE(imgRescale(picture(paintedPicture(64, 32, testing::scenery)), source, 64, 32, 0, 72, 1));
  const RecordingLog log(true);
  EXPECT_TRUE(imgRescale(Value(source), folder.file("out.png"), 32, 16, 0, 72, 1));
  EXPECT_TRUE(log.has("imgRescale          - deb, srcPathStrOrImg = path ? 1, image ? 0"));
  EXPECT_TRUE(log.has("imgRescale src path :-) " + source));
  EXPECT_TRUE(log.has("imgRescale          : size = 64 x 32"));
}

TEST(ImgRescale, AMissingOrUnreadablePathFails) {
  const ScratchFolder folder;
  const std::string missing = folder.file("missing.png");
  const RecordingLog log(true);
  EXPECT_FALSE(imgRescale(Value(missing), folder.file("out.png"), 32, 16, 0, 72, 1));
  EXPECT_TRUE(log.has("imgRescale src path :-( " + missing));
  EXPECT_FALSE(imgRescale(Value(folder.write("text.png", "no picture")), folder.file("out.png"), 32, 16, 0, 72, 1));
  EXPECT_FALSE(log.hasContaining("size ="));
  EXPECT_FALSE(imgRescale(picture(std::make_shared<const Picture>(std::shared_ptr<const Bitmap>())),
                          folder.file("out.png"), 32, 16, 0, 72, 1));
  EXPECT_FALSE(imgSizes(folder.file("out.png")));
}

TEST(ImgRescale, UnknownModesFailAfterLoading) {
  const ScratchFolder folder;
  for (const int mode : {3, -3, 1000}) {
    const RecordingLog log(true);
    EXPECT_FALSE(imgRescale(picture(whitePicture(8, 8)), folder.file("out.png"), 8, 8, mode, 72, 1));
    EXPECT_TRUE(log.has("imgRescale          : size = 8 x 8"));
    EXPECT_TRUE(log.has(platform::format("imgRescale          :-( modeInt={}", mode)));
  }
}

TEST(ImgRescale, AbsurdSizesFailAndWriteNothing) {
  const ScratchFolder folder;
  const std::string path = folder.file("out.jpg");
  for (const std::int64_t size : {std::int64_t{0}, std::int64_t{-5}, std::int64_t{2000000000}}) {
    EXPECT_FALSE(imgRescale(picture(whitePicture(8, 8)), path, size, size, 0, 72, 0.6F));
    EXPECT_FALSE(imgSizes(path));
  }
}

TEST(ImgRescale, TheExtensionDecidesTheBackground) {
  const ScratchFolder folder;
  const auto source = picture(whitePicture(64, 32));
  for (const char* name : {"a.PNG", "a.png", "a.TIF", "a.tiff", "a.Gif"}) {
    ASSERT_TRUE(imgRescale(source, folder.file(name), 64, 64, 1, 72, 1)) << name;
    EXPECT_EQ(pixelAt(*Picture::load(folder.file(name))->bitmap(), 5, 5), kNothing) << name;
  }
  for (const char* name : {"a.jpg", "a.bmp", "a.jp2", "a.jpe", "plain"}) {
    ASSERT_TRUE(imgRescale(source, folder.file(name), 64, 64, 1, 72, 1)) << name;
    EXPECT_LE(testing::largestDifference(pixelAt(*Picture::load(folder.file(name))->bitmap(), 5, 5), kBlack), 1)
        << name;
  }
}

TEST(ImgSizes, SaysWhetherThePathExists) {
  const ScratchFolder folder;
  const std::string path = folder.file("a.png");
  ASSERT_TRUE(imgRescale(picture(whitePicture(8, 8)), path, 21, 13, 0, 300, 1));
  const RecordingLog log(true);
  EXPECT_EQ(imgSizes(path), std::pair(std::int64_t{21}, std::int64_t{13}));
  EXPECT_TRUE(log.has("imgSizes - deb  : " + path + " = 1"));
  EXPECT_FALSE(imgSizes(folder.file("missing")));
  EXPECT_TRUE(log.has("imgSizes - deb  : " + folder.file("missing") + " = 0"));
  EXPECT_FALSE(imgSizes(folder.write("text", "no picture")));
  EXPECT_FALSE(imgSizes(std::nullopt));
}

}  // namespace
}  // namespace vistrelle
