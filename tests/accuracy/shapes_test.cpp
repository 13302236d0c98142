// Which pixel of a movie lands where in the tool's picture: turned and mirrored movies, clean apertures, pixel aspects.
#include <cmath>
#include <ostream>

#include "shape_movies.h"
#include "tests/platform/media/movie_loading.h"
#include "vistrelle/image/rescale.h"

namespace vistrelle::testing {
namespace {

using platform::ApertureMode;

constexpr Extent kSize{120, 80};
const std::vector<std::string> kPng{"-c:v", "png"};
const std::vector<std::string> kLosslessRgb{"-c:v", "libx264rgb", "-qp", "0", "-preset", "ultrafast"};

/// x' = a x + c y, y' = b x + d y, with y downwards.
struct Turn {
  int a = 1;
  int b = 0;
  int c = 0;
  int d = 1;

  bool swapsSides() const { return a == 0; }
  Extent sizeOf(const Extent& size) const { return swapsSides() ? Extent{size.second, size.first} : size; }
  int right(const Extent& size) const { return (a < 0 ? size.first : 0) + (c < 0 ? size.second : 0); }
  int down(const Extent& size) const { return (b < 0 ? size.first : 0) + (d < 0 ? size.second : 0); }
  /// Where the pixel is shown.
  Extent place(int x, int y, const Extent& size) const {
    const auto moved = [](int p, int q, int offset) { return (p + q + 2 * offset - 1) / 2; };
    return {moved(a * (2 * x + 1), c * (2 * y + 1), right(size)), moved(b * (2 * x + 1), d * (2 * y + 1), down(size))};
  }
  Turn then(const Turn& next) const {
    return {next.a * a + next.c * b, next.b * a + next.d * b, next.a * c + next.c * d, next.b * c + next.d * d};
  }
};

std::ostream& operator<<(std::ostream& stream, const Turn& turn) {
  return stream << "[" << turn.a << " " << turn.b << " " << turn.c << " " << turn.d << "]";
}

const std::vector<Turn> kEightTurns{{1, 0, 0, 1},  {0, 1, -1, 0}, {-1, 0, 0, -1}, {0, -1, 1, 0},
                                    {-1, 0, 0, 1}, {1, 0, 0, -1}, {0, 1, 1, 0},   {0, -1, -1, 0}};

/// Writes the matrix of the track header, the translation that brings the picture back to the origin included.
MovieBytes& turnTrack(MovieBytes& movie, const Turn& turn, const Extent& size) {
  constexpr std::size_t kMatrixInTrackHeader = 44;  // behind the type; of version 0
  const auto fixed = [](int value) { return bigEndian(static_cast<std::uint32_t>(value) << 16); };
  return movie.overwrite(movie.find("tkhd") + kMatrixInTrackHeader,
                         fixed(turn.a) + fixed(turn.b) + bigEndian(0) + fixed(turn.c) + fixed(turn.d) + bigEndian(0) +
                             fixed(turn.right(size)) + fixed(turn.down(size)) + bigEndian(0x40000000));
}

class Shapes : public ShapeMovies {
 protected:
  /// Every pixel of the stored picture stands where it belongs.
  void expectPlaces(const std::string& movie, const Turn& turn) {
    const Shot shot = shoot(movie, turn.sizeOf(kSize));
    EXPECT_EQ(shot.shown, std::vector<Extent>{turn.sizeOf(kSize)});
    int misplaced = 0;
    for (int y = 0; y < kSize.second; ++y) {
      for (int x = 0; x < kSize.first; ++x) {
        const auto [right, down] = turn.place(x, y, kSize);
        if (farthest(shot.at(right, down), placeColour(x, y)) > 0) ++misplaced;
      }
    }
    EXPECT_EQ(misplaced, 0) << "the upper left corner shows " << ::testing::PrintToString(shot.at(0, 0));
  }
};

TEST_F(Shapes, EightTurnsOfTheTrackHeader) {
  for (const auto& [name, options] : std::vector<std::pair<std::string, std::vector<std::string>>>{
           {"turned.mov", kPng}, {"turned.mp4", kLosslessRgb}}) {
    const MovieBytes movie(placesMovie(kSize, name, options));
    for (const Turn& turn : kEightTurns) {
      SCOPED_TRACE(::testing::Message() << name << " " << turn);
      MovieBytes turned = movie;
      expectPlaces(turnTrack(turned, turn, kSize).write(folder, "edited_" + name), turn);
    }
  }
}

TEST_F(Shapes, ATurnedPictureIsStretchedAfterItsTurn) {
  const std::string raw = rawPixels(kSize, [](int x, int y) { return cornerColour(x, y, kSize); });
  const MovieBytes movie(movieOf(raw, kSize, "corners.mov", kPng));
  constexpr Extent kOther{200, 300};
  for (const Turn& turn : kEightTurns) {
    SCOPED_TRACE(::testing::Message() << turn);
    MovieBytes turned = movie;
    const Shot shot = shoot(turnTrack(turned, turn, kSize).write(folder, "edited.mov"), kOther);
    EXPECT_EQ(shot.shown, std::vector<Extent>{turn.sizeOf(kSize)});
    for (const auto& [x, y] : {Extent{5, 5}, Extent{114, 5}, Extent{114, 74}, Extent{5, 74}}) {
      const auto [right, down] = turn.place(x, y, kSize);
      const auto [width, height] = turn.sizeOf(kSize);
      EXPECT_LE(
          farthest(shot.at(right * kOther.first / width, down * kOther.second / height), cornerColour(x, y, kSize)), 2)
          << x << ", " << y;
    }
  }
}

TEST_F(Shapes, TurnsThatTheStreamItselfTells) {
  // The display orientation message of H.264 (D.2.29): flipped first, then turned anticlockwise.
  const std::vector<Turn> quarters{{1, 0, 0, 1}, {0, -1, 1, 0}, {-1, 0, 0, -1}, {0, 1, -1, 0}};
  const std::vector<std::pair<std::string, Turn>> flips{
      {"", {1, 0, 0, 1}}, {":flip=horizontal", {-1, 0, 0, 1}}, {":flip=vertical", {1, 0, 0, -1}}};
  for (const auto& [flip, mirror] : flips) {
    for (std::size_t quarter = 0; quarter < quarters.size(); ++quarter) {
      const Turn turn = mirror.then(quarters[quarter]);
      const std::string filter =
          "h264_metadata=display_orientation=insert:rotate=" + std::to_string(90 * quarter) + flip;
      const std::string name = quarter % 2 == 0 ? "message.ts" : "message.mkv";
      SCOPED_TRACE(name + " " + filter);
      expectPlaces(placesMovie(kSize, name, kLosslessRgb + std::vector<std::string>{"-bsf:v", filter}), turn);
    }
  }
}

/// A clean aperture in halves, as recorders write it.
std::string clapOfHalves(int width, int height, int right, int down) {
  const auto half = [](int value) { return bigEndian(static_cast<std::uint32_t>(value)) + bigEndian(2); };
  return boxOf("clap", half(width) + half(height) + half(right) + half(down));
}

const std::vector<std::string> kPngEntry{"moov", "trak", "mdia", "minf", "stbl", "stsd", "png "};

struct Aperture {
  std::string box;
  int left;
  int top;
  Extent size;
};

TEST_F(Shapes, CleanAperturesWithOffsets) {
  MovieBytes movie(placesMovie(kSize, "clap.mov", kPng));
  movie.hide("clap");
  for (const Aperture& aperture :
       {Aperture{clapBox(100, 60), 10, 10, {100, 60}}, Aperture{clapBox(100, 60, 4, -2), 14, 8, {100, 60}},
        Aperture{clapBox(96, 60, -12, 10), 0, 20, {96, 60}},
        // An odd size needs an offset of a half to stand on pixels.
        Aperture{clapOfHalves(2 * 101, 2 * 61, 1, -1), 10, 9, {101, 61}},
        Aperture{clapOfHalves(2 * 91, 2 * 70, -19, 6), 5, 8, {91, 70}},
        // What lies beyond the picture is cut off; nonsense leaves it whole.
        Aperture{clapBox(100, 60, 20, 0), 30, 10, {90, 60}}, Aperture{clapBox(0, 60), 0, 0, kSize}}) {
    for (const Turn& turn : {kEightTurns[0], kEightTurns[1], kEightTurns[4]}) {
      SCOPED_TRACE(::testing::Message() << aperture.size.first << " x " << aperture.size.second << " at "
                                        << aperture.left << ", " << aperture.top << " " << turn);
      MovieBytes cut = movie;
      turnTrack(cut.append(kPngEntry, aperture.box), turn, kSize);
      const Extent size = turn.sizeOf(aperture.size);
      const Shot shot = shoot(cut.write(folder, "cut.mov"), size);
      EXPECT_EQ(shot.shown, std::vector<Extent>{size});
      int misplaced = 0;
      for (int y = 0; y < aperture.size.second; ++y) {
        for (int x = 0; x < aperture.size.first; ++x) {
          const auto [right, down] = turn.place(x, y, aperture.size);
          const Colour wanted = placeColour(aperture.left + x, aperture.top + y);
          if (farthest(shot.at(right, down), wanted) > 0) ++misplaced;
        }
      }
      EXPECT_EQ(misplaced, 0) << "the upper left corner shows " << ::testing::PrintToString(shot.at(0, 0));
    }
  }
}

/// The smallest rectangle around what is bright.
Extent brightExtent(const platform::Bitmap& raster) {
  int left = raster.width();
  int right = -1;
  int top = raster.height();
  int bottom = -1;
  for (int y = 0; y < raster.height(); ++y) {
    for (int x = 0; x < raster.width(); ++x) {
      if (raster.row(y)[4 * x + 1] < 120) continue;
      left = std::min(left, x);
      right = std::max(right, x);
      top = std::min(top, y);
      bottom = std::max(bottom, y);
    }
  }
  return {right - left + 1, bottom - top + 1};
}

/// A disc that is round when pixels are shown in this shape, on dark noise.
std::string discRaw(double aspect) {
  return rawPixels(kSize, [aspect](int x, int y) {
    const double right = (x + 0.5 - kSize.first / 2.0) * aspect;
    const double down = y + 0.5 - kSize.second / 2.0;
    // Pixels at the edge are as bright as the part of them that is covered.
    const double covered = std::clamp((30 - std::hypot(right, down)) / std::max(1.0, aspect) + 0.5, 0.0, 1.0);
    const int bright = static_cast<int>(std::lround(240 * covered));
    return Colour{bright, bright, std::max(bright, noiseAt(x, y) / 2)};
  });
}

struct PixelShape {
  std::uint32_t horizontal;
  std::uint32_t vertical;
  int width;  ///< of 120 pixels
};

TEST_F(Shapes, PixelAspectsMakeRoundDiscs) {
  for (const PixelShape& shape :
       {PixelShape{16, 15, 128}, PixelShape{4, 3, 160}, PixelShape{10, 11, 109}, PixelShape{1, 2, 60}}) {
    const double aspect = static_cast<double>(shape.horizontal) / shape.vertical;
    MovieBytes plain(movieOf(discRaw(aspect), kSize, "disc.mov", kPng));
    plain.hide("pasp").hide("clap").append(kPngEntry, paspBox(shape.horizontal, shape.vertical));
    for (const Turn& turn : {kEightTurns[0], kEightTurns[3]}) {
      SCOPED_TRACE(::testing::Message() << shape.horizontal << ":" << shape.vertical << " " << turn);
      MovieBytes movie = plain;
      const std::string path = turnTrack(movie, turn, kSize).write(folder, "round.mov");
      const Extent size = turn.sizeOf({shape.width, kSize.second});
      const Shot shot = shoot(path, size);
      EXPECT_EQ(shot.shown, std::vector<Extent>{size});
      const Extent disc = brightExtent(shot.raster());
      EXPECT_NEAR(disc.first, 60, 1);
      EXPECT_NEAR(disc.second, 60, 1);
    }
  }
  // The stream's own words, and those of Matroska.
  for (const std::string name : {"round.ts", "round.mkv", "round.mp4"}) {
    SCOPED_TRACE(name);
    const Shot shot =
        shoot(movieOf(discRaw(4.0 / 3), kSize, name, kLosslessRgb + std::vector<std::string>{"-vf", "setsar=4/3"}),
              {160, 80});
    EXPECT_EQ(shot.shown, (std::vector<Extent>{{160, 80}}));
    EXPECT_NEAR(brightExtent(shot.raster()).first, 60, 1);
  }
}

TEST_F(Shapes, ThreeApertureModesOfOneDisc) {
  MovieBytes bytes(movieOf(discRaw(4.0 / 3), kSize, "disc.mov", kPng));
  bytes.hide("pasp").hide("clap").append(kPngEntry, paspBox(4, 3) + clapBox(90, 70, 3, -1));
  const std::string path = turnTrack(bytes, kEightTurns[1], kSize).write(folder, "modes.mov");
  const auto movie = loaded(path);
  ASSERT_TRUE(movie);
  EXPECT_EQ(movie->naturalSize(), (platform::Size{120, 70}));
  const auto generator = movie->makeImageGenerator();
  ASSERT_TRUE(generator);
  generator->setAppliesPreferredTrackTransform(true);
  struct Wanted {
    ApertureMode mode;
    Extent size;
    Extent disc;
  };
  for (const Wanted& wanted : {Wanted{ApertureMode::cleanAperture, {70, 120}, {60, 60}},
                               Wanted{ApertureMode::productionAperture, {80, 160}, {60, 60}},
                               Wanted{ApertureMode::encodedPixels, {80, 120}, {60, 45}}}) {
    generator->setApertureMode(wanted.mode);
    const auto picture = generator->copyFrame(platform::MediaTime::zero()).picture;
    ASSERT_TRUE(picture);
    EXPECT_EQ(Extent(picture->width(), picture->height()), wanted.size);
    const auto raster = stretch(picture, wanted.size.first, wanted.size.second, true, 72);
    ASSERT_TRUE(raster);
    const Extent disc = brightExtent(*raster);
    EXPECT_NEAR(disc.first, wanted.disc.first, 1);
    EXPECT_NEAR(disc.second, wanted.disc.second, 1);
  }
}

}  // namespace
}  // namespace vistrelle::testing
