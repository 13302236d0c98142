#include "vistrelle/movieinfo/timing.h"

#include <cstdint>
#include <filesystem>

#include "tests/movieinfo/fake_movies.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using platform::MediaType;
using platform::ReaderStatus;
using testing::FakeAsset;
using testing::FakeTrack;
using testing::ReaderScript;
using testing::videoMovie;
using Texts = std::vector<std::string>;

constexpr std::int64_t kNothing = -12345;

class Timing : public testing::FakeMovies {
 protected:
  /// A movie with a video and a timecode track whose reader gives `samples` samples.
  std::shared_ptr<FakeAsset> timecodeMovie(std::size_t samples) {
    auto movie = videoMovie(5);
    movie->trackList.push_back(std::make_shared<FakeTrack>(MediaType::timecode));
    movie->reader = std::make_shared<ReaderScript>();
    movie->reader->samples.resize(samples, {.bytes = platform::Data(4), .presentation = {}, .duration = {}});
    return movie;
  }
  Texts endOf(const std::string& operation) const {
    return {"Error               : non-readable movie", operation, "----------"};
  }
  Texts lastLines(std::size_t count) const {
    const Texts lines = record().lines();
    return lines.size() < count ? lines : Texts(lines.end() - static_cast<std::ptrdiff_t>(count), lines.end());
  }
};

TEST_F(Timing, DurationOfAReadableMovie) {
  EXPECT_EQ(dureeMovie(add(videoMovie(90.5))), 90.5F);
  const Texts lines = record().lines();
  EXPECT_EQ(Texts(lines.begin(), lines.begin() + 2), (Texts{"----------", "qt dureeMovie       - begin"}));
  EXPECT_EQ(lastLines(2), (Texts{"qt dureeMovie       - end : 90.50", "----------"}));
  EXPECT_TRUE(MYMOVIEget());
}

TEST_F(Timing, DurationIsSinglePrecision) {
  EXPECT_EQ(dureeMovie(add(videoMovie(0.1))), 0.1F);
}

TEST_F(Timing, DurationOfAnUnreadableMovieIsZeroAndClearsTheSlot) {
  MYMOVIEset(videoMovie(1));
  EXPECT_EQ(dureeMovie(std::nullopt), 0.0F);
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_EQ(lastLines(3), endOf("qt dureeMovie       - end"));
  EXPECT_EQ(dureeMovie(addUnreadable()), 0.0F);
}

TEST_F(Timing, DurationVerboseLineHasOneBlankFewer) {
  const std::string path = add(videoMovie(1));
  beVerbose();
  dureeMovie(path);
  EXPECT_TRUE(record().has("srcPathStr         : " + path));
}

TEST_F(Timing, OffsetsAreNeverMeasured) {
  const std::string path = add(videoMovie(1));
  EXPECT_FALSE(qtOffsetMs(path).has_value());
  EXPECT_EQ(record().lines().front(), "qt qtOffsetMs       - begin");
  EXPECT_FALSE(record().hasContaining("qt qtOffsetMs       - end"));
  EXPECT_EQ(record().lines().back(), "MYMOVIEinstantiate  :-) fin");
}

TEST_F(Timing, OffsetsOfAnUnreadableMovie) {
  const auto movie = videoMovie(1);
  MYMOVIEset(movie);
  EXPECT_FALSE(qtOffsetMs(std::nullopt).has_value());
  EXPECT_EQ(lastLines(2),
            (Texts{"Error               : non-readable movie", "qt qtOffsetMs       - end \n----------"}));
  EXPECT_EQ(MYMOVIEget(), movie);  // left as the loader left it
  beVerbose();
  qtOffsetMs("/nothing");
  EXPECT_TRUE(record().has("srcPathStr          : /nothing"));
}

TEST_F(Timing, NoTimecodeTrack) {
  EXPECT_EQ(timecodeTrackSampleCount(add(videoMovie(5))), kNothing);
  EXPECT_EQ(lastLines(2), (Texts{"tracks : (\n    \"<track>\"\n)", "track : <track>"}));
}

TEST_F(Timing, OneTimecodeSample) {
  const auto movie = timecodeMovie(1);
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), 1);
  EXPECT_EQ(lastLines(5), (Texts{"tracks : (\n    \"<track>\",\n    \"<track>\"\n)", "track : <track>",
                                 "track : <track>", "AVMediaTypeTimecode…", "Processed 1 sample"}));
  EXPECT_EQ(movie->reader->outputs, (std::vector<std::shared_ptr<platform::Track>>{movie->trackList[1]}));
  EXPECT_EQ(movie->reader->cancellations, 0);
}

TEST_F(Timing, ManyTimecodeSamplesOfTheFirstTrackOnly) {
  const auto movie = timecodeMovie(250);
  movie->trackList.push_back(std::make_shared<FakeTrack>(MediaType::timecode));
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), 250);
  EXPECT_EQ(movie->reader->outputs.size(), 1U);
  EXPECT_EQ(movie->reader->outputs[0], movie->trackList[1]);
}

