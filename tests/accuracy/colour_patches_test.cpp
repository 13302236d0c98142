// Patches of known colours through real containers and codecs, the tool, and every output format.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::testing {
namespace {

using Rgb = std::array<double, 3>;

constexpr int kWidth = 512;
constexpr int kPatch = 64;  // eight in a row, then gray noise, without which pictures are too small to be kept
const std::array<Rgb, 8> kPatches{{{200, 30, 30},
                                   {30, 200, 30},
                                   {30, 30, 200},
                                   {240, 180, 20},
                                   {20, 160, 170},
                                   {128, 128, 128},
                                   {235, 235, 235},
                                   {12, 12, 12}}};
constexpr int kLossless = 2;
constexpr int kJpeg = 4;

struct Coding {
  std::string layout = "yuv420p";
  int bits = 8;
  int shiftX = 1;
  int shiftY = 1;
  int matrix = 1;
  bool fullRange = false;
  bool isTagged = true;
  int height = 160;
};

std::ostream& operator<<(std::ostream& stream, const Coding& coding) {
  return stream << coding.layout << " matrix " << coding.matrix << (coding.fullRange ? " full" : " limited")
                << (coding.isTagged ? " tagged " : " untagged ") << coding.height << " lines";
}

Rgb colourAt(int x, int y) {
  if (y < kPatch) return kPatches[static_cast<std::size_t>(x / kPatch)];
  // 16 steps of gray, so that a palette of 256 colours holds all.
  const unsigned value = (static_cast<unsigned>(x) * 2654435761U + static_cast<unsigned>(y) * 40503U * 69069U) >> 13;
  const double gray = 17.0 * (value % 16);
  return {gray, gray, gray};
}

std::pair<double, double> weightsOf(int matrix) {
  if (matrix == 1) return {0.2126, 0.0722};
  if (matrix == 9) return {0.2627, 0.0593};
  return {0.299, 0.114};
}

/// Raw planes, one frame (ITU-T H.273, equations for limited and full range).
std::string rawFrame(const Coding& coding) {
  const auto [redWeight, blueWeight] = weightsOf(coding.matrix);
  const double unit = std::ldexp(1.0, coding.bits - 8);
  const double top = std::ldexp(1.0, coding.bits) - 1;
  std::string bytes;
  for (int plane = 0; plane < 3; ++plane) {
    const int stepX = plane == 0 ? 1 : 1 << coding.shiftX;
    const int stepY = plane == 0 ? 1 : 1 << coding.shiftY;
    for (int y = 0; y < coding.height; y += stepY) {
      for (int x = 0; x < kWidth; x += stepX) {
        const Rgb colour = colourAt(x, y);
        const double luma =
            (redWeight * colour[0] + (1 - redWeight - blueWeight) * colour[1] + blueWeight * colour[2]) / 255;
        const double difference = plane == 1 ? (colour[2] / 255 - luma) / (2 * (1 - blueWeight))
                                             : (colour[0] / 255 - luma) / (2 * (1 - redWeight));
        double code = 0;
        if (coding.fullRange) {
          code = plane == 0 ? luma * top : difference * top + std::ldexp(1.0, coding.bits - 1);
        } else {
          code = plane == 0 ? (16 + 219 * luma) * unit : (128 + 224 * difference) * unit;
        }
        const auto value = static_cast<unsigned>(std::lround(std::clamp(code, 0.0, top)));
        bytes += static_cast<char>(value & 0xFF);
        if (coding.bits > 8) bytes += static_cast<char>(value >> 8);
      }
    }
  }
  return bytes;
}

std::string rawRgb(int height, bool withAlpha = false) {
  std::string bytes;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      for (const double part : colourAt(x, y)) bytes += static_cast<char>(static_cast<int>(part));
      // Left to right from clear to opaque in the patches, opaque below.
      if (withAlpha) bytes += static_cast<char>(y < kPatch ? x / kPatch * 36 : 255);
    }
  }
  return bytes;
}

