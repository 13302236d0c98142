#include "vistrelle/cli/entry.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>

#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/loader.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using platform::MediaTime;
using testing::FakeAsset;
using testing::FakeLibrary;
using testing::readFile;
using testing::RecordingLog;
using testing::ScratchFolder;

const std::string kBanner =
    "-----------------------------------\n"
    "  Vistrelle v1.4(3845) - 2015  \n"
    "     by the Vistrelle developers     \n"
    "-----------------------------------\n"
    "\n";

class Entry : public ::testing::Test {
 protected:
  Entry() {
    library->movies[movie] = asset;
    asset->answer = [this](int, const MediaTime& time) {
      return platform::FrameResult{testing::noisyPicture(96, 64, static_cast<std::uint32_t>(time.value)), time, ""};
    };
  }
  ~Entry() override {
    setVerbose(false);
    MYMOVIEset(nullptr);
    MYMOVIEpathSet(std::nullopt);
  }

  int run(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"vistrelle"};
    for (const auto& argument : arguments) argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    return vistrelleMain(static_cast<int>(argv.size()) - 1, argv.data());
  }
  /// Plain text after the banner.
  std::string words() const {
    const std::string all = record.plain();
    EXPECT_EQ(all.rfind(kBanner, 0), 0U);
    return all.substr(std::min(all.size(), kBanner.size()));
  }
  std::vector<double> asked() const {
    std::vector<double> seconds;
    for (const MediaTime& time : asset->record->asked) seconds.push_back(time.seconds());
    return seconds;
  }

  ScratchFolder folder;
  std::string movie = folder.write("movie.mov", "movie");
  std::string out = folder.file("out.jpg");
  std::shared_ptr<FakeAsset> asset = testing::videoMovie(200);
  std::shared_ptr<FakeLibrary> library = std::make_shared<FakeLibrary>();
  std::shared_ptr<testing::CountingClock> clock = std::make_shared<testing::CountingClock>();
  platform::Installed<platform::MediaLibrary> libraryInstalled{platform::mediaLibrary(), library};
  platform::Installed<platform::Clock> clockInstalled{platform::clock(), clock};
  RecordingLog record;
};

TEST_F(Entry, BannerAndPlainPrinter) {
  EXPECT_EQ(bannerPrint(), 1);
  EXPECT_EQ(record.plain(), kBanner);
  record.clear();
  EXPECT_EQ(stderrPrint("100 % {} %s\n"), 1);
  EXPECT_EQ(record.plain(), "100 % {} %s\n");
}

TEST_F(Entry, NoArgumentsAtAll) {
  EXPECT_EQ(run({}), 1);
  EXPECT_EQ(words(), "Error          : srcPathStr file doesn't exist (Exit)\n");
  const char* const nothing[] = {nullptr};
  EXPECT_EQ(vistrelleMain(0, nothing), 1);
}

TEST_F(Entry, SuccessfulRun) {
  EXPECT_EQ(run({"-i", movie, "-o", out, "-w", "96", "-h", "64", "-tc", "5"}), 0);
  EXPECT_EQ(words(), "steps          : 1\n");
  EXPECT_EQ(record.lines().back(), "isSuccess           ? 1");
  EXPECT_GT(fs::file_size(out), 3000U);
  EXPECT_EQ(clock->sleeps, 0);
  EXPECT_EQ(clock->elapsed().count(), 0);
}

TEST_F(Entry, FailedRun) {
  EXPECT_EQ(run({"-i", movie, "-o", out, "-w", "0", "-tc", "5"}), 1);
  EXPECT_EQ(record.lines().back(), "isSuccess           ? 0");
}

TEST_F(Entry, MissingSource) {
  EXPECT_EQ(run({"-i", folder.file("missing.mov"), "-tc", "5"}), 1);
  EXPECT_EQ(words(), "Error          : srcPathStr file doesn't exist (Exit)\n");
  EXPECT_TRUE(record.lines().empty());
}

TEST_F(Entry, TildeOfTheSourceIsNotExpanded) {
  EXPECT_EQ(run({"-i", "~", "-tc", "5"}), 1);
  EXPECT_EQ(words(), "Error          : srcPathStr file doesn't exist (Exit)\n");
}