TEST_F(Timing, TimecodeTrackWithoutSamples) {
  EXPECT_EQ(timecodeTrackSampleCount(add(timecodeMovie(0))), kNothing);
  EXPECT_EQ(lastLines(2), (Texts{"No sample in the timecode track: (null)", "Processed 0 sample"}));
}

TEST_F(Timing, ReadingThatFailsKeepsTheCountAndIsCancelled) {
  const auto movie = timecodeMovie(3);
  movie->reader->ending = ReaderStatus::failed;
  movie->reader->error = "damaged";
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), 3);
  EXPECT_EQ(movie->reader->cancellations, 1);
  EXPECT_FALSE(record().hasContaining("No sample"));
}

TEST_F(Timing, ReadingThatFailsAtOnce) {
  const auto movie = timecodeMovie(0);
  movie->reader->ending = ReaderStatus::failed;
  movie->reader->error = "damaged";
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), kNothing);
  EXPECT_TRUE(record().has("No sample in the timecode track: damaged"));
  EXPECT_EQ(movie->reader->cancellations, 1);
}

TEST_F(Timing, ReadingThatDoesNotStart) {
  const auto movie = timecodeMovie(2);
  movie->reader->starts = false;
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), kNothing);
  EXPECT_EQ(movie->reader->cancellations, 1);
}

TEST_F(Timing, OutputThatIsRefused) {
  const auto movie = timecodeMovie(2);
  movie->reader->accepts = false;
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), kNothing);
  EXPECT_TRUE(movie->reader->outputs.empty());
}

TEST_F(Timing, MovieThatCannotBeReadAgain) {
  const auto movie = timecodeMovie(2);
  movie->reader = nullptr;
  EXPECT_EQ(timecodeTrackSampleCount(add(movie)), kNothing);
  EXPECT_TRUE(record().has("No sample in the timecode track: the movie cannot be read again"));
}

TEST_F(Timing, NothingToCountWithoutAMovie) {
  EXPECT_EQ(timecodeTrackSampleCount(std::nullopt), kNothing);
  EXPECT_EQ(timecodeTrackSampleCount(folder.file("absent.mov")), kNothing);
  EXPECT_TRUE(record().lines().empty());
  EXPECT_EQ(timecodeTrackSampleCount(addUnreadable()), kNothing);
}

TEST_F(Timing, InfosOfAReadableMovie) {
  auto movie = videoMovie(5);
  movie->info.common = {platform::Dictionary{{"title", "Été"}}};
  movie->info.formats = {"mdta"};
  movie->info.chapterLocales = {"fr", "en"};
  movie->info.lyrics = "la la";
  EXPECT_TRUE(movieInfosLog(add(movie)));
  EXPECT_EQ(record().lines()[1], "qt movieInfosLog    - begin");
  EXPECT_EQ(lastLines(6),
            (Texts{"commonMetadata           : (\n        {\n        title = \"\\U00c9t\\U00e9\";\n    }\n)",
                   "availableMetadataFormats : (\n    mdta\n)", "availableChapterLocales  : (\n    fr,\n    en\n)",
                   "lyrics                   : la la", "qt movieInfosLog    - end", "----------"}));
}

TEST_F(Timing, InfosOfAMovieThatSaysNothing) {
  const std::string path = add(videoMovie(5));
  beVerbose();
  EXPECT_TRUE(movieInfosLog(path));
  EXPECT_TRUE(record().has("srcPathStr          : " + path));
  EXPECT_TRUE(record().has("commonMetadata           : (\n)"));
  EXPECT_TRUE(record().has("lyrics                   : (null)"));
}

TEST_F(Timing, InfosOfAnUnreadableMovieClearTheSlot) {
  MYMOVIEset(videoMovie(1));
  EXPECT_FALSE(movieInfosLog(std::nullopt));
  EXPECT_FALSE(MYMOVIEget());
  EXPECT_EQ(lastLines(3), endOf("qt movieInfosLog    - end"));
}

TEST_F(Timing, OnlyThePlaceholderExtensionCanBeBig) {
  constexpr std::uintmax_t kMegabyte = 1024 * 1024;
  const auto sized = [this](const std::string& name, std::uintmax_t size) {
    const std::string path = folder.write(name, "");
    std::filesystem::resize_file(path, size);  // sparse
    return path;
  };
  EXPECT_FALSE(isBigFileOfListedType(sized("a.mov", 200 * kMegabyte)));
  EXPECT_TRUE(isBigFileOfListedType(sized("a.???", 200 * kMegabyte)));
  EXPECT_FALSE(isBigFileOfListedType(sized("b.???", 100 * kMegabyte)));
  EXPECT_TRUE(isBigFileOfListedType(sized("c.???", 100 * kMegabyte + 1)));
  EXPECT_FALSE(isBigFileOfListedType(sized("d.????", 200 * kMegabyte)));
  EXPECT_FALSE(isBigFileOfListedType(folder.file("absent.???")));
  EXPECT_FALSE(isBigFileOfListedType(std::nullopt));
}

}  // namespace
}  // namespace vistrelle