class Patches : public ::testing::Test {
 protected:
  /// A movie of one repeated frame.
  std::string encode(const std::string& raw, const std::string& layout, int height, const std::string& name,
                     const std::vector<std::string>& more) {
    const std::string rawPath = folder.write("raw", raw + raw + raw);
    const std::string path = folder.file(name);
    std::vector<std::string> command{"ffmpeg",
                                     "-nostdin",
                                     "-v",
                                     "error",
                                     "-y",
                                     "-f",
                                     "rawvideo",
                                     "-pix_fmt",
                                     layout,
                                     "-s",
                                     std::to_string(kWidth) + "x" + std::to_string(height),
                                     "-r",
                                     "3",
                                     "-i",
                                     rawPath};
    command.insert(command.end(), more.begin(), more.end());
    command.push_back(path);
    const RunResult run = runProgram(command);
    EXPECT_EQ(run.status, 0) << run.error;
    return path;
  }

  std::shared_ptr<const platform::Picture> shoot(const std::string& movie, const std::string& extension, int height) {
    const std::string out = folder.file("out." + extension);
    const RunResult run =
        runTool({"-i", movie, "-o", out, "-w", std::to_string(kWidth), "-h", std::to_string(height), "-tc", "0", "-y"});
    EXPECT_EQ(run.status, 0) << movie << " " << extension << run.error;
    if (extension != "pdf") return platform::Picture::load(out);
    // What a reader shows of the page, one pixel a point, its colour profile applied.
    const RunResult page = runProgram({"pdftoppm", "-r", "72", "-png", "-singlefile", out, folder.file("page")});
    EXPECT_EQ(page.status, 0) << page.error;
    return platform::Picture::load(folder.file("page.png"));
  }

  static std::array<int, 4> middleOf(const platform::Bitmap& raster, std::size_t patch) {
    const std::uint8_t* pixel = raster.row(kPatch / 2) + 4 * (static_cast<int>(patch) * kPatch + kPatch / 2);
    return {pixel[0], pixel[1], pixel[2], pixel[3]};
  }

  void expectPatches(const std::string& movie, int height, const std::vector<std::string>& formats,
                     const std::string& what, const std::array<Rgb, 8>& wanted = kPatches) {
    for (const std::string& format : formats) {
      const auto picture = shoot(movie, format, height);
      ASSERT_TRUE(picture && picture->bitmap()) << what << " " << format;
      const int tolerance = format == "jpg" ? kJpeg : kLossless;
      for (std::size_t patch = 0; patch < wanted.size(); ++patch) {
        const auto shown = middleOf(*picture->bitmap(), patch);
        for (std::size_t part = 0; part < 3; ++part) {
          EXPECT_NEAR(shown[part], wanted[patch][part], tolerance)
              << what << " as " << format << ", patch " << patch << ", part " << part;
        }
      }
    }
  }

  ScratchFolder folder;
};

const std::vector<std::string> kEveryFormat{"png", "tif", "bmp", "gif", "jp2", "pdf", "jpg"};

std::vector<std::string> tagsOf(const Coding& coding) {
  if (!coding.isTagged) return {};
  const std::string matrix = coding.matrix == 9 ? "bt2020nc" : coding.matrix == 1 ? "bt709" : "smpte170m";
  return {"-colorspace", matrix, "-color_range", coding.fullRange ? "pc" : "tv"};
}

TEST_F(Patches, EveryMatrixRangeDepthAndSubsampling) {
  std::size_t combination = 0;
  for (const int matrix : {6, 1, 9}) {
    for (const bool fullRange : {false, true}) {
      for (const int bits : {8, 10, 12}) {
        for (const std::string sampling : {"420", "422", "444"}) {
          // A plain run takes every fourth; of three samplings in a row that is each of them in turn.
          if (std::getenv("VISTRELLE_LONG") == nullptr && combination++ % 4 != 0) continue;
          Coding coding;
          coding.layout = "yuv" + sampling + "p" + (bits > 8 ? std::to_string(bits) + "le" : "");
          coding.bits = bits;
          coding.shiftX = sampling == "444" ? 0 : 1;
          coding.shiftY = sampling == "420" ? 1 : 0;
          coding.matrix = matrix;
          coding.fullRange = fullRange;
          std::vector<std::string> options{"-c:v", "ffv1"};
          const auto tags = tagsOf(coding);
          options.insert(options.end(), tags.begin(), tags.end());
          const std::string movie = encode(rawFrame(coding), coding.layout, coding.height, "patches.mkv", options);
          std::ostringstream what;
          what << coding;
          expectPatches(movie, coding.height, {"png", "jpg"}, what.str());
        }
      }
    }
  }
}

