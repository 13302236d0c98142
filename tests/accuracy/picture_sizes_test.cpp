// The tool's pictures of movies of odd sizes, and of movies whose pictures change their size on the way.
#include <cmath>
#include <fstream>

#include "shape_movies.h"

namespace vistrelle::testing {
namespace {

using Words = std::vector<std::string>;

const PlaneLayout kRgb{"rgb24", 0, 0, true};
const PlaneLayout k444{"yuv444p", 0, 0, false};
const PlaneLayout k422{"yuv422p", 1, 0, false};
const PlaneLayout k420{"yuv420p", 1, 1, false};
const PlaneLayout k411{"yuv411p", 2, 0, false};
const PlaneLayout k410{"yuv410p", 2, 2, false};
const PlaneLayout kJpeg{"yuvj420p", 1, 1, true};

class PictureSizes : public ShapeMovies {
 protected:
  std::string cornersMovie(const Extent& size, const std::string& name, const PlaneLayout& layout, const Words& options,
                           int turn = 0) {
    const auto paint = [&](int x, int y) { return cornerColour(x, y, size, turn); };
    const bool isRgb = layout.name == kRgb.name;
    // The planes are our own: ffmpeg's conversion reads beyond the edge of odd pictures.
    const std::string raw = isRgb ? rawPixels(size, paint) : rawPlanes(size, layout, paint);
    return movieOf(raw, size, name, options, layout.name);
  }