TEST_F(Entry, DestinationIsDerivedFromTheSource) {
  EXPECT_EQ(run({"-i", movie, "-tc", "5", "-w", "96", "-h", "64"}), 0);
  EXPECT_EQ(words(), "dst auto           : " + movie + ".jpg\nsteps          : 1\n");
  EXPECT_GT(fs::file_size(movie + ".jpg"), 3000U);
  record.clear();
  EXPECT_EQ(run({"-i", movie, "-tc", "5"}), 1);
  EXPECT_EQ(words(), "dst auto           : " + movie + ".jpg\nError          : dst file already exists (Exit)\n");
  record.clear();
  EXPECT_EQ(run({"-i", movie, "-tc", "5", "-y"}), 0);
}

TEST_F(Entry, ExistingDestinationIsRefusedWithoutY) {
  folder.write("out.jpg", "precious");
  EXPECT_EQ(run({"-i", movie, "-o", out, "-tc", "5"}), 1);
  EXPECT_EQ(words(), "Error          : dst file already exists (Exit)\n");
  EXPECT_EQ(readFile(out), "precious");
}

TEST_F(Entry, ExistingFolderNeedsNoY) {
  const std::string pictures = folder.makeFolder("pictures");
  EXPECT_EQ(run({"-i", movie, "-o", pictures, "-w", "96", "-h", "64", "-tc", "5-6"}), 0);
  EXPECT_TRUE(fs::exists(pictures + "/img00.jpg"));
  EXPECT_TRUE(fs::exists(pictures + "/img01.jpg"));
}

TEST_F(Entry, LinkToAFileIsProtectedAndADanglingLinkIsNot) {
  const std::string precious = folder.write("precious", "precious");
  fs::create_symlink(precious, out);
  EXPECT_EQ(run({"-i", movie, "-o", out, "-tc", "5"}), 1);
  EXPECT_EQ(words(), "Error          : dst file already exists (Exit)\n");
  fs::remove(out);
  fs::create_symlink(folder.file("target.jpg"), out);
  EXPECT_EQ(run({"-i", movie, "-o", out, "-w", "96", "-h", "64", "-tc", "5"}), 0);
  EXPECT_TRUE(fs::is_symlink(out));
  EXPECT_GT(fs::file_size(folder.file("target.jpg")), 3000U);
}

TEST_F(Entry, DestinationEqualToTheSource) {
  EXPECT_EQ(run({"-i", movie, "-o", movie, "-tc", "5"}), 1);
  EXPECT_EQ(words(), "Error          : dst file already exists (Exit)\n");
  record.clear();
  EXPECT_EQ(run({"-i", movie, "-o", movie, "-tc", "5", "-y"}), 1);
  EXPECT_EQ(words(), "Error          : srcPathStr = dstPathStr (Exit)\n");
  EXPECT_EQ(readFile(movie), "movie");
}

TEST_F(Entry, NoTimecode) {
  EXPECT_EQ(run({"-i", movie, "-o", out}), 1);
  EXPECT_EQ(words(), "Error          : no timecode (Exit)\n");
}

TEST_F(Entry, WidthAndHeightAreLeadingIntegers) {
  const auto sizes = [this](const std::string& width, const std::string& height) {
    record.clear();
    return run({"-i", movie, "-o", out, "-y", "-w", width, "-h", height, "-tc", "5"});
  };
  EXPECT_EQ(sizes("96px", " +64.9"), 0);
  const auto picture = platform::Picture::load(out);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->width(), 96);
  EXPECT_EQ(picture->height(), 64);
  EXPECT_EQ(sizes("abc", "64"), 1);
  EXPECT_EQ(sizes("-96", "64"), 1);
  EXPECT_EQ(sizes("", "64"), 1);
  // Saturated, not wrapped round to a small size.
  EXPECT_EQ(sizes("4294967392", "64"), 1);
  EXPECT_EQ(sizes("99999999999999999999999999", "64"), 1);
}

TEST_F(Entry, DefaultSizeIs1280By960) {
  EXPECT_EQ(run({"-i", movie, "-o", out, "-tc", "5"}), 0);
  const auto picture = platform::Picture::load(out);
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->width(), 1280);
  EXPECT_EQ(picture->height(), 960);
}

TEST_F(Entry, TimecodesAreSplitAtEveryDash) {
  EXPECT_EQ(run({"-i", movie, "-o", out, "-tc", "12.5-1:00-00:01:30"}), 0);
  EXPECT_EQ(asked(), (std::vector<double>{12.5, 0, 90}));
}