TEST_F(Patches, UntaggedFramesByTheirLines) {
  for (const int height : {160, 576, 720, 1080}) {
    Coding coding;
    coding.isTagged = false;
    coding.height = height;
    coding.matrix = height >= 720 ? 1 : 6;
    const std::string movie = encode(rawFrame(coding), coding.layout, height, "patches.mkv", {"-c:v", "ffv1"});
    expectPatches(movie, height, {"png"}, "untagged, lines: " + std::to_string(height));
  }
}

TEST_F(Patches, EveryOutputFormat) {
  for (const bool fullRange : {false, true}) {
    Coding coding;
    coding.layout = "yuv444p";
    coding.shiftX = coding.shiftY = 0;
    coding.fullRange = fullRange;
    std::vector<std::string> options{"-c:v", "ffv1"};
    const auto tags = tagsOf(coding);
    options.insert(options.end(), tags.begin(), tags.end());
    const std::string movie = encode(rawFrame(coding), coding.layout, coding.height, "patches.mkv", options);
    expectPatches(movie, coding.height, kEveryFormat, fullRange ? "full range" : "limited range");
  }
}

TEST_F(Patches, TagsOfRealContainers) {
  // Lossless H.264 tells its matrix and range in the stream, QuickTime and Matroska in the container as well.
  for (const std::string name : {"patches.mov", "patches.mkv", "patches.h264"}) {
    for (const int matrix : {6, 1, 9}) {
      for (const bool fullRange : {false, true}) {
        Coding coding;
        coding.layout = "yuv444p";
        coding.shiftX = coding.shiftY = 0;
        coding.matrix = matrix;
        coding.fullRange = fullRange;
        std::vector<std::string> options{"-c:v", "libx264", "-qp", "0", "-preset", "ultrafast"};
        const auto tags = tagsOf(coding);
        options.insert(options.end(), tags.begin(), tags.end());
        const std::string movie = encode(rawFrame(coding), coding.layout, coding.height, name, options);
        std::ostringstream what;
        what << name << " " << coding;
        expectPatches(movie, coding.height, {"png"}, what.str());
      }
    }
  }
}

TEST_F(Patches, TagsThatContradictEachOtherOrAreReserved) {
  Coding coding;
  const auto made = [&](const std::string& name, const std::vector<std::string>& options) {
    std::vector<std::string> command{"-c:v", "libx264", "-qp", "0", "-preset", "ultrafast"};
    command.insert(command.end(), options.begin(), options.end());
    return encode(rawFrame(coding), coding.layout, coding.height, name, command);
  };
  // The stream says BT.601, its container BT.709: the stream counts.
  coding.matrix = 6;
  std::string bytes = readFile(made("contradictory.mov", {"-colorspace", "smpte170m", "-color_primaries", "smpte170m",
                                                          "-color_trc", "smpte170m", "-movflags", "write_colr"}));
  const std::size_t colr = bytes.find("colr");
  ASSERT_NE(colr, std::string::npos);
  for (std::size_t at = colr + 8; at < colr + 14; at += 2) bytes.replace(at, 2, std::string("\0\1", 2));
  expectPatches(folder.write("contradictory.mov", bytes), coding.height, {"png"}, "stream before container");
  // A matrix that is reserved, or RGB's although there is luma, is none: by the lines.
  for (const std::string matrix : {"3", "0", "200"}) {
    for (const int height : {160, 720}) {
      coding.height = height;
      coding.matrix = height >= 720 ? 1 : 6;
      const std::string movie = made("reserved.mkv", {"-bsf:v", "h264_metadata=matrix_coefficients=" + matrix});
      expectPatches(movie, height, {"png"}, "matrix " + matrix + ", lines " + std::to_string(height));
    }
  }
  // JPEG's own layout is full range, whatever its container says.
  coding = Coding{};
  coding.layout = "yuvj420p";
  coding.matrix = 6;
  coding.fullRange = true;
  const std::string jpeg = encode(rawFrame(coding), coding.layout, coding.height, "jpeg.mkv",
                                  {"-c:v", "mjpeg", "-q:v", "1", "-color_range", "tv", "-strict", "-1"});
  expectPatches(jpeg, coding.height, {"jpg"}, "JPEG's range");
}

