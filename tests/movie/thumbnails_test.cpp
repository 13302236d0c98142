#include "vistrelle/movie/thumbnails.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/dialogs/dialog.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using platform::FrameResult;
using platform::MediaTime;
using platform::MediaType;
using testing::FakeAsset;
using testing::FakeLibrary;
using testing::FakeTrack;
using testing::noisyPicture;
using testing::readFile;
using testing::RecordingLog;
using testing::ScratchFolder;
using testing::videoMovie;
using Lines = std::vector<std::string>;
using Timecodes = std::optional<std::vector<std::string>>;

constexpr std::int64_t kWidth = 96;
constexpr std::int64_t kHeight = 64;

class Thumbnails : public ::testing::Test {
 protected:
  ~Thumbnails() override {
    MYMOVIEset(nullptr);
    MYMOVIEpathSet(std::nullopt);
  }

  /// Makes `movie` what opens at "clip.mov" (or another name).
  void use(std::shared_ptr<FakeAsset> movie, const std::string& name = "clip.mov") {
    asset = std::move(movie);
    source = folder.write(name, "movie");
    library->movies[source] = asset;
  }
  bool run(const Timecodes& timecodes) { return Mirelund(source, destination, kWidth, kHeight, timecodes); }
  std::vector<double> asked() const {
    std::vector<double> seconds;
    for (const MediaTime& time : asset->record->asked) seconds.push_back(time.seconds());
    return seconds;
  }

  ScratchFolder folder;
  std::shared_ptr<FakeAsset> asset;
  std::string source;
  std::string destination = folder.file("out.jpg");
  std::shared_ptr<FakeLibrary> library = std::make_shared<FakeLibrary>();
  std::shared_ptr<testing::CountingClock> clock = std::make_shared<testing::CountingClock>();
  platform::Installed<platform::MediaLibrary> libraryInstalled{platform::mediaLibrary(), library};
  platform::Installed<platform::Clock> clockInstalled{platform::clock(), clock};
  RecordingLog record;
};

TEST_F(Thumbnails, FolderReceivesANumberedPictureForEachTimecode) {
  use(videoMovie(10));
  destination = folder.makeFolder("out");
  EXPECT_TRUE(run({{"1", "2", "3"}}));
  EXPECT_GT(fs::file_size(destination + "/img00.jpg"), 3000U);
  EXPECT_GT(fs::file_size(destination + "/img01.jpg"), 3000U);
  EXPECT_GT(fs::file_size(destination + "/img02.jpg"), 3000U);
  EXPECT_EQ(std::distance(fs::directory_iterator(destination), fs::directory_iterator()), 3);
  EXPECT_EQ(record.plain(), "steps          : 1\nsteps          : 2\nsteps          : 3\n");
  EXPECT_EQ(record.lines().front(), "Mirelund            - begin");
  EXPECT_TRUE(record.has("Mirelund            :-) end"));
  EXPECT_EQ(clock->sleeps, 0);
  EXPECT_EQ(clock->elapsed().count(), 0);
}

TEST_F(Thumbnails, NumbersHaveTwoDigitsAndThenThree) {
  use(videoMovie(10));
  destination = folder.makeFolder("out");
  EXPECT_TRUE(run(std::vector<std::string>(101, "1")));
  EXPECT_TRUE(fs::exists(destination + "/img09.jpg"));
  EXPECT_TRUE(fs::exists(destination + "/img99.jpg"));
  EXPECT_TRUE(fs::exists(destination + "/img100.jpg"));
}

TEST_F(Thumbnails, FileHoldsTheLastPicture) {
  use(videoMovie(10));
  EXPECT_TRUE(run({{"3"}}));
  const std::string alone = readFile(destination);
  EXPECT_TRUE(run({{"1", "2", "3"}}));
  EXPECT_EQ(readFile(destination), alone);
  EXPECT_TRUE(run({{"3", "2", "1"}}));
  EXPECT_NE(readFile(destination), alone);
}

TEST_F(Thumbnails, TimeBeyondTheEndBecomesTheStart) {
  use(videoMovie(10));
  EXPECT_TRUE(run({{"99", "00:00:10.5"}}));
  EXPECT_EQ(asked(), (std::vector<double>{0, 0}));
}