TEST_F(Entry, EmptyPiecesCount) {
  EXPECT_EQ(run({"-i", movie, "-o", out, "-tc", "10--20"}), 0);
  EXPECT_EQ(asked(), (std::vector<double>{10, 0, 20}));
  asset->record->asked.clear();
  EXPECT_EQ(run({"-i", movie, "-o", out, "-y", "-tc", ""}), 0);
  EXPECT_EQ(asked(), std::vector<double>{0});
  asset->record->asked.clear();
  EXPECT_EQ(run({"-i", movie, "-o", out, "-y", "-tc", "-5"}), 0);
  EXPECT_EQ(asked(), (std::vector<double>{0, 5}));
}

TEST_F(Entry, LastListCounts) {
  EXPECT_EQ(run({"-tc", "1-2", "-i", movie, "-o", out, "-tc", "3"}), 0);
  EXPECT_EQ(asked(), std::vector<double>{3});
}

TEST_F(Entry, UnknownWordsAreSkipped) {
  EXPECT_EQ(run({"-x", "5", "stray", "-I", "-i", movie, "--", "-o", out, "-tc", "3"}), 0);
}

TEST_F(Entry, ValueMayLookLikeAnOption) {
  EXPECT_EQ(run({"-i", "-v", "-tc", "5"}), 1);
  EXPECT_FALSE(isVerbose());
  EXPECT_EQ(words(), "Error          : srcPathStr file doesn't exist (Exit)\n");
}

TEST_F(Entry, OptionWithoutItsValueIsARangeErrorAfterTheBanner) {
  for (const char* option : {"-i", "-w", "-h", "-tc", "-o"}) {
    record.clear();
    EXPECT_THROW(run({option}), std::out_of_range) << option;
    EXPECT_EQ(record.plain(), kBanner);
  }
}

TEST_F(Entry, VerboseNamesBothPathsAsGiven) {
  EXPECT_EQ(run({"-v", "-i", movie}), 1);
  EXPECT_TRUE(isVerbose());
  EXPECT_EQ(words(), "input          : " + movie + "\noutput         : (null)\ndst auto           : " + movie +
                         ".jpg\nError          : no timecode (Exit)\n");
  record.clear();
  EXPECT_EQ(run({"-v"}), 1);
  EXPECT_EQ(
      words(),
      "input          : (null)\noutput         : (null)\nError          : srcPathStr file doesn't exist (Exit)\n");
  record.clear();
  EXPECT_EQ(run({"-v", "-i", "a", "-o", "b"}), 1);
  EXPECT_EQ(words(), "input          : a\noutput         : b\nError          : srcPathStr file doesn't exist (Exit)\n");
}

TEST_F(Entry, ChecksComeInTheirOrder) {
  // Everything is wrong: the source is reported; then the destination; then the equality; then the list.
  EXPECT_EQ(run({"-i", folder.file("missing"), "-o", movie}), 1);
  EXPECT_EQ(words(), "Error          : srcPathStr file doesn't exist (Exit)\n");
  record.clear();
  EXPECT_EQ(run({"-i", movie, "-o", movie}), 1);
  EXPECT_EQ(words(), "Error          : dst file already exists (Exit)\n");
  record.clear();
  EXPECT_EQ(run({"-i", movie, "-o", movie, "-y"}), 1);
  EXPECT_EQ(words(), "Error          : srcPathStr = dstPathStr (Exit)\n");
}

TEST_F(Entry, ArgumentsAreBytes) {
  const std::string odd = folder.write("a b'%s\xFF\n\"é.mov", "movie");
  library->movies[odd] = asset;
  EXPECT_EQ(run({"-i", odd, "-tc", "5"}), 0);
  EXPECT_EQ(words(), "dst auto           : " + odd + ".jpg\nsteps          : 1\n");
  EXPECT_TRUE(fs::exists(odd + ".jpg"));
}

TEST_F(Entry, LoadingThatNeverEndsFailsTheRun) {
  const auto stalled = std::make_shared<FakeAsset>();
  stalled->loadsAtOnce = false;
  library->movies[movie] = stalled;
  EXPECT_EQ(run({"-i", movie, "-o", out, "-tc", "5"}), 1);
  EXPECT_EQ(record.lines().back(), "isSuccess           ? 0");
  EXPECT_GE(stalled->cancellations, 1);
  EXPECT_LT(clock->elapsed(), std::chrono::seconds(21));
}

}  // namespace
}  // namespace vistrelle