TEST_F(Patches, RgbPaletteAndGray) {
  const std::string raw = rawRgb(160);
  for (const auto& [name, codec, layout] : std::vector<std::array<std::string, 3>>{{"rgb.mov", "png", "rgb24"},
                                                                                   {"rgb48.mov", "png", "rgb48be"},
                                                                                   {"rle.mov", "qtrle", "rgb24"},
                                                                                   {"gbr.mkv", "ffv1", "gbrp"},
                                                                                   {"gbr10.mkv", "ffv1", "gbrp10le"},
                                                                                   {"bgr.avi", "rawvideo", "bgr24"},
                                                                                   {"bgr0.mkv", "ffv1", "bgr0"}}) {
    const std::string movie = encode(raw, "rgb24", 160, name, {"-c:v", codec, "-pix_fmt", layout});
    expectPatches(movie, 160, {"png"}, name);
  }
  // A palette through a filter that finds one: 24 colours are there.
  const std::string palette =
      encode(raw, "rgb24", 160, "palette.mov",
             {"-vf", "split[a][b];[a]palettegen=reserve_transparent=0[p];[b][p]paletteuse=dither=none", "-c:v", "png",
              "-pix_fmt", "pal8"});
  expectPatches(palette, 160, kEveryFormat, "palette");
  std::array<Rgb, 8> grays{};
  std::string luma;
  for (int y = 0; y < 160; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const double value = y < kPatch ? 16 + x / kPatch * 30 : colourAt(x, y)[0];
      luma += static_cast<char>(static_cast<int>(value));
      if (y == 0) grays[static_cast<std::size_t>(x / kPatch)] = {value, value, value};
    }
  }
  expectPatches(encode(luma, "gray", 160, "gray.mkv", {"-c:v", "ffv1"}), 160, {"png", "jpg"}, "gray", grays);
}

struct AlphaCase {
  const char* name;
  std::vector<std::string> options;
  int tolerance;
};

TEST_F(Patches, AlphaIsKeptWhereTheFormatHasItAndBlackElsewhere) {
  const std::string raw = rawRgb(160, true);
  for (const AlphaCase& kind :
       {AlphaCase{"alpha_png.mov", {"-c:v", "png", "-pix_fmt", "rgba"}, 1},
        AlphaCase{"alpha_rle.mov", {"-c:v", "qtrle", "-pix_fmt", "argb"}, 1},
        AlphaCase{"alpha_prores.mov",
                  {"-vf", "scale=out_color_matrix=smpte170m", "-c:v", "prores_ks", "-profile:v", "4444", "-q:v", "1",
                   "-pix_fmt", "yuva444p10le"},
                  5},
        AlphaCase{"alpha_vp9.webm",
                  {"-vf", "scale=out_color_matrix=bt709", "-colorspace", "bt709", "-c:v", "libvpx-vp9", "-lossless",
                   "1", "-pix_fmt", "yuva420p", "-auto-alt-ref", "0"},
                  5},
        // Never lossless, and its streams cannot be tagged: standard definition's matrix.
        AlphaCase{"alpha_vp8.webm",
                  {"-vf", "scale=out_color_matrix=smpte170m", "-c:v", "libvpx", "-crf", "4", "-qmin", "0", "-b:v",
                   "50M", "-pix_fmt", "yuva420p", "-auto-alt-ref", "0"},
                  5}}) {
    const std::string movie = encode(raw, "rgba", 160, kind.name, kind.options);
    for (const std::string format : {"png", "tif", "bmp", "jp2", "pdf", "jpg"}) {
      const auto picture = shoot(movie, format, 160);
      ASSERT_TRUE(picture && picture->bitmap()) << kind.name << " " << format;
      const bool keepsAlpha = format == "png" || format == "tif";
      for (std::size_t patch = 0; patch < kPatches.size(); ++patch) {
        const auto shown = middleOf(*picture->bitmap(), patch);
        const int alpha = static_cast<int>(patch) * 36;
        EXPECT_NEAR(shown[3], keepsAlpha ? alpha : 255, kind.tolerance) << kind.name << " " << format << " " << patch;
        // Rasters hold colour multiplied by alpha, which is the same as colour on black.
        for (std::size_t part = 0; part < 3; ++part) {
          EXPECT_NEAR(shown[part], kPatches[patch][part] * alpha / 255, kind.tolerance + (format == "jpg" ? 4 : 1))
              << kind.name << " " << format << " patch " << patch;
        }
      }
    }
    const auto gif = shoot(movie, "gif", 160);
    ASSERT_TRUE(gif && gif->bitmap()) << kind.name;
    EXPECT_EQ(middleOf(*gif->bitmap(), 0)[3], 0) << kind.name;
    EXPECT_EQ(gif->bitmap()->row(120)[3], 255) << kind.name;
  }
}