TEST_F(Thumbnails, BothEndsOfTheSpanAreInside) {
  use(videoMovie(10));
  EXPECT_TRUE(run({{"0", "10"}}));
  EXPECT_EQ(asked(), (std::vector<double>{0, 10}));
}

TEST_F(Thumbnails, EndIsCutToWholeSeconds) {
  use(videoMovie(10.9));
  EXPECT_TRUE(run({{"10.5", "10"}}));
  EXPECT_EQ(asked(), (std::vector<double>{0, 10}));
}

TEST_F(Thumbnails, TimesFallOnHalfSeconds) {
  use(videoMovie(20));
  EXPECT_TRUE(run({{"12.7", "12.4"}}));
  EXPECT_EQ(asked(), (std::vector<double>{12.5, 12}));
  EXPECT_EQ(asset->record->asked[0].value, 25);
  EXPECT_EQ(asset->record->asked[0].scale, 2);
}

TEST_F(Thumbnails, AllTimesAreAnnouncedBeforeTheFirstFrame) {
  use(videoMovie(10));
  auto atFirstFrame = std::make_shared<std::vector<double>>();
  asset->answer = [this, atFirstFrame](int n, const MediaTime& time) {
    if (n == 0) {
      for (const MediaTime& each : asset->record->announced) atFirstFrame->push_back(each.seconds());
    }
    return FrameResult{noisyPicture(96, 64), time, ""};
  };
  EXPECT_TRUE(run({{"7", "99", "1.6", "7"}}));
  EXPECT_EQ(*atFirstFrame, (std::vector<double>{7, 0, 1.5, 7}));
  EXPECT_EQ(asked(), *atFirstFrame);
}

TEST_F(Thumbnails, GeneratorIsMadeOnceTurnsPicturesAndGoes) {
  use(videoMovie(10));
  EXPECT_TRUE(run({{"1", "2", "3"}}));
  EXPECT_EQ(asset->record->made, 1);
  EXPECT_EQ(asset->record->destroyed, 1);
  EXPECT_TRUE(asset->record->appliesTransform);
  EXPECT_EQ(MYMOVIEget(), asset);
}

TEST_F(Thumbnails, EmptyListIsOnePictureAtTwoPercent) {
  use(videoMovie(100.7));
  EXPECT_TRUE(run(std::vector<std::string>()));
  EXPECT_EQ(asked(), std::vector<double>{2});
  EXPECT_TRUE(run(std::nullopt));
  EXPECT_EQ(asked(), (std::vector<double>{2, 2}));
  EXPECT_EQ(record.plain(), "steps          : 1\nsteps          : 1\n");
}

TEST_F(Thumbnails, EmptyListOfAMovieOfOneSecondIsItsStart) {
  use(videoMovie(1.4));
  RecordingLog verbose(true);
  EXPECT_TRUE(run(std::nullopt));
  EXPECT_TRUE(verbose.has("Mirelund incrementF…: 0.020"));
  EXPECT_TRUE(verbose.has("Mirelund dstTimeDou…: " + platform::description(Lines{"0.0"})));
  EXPECT_EQ(asked(), std::vector<double>{0});
}

TEST_F(Thumbnails, MpegNamesAreRefusedWhateverTheirCase) {
  for (const char* name : {"clip.MPG", "clip.mpg", "clip.Mpeg", "clip.mod", "clip.MOD"}) {
    use(videoMovie(10), name);
    record.clear();
    EXPECT_FALSE(run({{"1"}})) << name;
    EXPECT_EQ(record.lines().back(), "Mirelund            :-( mpeg!");
    EXPECT_FALSE(fs::exists(destination));
  }
}

