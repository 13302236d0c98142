#include "vistrelle/movieinfo/geometry.h"

#include "tests/movieinfo/fake_movies.h"

namespace vistrelle {
namespace {

using platform::ApertureMode;
using platform::Dictionary;
using platform::FrameResult;
using platform::MediaTime;
using platform::MediaType;
using platform::Size;
using testing::codedTrack;
using testing::FakeAsset;
using testing::noisyPicture;
using testing::RecordingLog;
using Texts = std::vector<std::string>;

Texts ratios(std::int64_t dw, std::int64_t dh, std::int64_t ew, std::int64_t eh) {
  RecordingLog quiet;
  return qtDarPar(dw, dh, ew, eh);
}

TEST(DarPar, SquarePixels) {
  EXPECT_EQ(ratios(1920, 1080, 1920, 1080), (Texts{"16:9", "1:1"}));
  EXPECT_EQ(ratios(640, 480, 640, 480), (Texts{"4:3", "1:1"}));
  EXPECT_EQ(ratios(1920, 800, 1920, 800), (Texts{"12:5", "1:1"}));
}

TEST(DarPar, PicturesOf576Lines) {
  EXPECT_EQ(ratios(768, 576, 720, 576), (Texts{"4:3", "16:15"}));
  EXPECT_EQ(ratios(1024, 576, 720, 576), (Texts{"16:9", "64:45"}));
}

TEST(DarPar, PicturesOf480Lines) {
  EXPECT_EQ(ratios(640, 480, 720, 480), (Texts{"4:3", "8:9"}));
  EXPECT_EQ(ratios(853, 480, 720, 480), (Texts{"16:9", "32:27"}));
}

TEST(DarPar, PicturesOf1440Columns) {
  EXPECT_EQ(ratios(1920, 1080, 1440, 1080), (Texts{"16:9", "4:3"}));
}

TEST(DarPar, PixelsWithoutAName) {
  RecordingLog record;
  EXPECT_EQ(qtDarPar(1500, 1000, 1000, 1000), (Texts{"3:2", "3:2"}));
  EXPECT_TRUE(record.has("la_Array2 0         = (\n    3,\n    2\n)"));
  EXPECT_TRUE(record.has("modInt              = 500"));
  EXPECT_FALSE(record.hasContaining("la_Array2 1"));
  EXPECT_TRUE(record.has("parFloat            = 1.000000"));
}

TEST(DarPar, LargeTermsAreDividedByTheSubMultiple) {
  // 1.499 in thousandths has no common factor with 1000 but 1: all terms stay as they are.
  RecordingLog record;
  const Texts answer = qtDarPar(1499, 1000, 1000, 1000);
  EXPECT_EQ(answer[0], "1499:1000");
  EXPECT_EQ(answer[1], "1499:1000");
  EXPECT_TRUE(record.has("la_Array2 1         = (\n    1499,\n    1000\n)"));
}

TEST(DarPar, TheSubMultipleShrinksTermsAboveThreeTimesItself) {
  RecordingLog record;
  EXPECT_EQ(qtDarPar(1498, 1000, 1000, 1000), (Texts{"749:500", "187:125"}));
  EXPECT_TRUE(record.has("la_Array2 0         = (\n    749,\n    500\n)"));
  EXPECT_TRUE(record.has("modInt              = 2"));
  EXPECT_TRUE(record.has("la_Array2 1         = (\n    187,\n    125\n)"));
}

TEST(DarPar, BothTermsMustExceedThreeTimesTheSubMultiple) {
  RecordingLog record;
  // Of 17:10 only the first exceeds 15.
  EXPECT_EQ(qtDarPar(1700, 1000, 1000, 1000), (Texts{"17:10", "17:10"}));
  EXPECT_TRUE(record.has("modInt              = 5"));
  EXPECT_FALSE(record.hasContaining("la_Array2 1"));
}

TEST(DarPar, TheDistanceToTheUsualRatiosIsSinglePrecision) {
  // Rounded to single precision these lie nearer than the limit; in double precision they do not.
  EXPECT_EQ(ratios(1350, 1000, 1350, 1000)[0], "4:3");
  EXPECT_EQ(ratios(1750, 1000, 1750, 1000)[0], "16:9");
  EXPECT_EQ(ratios(1370, 1000, 1000, 1000)[0], "4:3");
}

TEST(DarPar, TheDistanceToNamedPixelsIsDoublePrecision) {
  // Single precision would take the first for 16:15 and the second for no name.
  EXPECT_EQ(ratios(800, 500, 740, 500)[1], "1081:1000");
  EXPECT_EQ(ratios(280, 500, 220, 500)[1], "4:3");
  // The limit is 0.02 in single precision: a hair less than 0.02.
  EXPECT_EQ(ratios(344, 375, 315, 375)[1], "136:125");
}

TEST(DarPar, UnknownStoredSizeCountsAsSquare) {
  RecordingLog record;
  EXPECT_EQ(qtDarPar(1024, 576, 1, 1), (Texts{"16:9", "1:1"}));
  EXPECT_TRUE(record.has("PAR                 : pas encore déterminable…"));
  EXPECT_EQ(ratios(1920, 800, 1, 1), (Texts{"12:5", "1:1"}));
  // One side alone is a size like any other.
  EXPECT_EQ(ratios(4, 3, 1, 2)[0], "4:3");
  EXPECT_NE(ratios(4, 3, 1, 2)[1], "1:1");
}

TEST(DarPar, FourThirdsReachesFurtherWithoutSquarePixels) {
  EXPECT_EQ(ratios(1360, 1000, 1000, 1000)[0], "4:3");
  EXPECT_EQ(ratios(1360, 1000, 1360, 1000)[0], "34:25");
  EXPECT_EQ(ratios(1375, 1000, 1000, 1000)[0], "11:8");
}

TEST(DarPar, TheUsualRatiosAreDecimals) {
  // Within 0.02 of 1.77, and of 1.78 only by a hair.
  EXPECT_EQ(ratios(1751, 1000, 1751, 1000)[0], "16:9");
  EXPECT_EQ(ratios(1795, 1000, 1795, 1000)[0], "359:200");
  EXPECT_EQ(ratios(1311, 1000, 1311, 1000)[0], "4:3");
}

TEST(DarPar, Lines) {
  RecordingLog record(true);
  qtDarPar(768, 576, 720, 576);
  EXPECT_EQ(record.lines(),
            (Texts{"qt DAR PAR          - begin", "Sizes Displayed     : 768x576 vs Encoded 720x576",
                   "Ratio Displayed     : 1.33 vs Encoded 1.25", "anamorphous pixels", "DAR (tmp)           : 4:3",
                   "DAR                 : 4:3", "PAR                 : 16:15", "qt DAR PAR          - end"}));
}

TEST(DarPar, QuietLinesOfSquarePixels) {
  RecordingLog record;
  qtDarPar(1920, 1080, 1920, 1080);
  EXPECT_EQ(record.lines(),
            (Texts{"qt DAR PAR          - begin", "Sizes Displayed     : 1920x1080 vs Encoded 1920x1080",
                   "Ratio Displayed     : 1.78 vs Encoded 1.78", "square pixels", "DAR                 : 16:9",
                   "PAR                 : 1:1", "qt DAR PAR          - end"}));
}

TEST(DarPar, ImpossibleSizesDoNotEndTheProcess) {
  EXPECT_EQ(ratios(0, 0, 0, 0).size(), 2U);
  EXPECT_EQ(ratios(16, 9, 0, 9).size(), 2U);
  EXPECT_EQ(ratios(16, 0, 16, 9).size(), 2U);
}

TEST(DarPar, AsDictionary) {
  RecordingLog record;
  EXPECT_EQ(qtDarParDico(1024, 576, 720, 576), (Dictionary{{"v0_dar", "16:9"}, {"v0_par", "64:45"}}));
}

/// Sizes that the three modes answer with; an error ends the list.
struct Answers {
  std::vector<std::pair<int, int>> sizes;
  std::string error = "no frame";
};

class Geometry : public testing::FakeMovies {
 protected:
  /// A movie with a video track of natural size 1024.9 x 576 whose generator gives these answers.
  std::shared_ptr<FakeAsset> movieOf(Answers answers) {
    auto movie = std::make_shared<FakeAsset>();
    const auto track = codedTrack(MediaType::video, {"dvcp"});
    track->size = {1024.9, 576};
    movie->trackList = {track};
    movie->answer = [answers](int request, const MediaTime& time) -> FrameResult {
      const auto index = static_cast<std::size_t>(request);
      if (index >= answers.sizes.size()) return {nullptr, MediaTime::invalid(), answers.error};
      const auto [width, height] = answers.sizes[index];
      if (width == 0) return {nullptr, time, ""};
      return {noisyPicture(width, height), time, ""};
    };
    return movie;
  }
};

TEST_F(Geometry, MeasuresTheThreeApertures) {
  const auto movie = movieOf({{{1024, 576}, {1050, 576}, {720, 576}}});
  EXPECT_EQ(movieSize(add(movie)), (Dictionary{{"w_width", 1024},
                                               {"w_height", 576},
                                               {"v0_width", 720},
                                               {"v0_height", 576},
                                               {"v0_dar", "16:9"},
                                               {"v0_par", "64:45"}}));
  EXPECT_TRUE(movie->record->appliesTransform);
  EXPECT_EQ(movie->record->modes,
            (std::vector<ApertureMode>{ApertureMode::cleanAperture, ApertureMode::productionAperture,
                                       ApertureMode::encodedPixels}));
  EXPECT_EQ(movie->record->asked, (std::vector<MediaTime>{MediaTime::zero(), MediaTime::zero(), MediaTime::zero()}));
  // All three askings are announced, so that one frame serves them.
  EXPECT_EQ(movie->record->announced, movie->record->asked);
  EXPECT_EQ(movie->record->destroyed, 1);
  EXPECT_TRUE(record().has("movieSizes natural  : 1025 * 576"));
  EXPECT_TRUE(record().has("movieSizes clean    : 1024 * 576"));
  EXPECT_TRUE(record().has("movieSizes productio: 1050 * 576"));
  EXPECT_TRUE(record().has("movieSizes pixels   : 720 * 576"));
  EXPECT_TRUE(record().hasContaining("movieSizes md : {\n    \"v0_dar\" = \"16:9\";"));
}

TEST_F(Geometry, FailureInTheCleanModeLeavesTheNaturalSize) {
  const auto movie = movieOf({{}});
  EXPECT_EQ(movieSize(add(movie)), (Dictionary{{"w_width", 1024}, {"w_height", 576}}));
  EXPECT_EQ(linesFrom("movieSizes natural  : 1025 * 576"),
            (Texts{"movieSizes natural  : 1025 * 576", "movieSizes aperture :-( no frame"}));
  EXPECT_EQ(movie->record->asked.size(), 1U);
}

TEST_F(Geometry, FailureInTheLastModeLeavesNoPictureSizeEither) {
  EXPECT_EQ(movieSize(add(movieOf({{{1024, 576}, {1050, 576}}}))), (Dictionary{{"w_width", 1024}, {"w_height", 576}}));
  EXPECT_TRUE(record().has("movieSizes productio: 1050 * 576"));
  EXPECT_TRUE(record().has("movieSizes aperture :-( no frame"));
  EXPECT_FALSE(record().hasContaining("movieSizes md"));
}

TEST_F(Geometry, AnErrorThatComesWithAPictureStopsTheMeasuring) {
  auto movie = movieOf({{}});
  movie->answer = [](int, const MediaTime& time) { return FrameResult{noisyPicture(9, 9), time, "damaged"}; };
  EXPECT_EQ(movieSize(add(movie))->size(), 2U);
  EXPECT_EQ(movie->record->asked.size(), 1U);
  EXPECT_TRUE(record().has("movieSizes aperture :-( damaged"));
}

TEST_F(Geometry, NoCleanSizeMeansNoRatios) {
  EXPECT_EQ(movieSize(add(movieOf({{{0, 0}, {720, 576}, {720, 576}}}))),
            (Dictionary{{"w_width", 1024}, {"w_height", 576}, {"v0_width", 720}, {"v0_height", 576}}));
  EXPECT_TRUE(record().has("movieSizes clean    : 0 * 0"));
  EXPECT_TRUE(record().hasContaining("movieSizes md : "));
}

TEST_F(Geometry, NothingWhenTheMovieCannotBeLoaded) {
  EXPECT_FALSE(movieSize(addUnreadable()).has_value());
  EXPECT_EQ(record().lines().front(), "movieSize           - begin");
  EXPECT_FALSE(movieSize(std::nullopt).has_value());
}

TEST_F(Geometry, NothingWithoutAVideoTrack) {
  EXPECT_FALSE(movieSize(add({codedTrack(MediaType::audio, {"mp4a"})})).has_value());
  EXPECT_FALSE(record().hasContaining("movieSizes"));
}

TEST_F(Geometry, NothingWithoutAGenerator) {
  auto movie = movieOf({{}});
  movie->answer = nullptr;
  EXPECT_FALSE(movieSize(add(movie, "clip one.mov")).has_value());
  EXPECT_EQ(record().lines().back(), "AVAssetImageGenerato:-( failed to create (clip one.mov)");
}

TEST_F(Geometry, NothingWithoutAnySize) {
  auto movie = movieOf({{}});
  movie->size = Size{};
  EXPECT_FALSE(movieSize(add(movie)).has_value());
  movie->size = Size{0, 7};
  EXPECT_EQ(movieSize(MYMOVIEpathGet()), (Dictionary{{"w_height", 7}}));
}

TEST_F(Geometry, VerboseLines) {
  auto movie = movieOf({{}});
  movie->trackList.push_back(codedTrack(MediaType::audio, {"mp4a"}));
  movie->isProtected = true;
  const std::string path = add(movie);
  beVerbose();
  movieSize(path);
  EXPECT_EQ(
      linesFrom("movieSizes natural  : 1025 * 576"),
      (Texts{"movieSizes natural  : 1025 * 576", "        input infos : (isPlayable=1 DRM=1) (\n    \"<track>\"\n)",
             "…initWithAsset", "movieSizes aperture :-( no frame"}));
}

TEST_F(Geometry, ApertureSizeAsksThreeTimes) {
  const auto movie = movieOf({{{1024, 576}, {0, 0}, {1000, 500}}});
  EXPECT_EQ(movieApertureSize(movie), (Size{1000, 500}));
  EXPECT_EQ(record().lines(),
            (Texts{"-1 w * h: 1025 * 576", "#0 w * h: 1024 * 576", "#1 w * h: 1024 * 576", "#2 w * h: 1000 * 500"}));
  EXPECT_EQ(movie->record->modes, std::vector<ApertureMode>{ApertureMode::cleanAperture});
  EXPECT_TRUE(movie->record->appliesTransform);
}

TEST_F(Geometry, ApertureSizeKeepsWhatWasMeasuredBeforeAnError) {
  EXPECT_EQ(movieApertureSize(movieOf({{{1024, 576}}})), (Size{1024, 576}));
  EXPECT_EQ(record().lines(),
            (Texts{"-1 w * h: 1025 * 576", "#0 w * h: 1024 * 576", "aperture error      : no frame"}));
}

TEST_F(Geometry, ApertureSizeIsZeroWithoutPictures) {
  EXPECT_EQ(movieApertureSize(nullptr), Size{});
  auto sound = std::make_shared<FakeAsset>();
  sound->trackList = {codedTrack(MediaType::audio, {"mp4a"})};
  EXPECT_EQ(movieApertureSize(sound), Size{});
  EXPECT_TRUE(record().lines().empty());
  auto movie = movieOf({{}});
  movie->answer = nullptr;
  EXPECT_EQ(movieApertureSize(movie), Size{});
  EXPECT_EQ(record().lines().back(), "AVAssetImageGenerato:-( failed to create from asset");
}

}  // namespace
}  // namespace vistrelle