/// A ramp of gray from black to the end of the code, 10 bits, limited range.
std::string rawRamp(int height) {
  std::string luma;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const auto code = static_cast<unsigned>(std::lround(64 + 876.0 * x / (kWidth - 1)));
      luma += static_cast<char>(code & 0xFF);
      luma += static_cast<char>(code >> 8);
    }
  }
  std::string chroma;
  for (int i = 0; i < kWidth / 2 * height / 2 * 2; ++i) chroma += std::string("\0\2", 2);
  return luma + chroma;
}

TEST_F(Patches, HighDynamicRangeWhateverItsMetadataSay) {
  constexpr int kHeight = 64;
  const std::string primaries = "G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)";
  for (const std::string transfer : {"smpte2084", "arib-std-b67"}) {
    std::vector<int> first;
    // None, true ones, a peak of 50 cd/m2, no peak at all.
    for (const std::string& metadata :
         {std::string(), ":master-display=" + primaries + "L(10000000,50):max-cll=1000,400",
          ":master-display=" + primaries + "L(500000,50):max-cll=40,10",
          ":master-display=" + primaries + "L(0,0):max-cll=0,0"}) {
      const std::string movie = encode(
          rawRamp(kHeight), "yuv420p10le", kHeight, "ramp.mp4",
          {"-c:v", "libx265", "-preset", "ultrafast", "-x265-params",
           "log-level=error:lossless=1:colorprim=bt2020:transfer=" + transfer + ":colormatrix=bt2020nc" + metadata});
      const auto picture = shoot(movie, "bmp", kHeight);
      ASSERT_TRUE(picture && picture->bitmap()) << transfer << metadata;
      std::vector<int> shown;
      for (int x = 0; x < kWidth; ++x) {
        const std::uint8_t* pixel = picture->bitmap()->row(kHeight / 2) + 4 * x;
        EXPECT_NEAR(pixel[0], pixel[1], 1) << "gray stays gray";
        EXPECT_NEAR(pixel[2], pixel[1], 1) << "gray stays gray";
        shown.push_back(pixel[1]);
      }
      EXPECT_EQ(shown.front(), 0) << "black stays black";
      EXPECT_GE(shown.back(), 254);
      EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
      // Diffuse white: 203 cd/m2 at 58.07 % of the PQ code, 75 % of HLG's.
      const double white = transfer == "smpte2084" ? 0.5807 : 0.75;
      EXPECT_NEAR(shown[static_cast<std::size_t>(white * (kWidth - 1))], 235, 3) << transfer << metadata;
      // The last quarter still rises: nothing is cut.
      EXPECT_GT(shown[kWidth * 7 / 8], shown[kWidth * 3 / 4]) << transfer << metadata;
      if (first.empty()) first = shown;
      EXPECT_EQ(shown, first) << transfer << metadata;
    }
  }
}

}  // namespace
}  // namespace vistrelle::testing