TEST_F(Thumbnails, RefusalsLeaveTheDestinationUntouched) {
  folder.write("out.jpg", "precious");
  const auto refused = [this](const std::string& line) {
    record.clear();
    EXPECT_FALSE(run({{"1"}}));
    EXPECT_EQ(record.lines().back(), line);
    EXPECT_EQ(readFile(destination), "precious");
    EXPECT_EQ(record.plain(), "");
  };

  source = folder.write("text.mov", "movie");
  refused("movie not readable  :-( " + source);

  auto sound = videoMovie(10);
  sound->trackList = {std::make_shared<FakeTrack>(MediaType::audio), std::make_shared<FakeTrack>(MediaType::text)};
  use(sound, "sound.mov");
  refused("Mirelund            :-(  no usable track (v tracks=0/2) ");

  auto locked = videoMovie(10);
  locked->isProtected = true;
  use(locked, "locked.mov");
  refused("Mirelund            :-(  protected file (DRM=1)");

  auto empty = videoMovie(10);
  empty->trackList = {std::make_shared<FakeTrack>(MediaType::video)};
  empty->length = MediaTime::zero();
  use(empty, "empty.mov");
  refused("Mirelund      :-( end (invalid range)");

  auto blind = videoMovie(10);
  blind->answer = nullptr;
  use(blind, "blind.mov");
  refused("AVAssetImageGenerato:-( failed to create (blind.mov)");
}

TEST_F(Thumbnails, MovieThatLostItsTracksIsRefused) {
  use(videoMovie(10));
  ASSERT_TRUE(run({{"1"}}));
  asset->trackList.clear();
  EXPECT_FALSE(run({{"1"}}));
  EXPECT_EQ(record.lines().back(), "Mirelund            :-(  no usable track (v tracks=0/0) ");
}

TEST_F(Thumbnails, AbsentSourceFails) {
  EXPECT_FALSE(Mirelund(std::nullopt, destination, kWidth, kHeight, {{"1"}}));
  EXPECT_EQ(record.lines().back(), "movie no input      :-( nil");
}

TEST_F(Thumbnails, MovieThatIsNotPlayableOnlyDrawsAWarning) {
  auto movie = videoMovie(10);
  auto sound = std::make_shared<FakeTrack>(MediaType::audio, testing::rangeOf(0, 10));
  sound->decodable = false;
  movie->trackList.push_back(sound);
  movie->playable = false;
  use(movie);
  EXPECT_TRUE(run({{"1"}}));
  EXPECT_TRUE(record.has("Mirelund            :-/ isPlayable=0"));
}

TEST_F(Thumbnails, NoFrameAtAllFailsAndWritesNothing) {
  use(videoMovie(10));
  asset->answer = [](int, const MediaTime&) { return FrameResult{nullptr, {}, "cannot decode"}; };
  EXPECT_FALSE(run({{"1", "2"}}));
  EXPECT_EQ(record.count("Mirelund error      : (actualTime time=nan) cannot decode"), 2);
  EXPECT_TRUE(record.has("Mirelund            :-( end"));
  EXPECT_FALSE(fs::exists(destination));
  EXPECT_EQ(record.plain(), "steps          : 1\nsteps          : 2\n");
  EXPECT_FALSE(record.hasContaining("removed"));
}

TEST_F(Thumbnails, FrameErrorWithoutAReason) {
  use(videoMovie(10));
  asset->answer = [](int, const MediaTime&) { return FrameResult{nullptr, MediaTime::make(3, 2), ""}; };
  EXPECT_FALSE(run({{"1"}}));
  EXPECT_TRUE(record.has("Mirelund error      : (actualTime time=1.500) nil"));
}

TEST_F(Thumbnails, LastFrameThatFailsKeepsTheEarlierResult) {
  use(videoMovie(10));
  asset->answer = [](int n, const MediaTime& time) {
    return n == 2 ? FrameResult{nullptr, {}, "third"} : FrameResult{noisyPicture(96, 64), time, ""};
  };
  EXPECT_TRUE(run({{"1", "2", "3"}}));
  EXPECT_TRUE(record.has("Mirelund error      : (actualTime time=nan) third"));
  EXPECT_TRUE(record.has("Mirelund            :-/ no new picture, an older one stays : " + destination));
  EXPECT_GT(fs::file_size(destination), 3000U);
  EXPECT_EQ(record.plain(), "steps          : 1\nsteps          : 2\nsteps          : 3\n");
}