  /// The middle of each corner, and its outermost pixel.
  static void expectCorners(const Shot& shot, int turn, int tolerance) {
    const int width = shot.raster().width();
    const int height = shot.raster().height();
    for (int corner = 0; corner < 4; ++corner) {
      const Colour wanted = kCorners[static_cast<std::size_t>((corner + 4 - turn) % 4)];
      const bool right = corner == 1 || corner == 2;
      const bool down = corner >= 2;
      for (const auto& [dx, dy] : {Extent{width / 8, height / 8}, Extent{0, 0}}) {
        const Colour shown = shot.at(right ? width - 1 - dx : dx, down ? height - 1 - dy : dy);
        EXPECT_LE(farthest(shown, wanted), tolerance)
            << "corner " << corner << (dx == 0 ? ", its last pixel: " : ": ") << ::testing::PrintToString(shown)
            << ", not " << ::testing::PrintToString(wanted);
      }
    }
  }
};

struct OddMovie {
  const char* name;
  PlaneLayout layout;
  Words options;
  int tolerance;
};

constexpr int kLossless = 3;
constexpr int kLossy = 12;

const Words kLosslessHevc{"-c:v", "libx265", "-preset", "ultrafast", "-x265-params", "lossless=1:log-level=error"};
const Words kLosslessVp9{"-c:v", "libvpx-vp9", "-lossless", "1", "-deadline", "realtime", "-cpu-used", "8"};
const Words kFineVp8{"-c:v", "libvpx", "-crf", "4", "-b:v", "20M"};

const std::vector<OddMovie> kOddMovies{
    {"odd.mp4", k444, {"-c:v", "libx264", "-qp", "0"}, kLossless},
    {"odd.ts", k444, {"-c:v", "libx264", "-qp", "0"}, kLossless},
    {"odd_rgb.mkv", kRgb, {"-c:v", "libx264rgb", "-qp", "0"}, 0},
    {"odd_hevc.mp4", k444, kLosslessHevc, kLossless},
    {"odd_vp9.webm", k420, kLosslessVp9, kLossless},
    {"odd_vp9_444.webm", k444, kLosslessVp9, kLossless},
    {"odd_vp8.webm", k420, kFineVp8, kLossy},
    {"odd_ffv1.mkv", k420, {"-c:v", "ffv1"}, kLossless},
    {"odd_ffv1_410.mkv", k410, {"-c:v", "ffv1"}, kLossless},
    {"odd_ffv1_411.mkv", k411, {"-c:v", "ffv1"}, kLossless},
    {"odd_ffv1_422.mkv", k422, {"-c:v", "ffv1"}, kLossless},
    {"odd_png.mov", kRgb, {"-c:v", "png"}, 0},
    {"odd_rle.mov", kRgb, {"-c:v", "qtrle"}, 0},
    {"odd_mpeg4.avi", k420, {"-c:v", "mpeg4", "-q:v", "1"}, kLossy},
    {"odd_mpeg2.ts", k420, {"-c:v", "mpeg2video", "-q:v", "1", "-r", "25"}, kLossy},
    {"odd_mjpeg.avi", kJpeg, {"-c:v", "mjpeg", "-q:v", "1"}, kLossy},
    {"odd_theora.ogv", k420, {"-c:v", "libtheora", "-q:v", "10"}, kLossy},
    {"odd_prores.mov",
     k444,
     {"-c:v", "prores_ks", "-profile:v", "4444", "-q:v", "1", "-pix_fmt", "yuv444p10le"},
     kLossy},
};

TEST_F(PictureSizes, OddSizesToTheLastPixel) {
  constexpr Extent kOdd{161, 97};
  for (const OddMovie& odd : kOddMovies) {
    SCOPED_TRACE(odd.name);
    const std::string movie = cornersMovie(kOdd, odd.name, odd.layout, odd.options);
    const Shot shot = shoot(movie, kOdd);
    EXPECT_EQ(shot.shown, std::vector<Extent>{kOdd});
    expectCorners(shot, 0, odd.tolerance);
    // Larger and smaller, no row or column of padding comes in.
    expectCorners(shoot(movie, {320, 200}), 0, odd.tolerance + 2);
    expectCorners(shoot(movie, {101, 63}), 0, odd.tolerance + 2);
  }
}

TEST_F(PictureSizes, SmallestSizes) {
  const auto paint = [](int, int) { return kCorners[0]; };
  for (const Extent& size : {Extent{1, 1}, Extent{1, 7}, Extent{3, 2}, Extent{5, 3}}) {
    for (const bool isRgb : {true, false}) {
      SCOPED_TRACE(::testing::Message() << size.first << " x " << size.second << (isRgb ? " RGB" : " planes"));
      const std::string movie =
          isRgb ? movieOf(rawPixels(size, paint), size, "small.mov", {"-c:v", "png"})
                : movieOf(rawPlanes(size, k420, paint), size, "small.mkv", {"-c:v", "ffv1"}, k420.name);
      // Flat pictures are kept as BMP only, which is large enough.
      const Shot shot = shoot(movie, {64, 48}, "0", "bmp");
      EXPECT_EQ(shot.shown, std::vector<Extent>{size});
      for (const auto& [x, y] : {Extent{0, 0}, Extent{63, 0}, Extent{63, 47}, Extent{0, 47}, Extent{32, 24}}) {
        EXPECT_LE(farthest(shot.at(x, y), kCorners[0]), kLossless) << x << ", " << y;
      }
    }
  }
}

struct Part {
  Extent size;
  std::string filter;  ///< of ffmpeg
  Extent shown;
};

struct ChangingMovie {
  const char* name;
  const char* partExtension;
  Words options;
  std::vector<Part> parts;
  int tolerance;
};

class ChangingSizes : public PictureSizes {
 protected:
  /// The parts joined, each a second long with its colours moved on by one corner.
  std::string join(const ChangingMovie& movie) {
    std::string bytes;
    std::string list;
    for (std::size_t i = 0; i < movie.parts.size(); ++i) {
      const Part& part = movie.parts[i];
      const std::string name = "part" + std::to_string(i) + "." + movie.partExtension;
      // The range that can be asked for ends at a whole second of the last part, whatever is missing at its end.
      const std::string tail = i + 1 == movie.parts.size() ? ",tpad=stop_mode=clone:stop_duration=1" : "";
      Words options = Words{"-vf", "fps=25" + part.filter + tail} + movie.options;
      if (name.ends_with(".ts")) {
        options = options + Words{"-muxdelay", "0", "-muxpreload", "0", "-output_ts_offset", std::to_string(i)};
      }
      const std::string path = cornersMovie(part.size, name, k420, options, static_cast<int>(i));
      bytes += readFile(path);
      list += "file '" + path + "'\n";
    }
    if (std::string(movie.name).ends_with(".ts")) return folder.write(movie.name, bytes);
    return makeClip(folder, movie.name, {"-f", "concat", "-safe", "0", "-i", folder.write("list", list), "-c", "copy"});
  }
};

const Words kX264{"-c:v", "libx264", "-qp", "1", "-preset", "ultrafast", "-bf", "0"};
const Words kMpeg2{"-c:v", "mpeg2video", "-q:v", "1"};

const Part kSmall{{160, 96}, "", {160, 96}};
const Part kTall{{96, 200}, "", {96, 200}};
const Part kLarge{{320, 180}, "", {320, 180}};
const Part kWide{{160, 96}, ",setsar=4/3", {213, 96}};
const Part kWider{{160, 96}, ",setsar=2/1", {320, 96}};
const Part kFourByThree{{160, 96}, ",setdar=4/3", {128, 96}};
const Part kSixteenByNine{{160, 96}, ",setdar=16/9", {171, 96}};

TEST_F(ChangingSizes, EachPictureByItsOwnSize) {
  for (const ChangingMovie& movie :
       {ChangingMovie{"size.ts", "ts", kX264, {kSmall, kLarge, kTall}, kLossy},
        ChangingMovie{"size_mpeg2.ts", "ts", kMpeg2, {kLarge, kSmall, kLarge}, kLossy},
        ChangingMovie{"size.mkv", "mkv", kLosslessVp9, {kSmall, kLarge, kTall}, kLossless},
        ChangingMovie{"size.webm", "webm", kFineVp8, {kTall, kSmall}, kLossy},
        // The same pixels, of another shape.
        ChangingMovie{"shape.ts", "ts", kX264, {kSmall, kWide, kWider}, kLossy},
        ChangingMovie{"shape_mpeg2.ts", "ts", kMpeg2, {kSixteenByNine, kFourByThree}, kLossy}}) {
    const std::string path = join(movie);
    const std::size_t count = movie.parts.size();
    // Alone, ...
    for (std::size_t i = 0; i < count; ++i) {
      SCOPED_TRACE(std::string(movie.name) + ", part " + std::to_string(i) + " alone");
      const Shot shot = shoot(path, {240, 160}, std::to_string(i) + ".5");
      EXPECT_EQ(shot.shown, std::vector<Extent>{movie.parts[i].shown});
      expectCorners(shot, static_cast<int>(i), movie.tolerance);
    }
    // ... and the first one again behind all others: the later picture replaces the earlier one in the file.
    std::string times;
    std::vector<Extent> wanted;
    for (const std::size_t i : {count - 1, std::size_t{1}, std::size_t{0}}) {
      times += (times.empty() ? "" : "-") + std::to_string(i) + ".5";
      wanted.push_back(movie.parts[i].shown);
    }
    SCOPED_TRACE(std::string(movie.name) + ", backwards: " + times);
    const Shot shot = shoot(path, {240, 160}, times);
    EXPECT_EQ(shot.shown, wanted);
    expectCorners(shot, 0, movie.tolerance);
  }
}

}  // namespace
}  // namespace vistrelle::testing