TEST_F(Thumbnails, OldDestinationOfSufficientSizePassesWhenNoFrameCame) {
  use(videoMovie(10));
  folder.write("out.jpg", std::string(5000, 'x'));
  asset->answer = [](int, const MediaTime&) { return FrameResult{}; };
  EXPECT_TRUE(run({{"1"}}));
  EXPECT_EQ(readFile(destination), std::string(5000, 'x'));
  EXPECT_TRUE(record.has("Mirelund            :-/ no new picture, an older one stays : " + destination));
}

TEST_F(Thumbnails, AFileThatALaterPictureReplacesIsNotCalledOld) {
  use(videoMovie(10));
  asset->answer = [](int n, const MediaTime& time) {
    return n == 1 ? FrameResult{nullptr, {}, "second"} : FrameResult{noisyPicture(96, 64), time, ""};
  };
  EXPECT_TRUE(run({{"1", "2", "3"}}));
  EXPECT_FALSE(record.hasContaining("an older one stays"));
}

TEST_F(Thumbnails, LastPictureThatCannotBeWrittenFailsTheRun) {
  use(videoMovie(10));
  folder.write("out.jpg", std::string(5000, 'x'));
  EXPECT_FALSE(Mirelund(source, destination, 0, 64, {{"1"}}));
  EXPECT_TRUE(record.has("Mirelund            :-( end"));
  EXPECT_FALSE(fs::exists(destination));
  EXPECT_TRUE(record.has("Mirelund            :-( failed run, file removed : " + destination));
}

TEST_F(Thumbnails, AbsurdSizesAreRefused) {
  use(videoMovie(10));
  for (const std::int64_t side : {std::int64_t{-5}, std::int64_t{0}, std::int64_t{2000000000}, INT64_MAX, INT64_MIN}) {
    EXPECT_FALSE(Mirelund(source, destination, side, side, {{"1"}})) << side;
    EXPECT_FALSE(fs::exists(destination));
  }
}

TEST_F(Thumbnails, TooSmallOutputIsRemoved) {
  use(videoMovie(10));
  EXPECT_FALSE(Mirelund(source, destination, 16, 12, {{"1"}}));
  EXPECT_TRUE(record.has("Mirelund            :-( end"));
  EXPECT_TRUE(record.has("Mirelund            :-( failed run, file removed : " + destination));
  EXPECT_FALSE(fs::exists(destination));
  EXPECT_FALSE(fs::exists(destination + ".jpg"));
}

TEST_F(Thumbnails, TooSmallOutputSurvivesAsideInVerboseMode) {
  use(videoMovie(10));
  folder.write("out.jpg.jpg", "old");
  RecordingLog verbose(true);
  EXPECT_FALSE(Mirelund(source, destination, 16, 12, {{"1"}}));
  EXPECT_TRUE(verbose.has("Mirelund            :-( end"));
  EXPECT_FALSE(fs::exists(destination));
  EXPECT_GT(fs::file_size(destination + ".jpg"), 500U);
  EXPECT_FALSE(verbose.hasContaining("failed run"));
}

TEST_F(Thumbnails, FailedRunIntoAFolderTakesTheFolderAndSaysSo) {
  use(videoMovie(10));
  destination = folder.makeFolder("a/b/out");
  folder.write("a/b/out/precious.txt", "precious");
  EXPECT_FALSE(Mirelund(source, destination, 0, 0, {{"1"}}));
  EXPECT_FALSE(fs::exists(destination));
  EXPECT_TRUE(record.has("Mirelund            :-( failed run, folder removed with all it held : " + destination));
}

TEST_F(Thumbnails, LaterPicturesDecideTheRun) {
  // The picture of the first timecode cannot be written, that of the second can.
  use(videoMovie(10));
  destination = folder.makeFolder("out");
  fs::create_directory(destination + "/img00.jpg");
  EXPECT_TRUE(run({{"1", "2"}}));
  EXPECT_TRUE(fs::exists(destination + "/img01.jpg"));
}

TEST_F(Thumbnails, VerboseLines) {
  use(videoMovie(10.9));
  auto subtitle = std::make_shared<FakeTrack>(MediaType::subtitle);
  auto sound = std::make_shared<FakeTrack>(MediaType::audio);
  subtitle->name = "<subtitle>";
  sound->name = "<sound>";
  asset->trackList.push_back(sound);
  asset->trackList.push_back(subtitle);
  RecordingLog verbose(true);
  EXPECT_TRUE(run({{"2.7", "99.5"}}));
  const TrackList visual{asset->trackList[0], subtitle};
  Lines own;
  for (const auto& line : verbose.lines()) {
    if (line.rfind("Mirelund", 0) == 0 || line.rfind("av…", 0) == 0 || line.rfind("#", 0) == 0 ||
        line.rfind("tracksWith", 0) == 0) {
      own.push_back(line);
    }
  }
  const std::string picture = noisyPicture(96, 64, 5)->description();
  const std::string picture2 = noisyPicture(96, 64, 0)->description();
  EXPECT_EQ(
      own,
      (Lines{"Mirelund            - begin", "tracksWithMediaCharacteristic : " + tracksDescription(visual),
             "#0 currTrack        : <track>", "Mirelund isSuccess     = 1", "Mirelund vRange     : from 0/3 -> to 10/1",
             "Mirelund dstTimeDou…: " + platform::description(Lines{"2.7", "99.5"}),
             "Mirelund currentDst…: " + destination + " (" + destination + ")", "Mirelund currTime   = 5/2 (2.700)",
             "av…isCurrTimeInRange:-)", "Mirelund actualTime = 2.500", "Mirelund img        : " + picture,
             "# 0 isSuccess       :-) " + destination,
             "Mirelund currentDst…: " + destination + " (" + destination + ")", "Mirelund currTime   = 199/2 (99.500)",
             "av…isCurrTimeInRange:-(", "Mirelund actualTime = 0.000", "Mirelund img        : " + picture2,
             "# 1 isSuccess       :-) " + destination, "Mirelund            :-) end"}));
}

TEST_F(Thumbnails, VerboseLinesOfThePictureFromTenOnAreAligned) {
  use(videoMovie(10));
  RecordingLog verbose(true);
  EXPECT_TRUE(run(std::vector<std::string>(11, "1")));
  EXPECT_TRUE(verbose.has("# 9 isSuccess       :-) " + destination));
  EXPECT_TRUE(verbose.has("#10 isSuccess       :-) " + destination));
}

TEST_F(Thumbnails, InvalidRangeSaysSoInVerboseMode) {
  auto empty = videoMovie(10);
  empty->trackList = {std::make_shared<FakeTrack>(MediaType::video)};
  empty->length = MediaTime::zero();
  use(empty);
  RecordingLog verbose(true);
  EXPECT_FALSE(run({{"1"}}));
  EXPECT_TRUE(verbose.has("Mirelund isSuccess     = 0"));
}

TEST_F(Thumbnails, QuietRunWritesNoDetail) {
  use(videoMovie(10));
  EXPECT_TRUE(run({{"1", "99"}}));
  for (const char* piece :
       {"currTime", "isCurrTimeInRange", "actualTime", "currentDst", "dstTimeDou", "vRange", "img  "}) {
    EXPECT_FALSE(record.hasContaining(piece)) << piece;
  }
}

TEST_F(Thumbnails, SpanThatStartsBeforeZeroIsTheFallbackStart) {
  auto movie = videoMovie(10);
  movie->trackList = {testing::videoTrack(-2, 12)};
  use(movie);
  EXPECT_TRUE(run({{"50"}}));
  // Start -6/3, end (-6 + 30) / 3 = 8.
  EXPECT_EQ(asked(), std::vector<double>{-2});
  EXPECT_TRUE(run({{"8", "8.5"}}));
  EXPECT_EQ(asked(), (std::vector<double>{-2, 8, -2}));
}

TEST_F(Thumbnails, MemoryOfEachPictureIsGivenBackBeforeTheNext) {
  use(videoMovie(10));
  auto pictures = std::make_shared<std::vector<std::weak_ptr<const platform::Picture>>>();
  asset->answer = [pictures](int, const MediaTime& time) {
    for (const auto& earlier : *pictures) EXPECT_TRUE(earlier.expired());
    auto picture = noisyPicture(96, 64);
    pictures->push_back(picture);
    return FrameResult{picture, time, ""};
  };
  EXPECT_TRUE(run({{"1", "2", "3"}}));
}

}  // namespace
}  // namespace vistrelle
