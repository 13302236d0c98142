#include "vistrelle/movieedit/probe.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "tests/movieedit/edit_fixture.h"
#include "tests/support/child.h"
#include "tests/support/clips.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/system/commands.h"

namespace vistrelle {
namespace {

using platform::OptionalText;
using testing::RecordingLog;
using testing::ScratchFolder;
using Lines = std::vector<std::string>;

/// Real movies; a temporary folder of the test's own.
class Probe : public ::testing::Test {
 protected:
  Probe() {
    clearSlots();
    tmpFolderSet(folder.file("private"));
  }
  ~Probe() override {
    clearSlots();
    tmpFolderSet("");
  }
  static void clearSlots() {
    MYMOVIEset(nullptr);
    MYMOVIEpathSet(std::nullopt);
  }
  std::string probeFile() const { return folder.file("private/av-qt_compliant.jpg"); }
  std::string copied(const std::string& sample, const std::string& name) const {
    const std::string path = folder.file(name);
    std::filesystem::copy_file(testing::sampleMovie(sample), path);
    return path;
  }

  ScratchFolder folder;
};

TEST_F(Probe, ADecodableMovieIsFoundAndNothingLeftBehind) {
  const RecordingLog record;
  const std::string movie = testing::sampleMovie("v1.mp4");
  EXPECT_TRUE(qtDecodingProbe(movie));
  EXPECT_EQ(record.lines().back(), "isQtDecodingAvailabl:-) '" + movie + "'");
  EXPECT_TRUE(std::filesystem::exists(folder.file("private")));
  EXPECT_TRUE(std::filesystem::is_empty(folder.file("private")));
}

TEST_F(Probe, WhatCannotBeDecodedLeavesNothingEither) {
  const RecordingLog record;
  const std::string noMovie = folder.write("text.mov", "no movie");
  // An old probe file does not pass for a new one.
  folder.write("private/av-qt_compliant.jpg", std::string(5000, 'x'));
  EXPECT_FALSE(qtDecodingProbe(noMovie));
  EXPECT_EQ(record.lines().back(), "isQtDecodingAvailabl:-( '" + noMovie + "'");
  EXPECT_FALSE(std::filesystem::exists(probeFile()));
  EXPECT_FALSE(qtDecodingProbe(folder.file("none.mov")));
  EXPECT_FALSE(qtDecodingProbe(testing::soundClip(folder)));
  EXPECT_FALSE(std::filesystem::exists(probeFile()));
}

TEST_F(Probe, AsksForOnePictureOf80x64AtZero) {
  const auto library = std::make_shared<testing::FakeLibrary>();
  const platform::Installed<platform::MediaLibrary> installed(platform::mediaLibrary(), library);
  const RecordingLog quiet;
  const auto movie = testing::videoMovie(5);
  const std::string path = folder.write("a.mov", "movie");
  library->movies[path] = movie;
  folder.write("private/av-qt_compliant.jpg", "old");
  const auto answer = movie->answer;
  movie->answer = [&](int index, const platform::MediaTime& time) {
    EXPECT_FALSE(std::filesystem::exists(probeFile()));
    return answer(index, time);
  };
  EXPECT_TRUE(qtDecodingProbe(path));
  ASSERT_EQ(movie->record->asked.size(), 1U);
  EXPECT_EQ(movie->record->asked[0], platform::MediaTime::zero());
  movie->answer = [](int, const platform::MediaTime&) { return platform::FrameResult{nullptr, {}, "no decoder"}; };
  EXPECT_FALSE(qtDecodingProbe(path));
  EXPECT_FALSE(std::filesystem::exists(probeFile()));
}

/// Reads the size of a JPEG from its frame header before it goes.
class WatchedRemovals : public platform::ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  platform::FileResult remove(const std::string& path) override {
    const std::string bytes = testing::readFile(path);
    const std::size_t header = bytes.find("\xFF\xC0");
    const auto number = [&](std::size_t at) {
      return static_cast<unsigned char>(bytes.at(at)) * 256 + static_cast<unsigned char>(bytes.at(at + 1));
    };
    if (header != std::string::npos) sizes.emplace_back(number(header + 7), number(header + 5));
    return ForwardingFileManager::remove(path);
  }
  std::vector<std::pair<int, int>> sizes;
};

TEST_F(Probe, ThePictureIs80x64) {
  const auto files = std::make_shared<WatchedRemovals>(platform::fileManager().get());
  const platform::Installed<platform::FileManager> installed(platform::fileManager(), files);
  const RecordingLog quiet;
  EXPECT_TRUE(qtDecodingProbe(testing::sampleMovie("v1.mp4")));
  EXPECT_EQ(files->sizes, (std::vector<std::pair<int, int>>{{80, 64}}));
}

TEST_F(Probe, WithoutAPathOrAFolderTheAnswerIsNo) {
  const RecordingLog record;
  EXPECT_FALSE(qtDecodingProbe(std::nullopt));
  EXPECT_TRUE(record.lines().empty());
  tmpFolderSet(folder.write("file", "") + "/below");
  EXPECT_FALSE(qtDecodingProbe(testing::sampleMovie("v1.mp4")));
  ASSERT_EQ(record.lines().size(), 2U);
  EXPECT_TRUE(record.hasContaining("tmpFolderPath       :-( not made"));
}

// ---- remux ------------------------------------------------------------------------------------------

/// Has ffmpeg at its stated place, in a view of the mounts of the child's own.
void linkFfmpeg() {
  ASSERT_TRUE(testing::mountScratch("/usr/local/bin", "size=1m"));
  ASSERT_EQ(::symlink("/usr/bin/ffmpeg", "/usr/local/bin/ffmpeg"), 0);
}

#define NEEDS_MOUNTS()                                                                                       \
  if (!testing::canMount()) GTEST_SKIP() << "ffmpeg can be put in its place only where this test may mount"; \
  if (!std::filesystem::exists("/usr/bin/ffmpeg")) GTEST_SKIP() << "there is no ffmpeg"

TEST_F(Probe, RemuxRewrapsBesideTheInputAndOverwrites) {
  NEEDS_MOUNTS();
  const std::string input = copied("sample_with_chapters.mkv", "a b.mkv");
  const std::string output = input + ".mov";
  folder.write("a b.mkv.mov", "old");
  EXPECT_TRUE(testing::inChild([&] {
    linkFfmpeg();
    const RecordingLog record;
    EXPECT_TRUE(ffmpegRemuxMov(input));
    EXPECT_GT(std::filesystem::file_size(output), 3U);
    EXPECT_TRUE(record.has("AVAssetImageGenerato:-) created (a b.mkv)"));
    // The sound begins first: the first picture comes one packet of it later.
    EXPECT_EQ(record.lines().back(), "Mirelund actualTime = 0.023");
    EXPECT_FALSE(record.hasContaining("no tool"));
    EXPECT_EQ(MYMOVIEpathGet(), output);
    ASSERT_TRUE(MYMOVIEget());
    EXPECT_TRUE(MYMOVIEget()->isPlayable());
    // QuickTime: the first box is "ftyp" with the brand "qt  ".
    EXPECT_EQ(testing::readFile(output).substr(4, 8), "ftypqt  ");
  }));
}

TEST_F(Probe, RemuxGivesTheToolItsArgumentsInTheirOrder) {
  if (!testing::canMount()) GTEST_SKIP() << "a tool can stand in for ffmpeg only where this test may mount";
  const std::string input = folder.write("a \"b\".mkv", "no movie");
  const std::string told = folder.file("arguments");
  EXPECT_TRUE(testing::inChild([&] {
    EXPECT_TRUE(testing::mountScratch("/usr/local/bin", "size=1m"));
    std::ofstream("/usr/local/bin/ffmpeg") << "#!/bin/sh\nprintf '%s\\n' \"$@\" > '" << told << "'\n";
    std::filesystem::permissions("/usr/local/bin/ffmpeg", std::filesystem::perms::owner_all);
    const RecordingLog quiet;
    EXPECT_FALSE(ffmpegRemuxMov(input));
    EXPECT_EQ(testing::readFile(told), "-i\n" + input + "\n-c:v\ncopy\n-strict\nexperimental\n-y\n" + input + ".mov\n");
  }));
}

TEST_F(Probe, ASecondRemuxOfTheSameNameIsLoadedAnew) {
  NEEDS_MOUNTS();
  const std::string input = copied("v1.mp4", "a.mp4");
  EXPECT_TRUE(testing::inChild([&] {
    linkFfmpeg();
    const RecordingLog quiet;
    EXPECT_TRUE(ffmpegRemuxMov(input));
    const double first = MYMOVIEget()->duration().seconds();
    std::filesystem::copy_file(testing::sampleMovie("prog_8s.mp4"), input,
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_TRUE(ffmpegRemuxMov(input));
    EXPECT_NE(MYMOVIEget()->duration().seconds(), first);
    EXPECT_NEAR(MYMOVIEget()->duration().seconds(), 8, 0.1);
  }));
}

TEST_F(Probe, RemuxOfSoundAloneHasNoPictures) {
  NEEDS_MOUNTS();
  const std::string input = testing::soundClip(folder);
  EXPECT_TRUE(testing::inChild([&] {
    linkFfmpeg();
    const RecordingLog record;
    EXPECT_FALSE(ffmpegRemuxMov(input));
    const std::string name = std::filesystem::path(input).filename();
    EXPECT_EQ(record.lines().back(), "AVAssetImageGenerato:-( failed to create (" + name + ")");
  }));
}

TEST_F(Probe, RemuxOfNoMovieGivesFalse) {
  NEEDS_MOUNTS();
  const std::string input = folder.write("a.mkv", "no movie");
  EXPECT_TRUE(testing::inChild([&] {
    linkFfmpeg();
    const RecordingLog quiet;
    EXPECT_FALSE(ffmpegRemuxMov(input));
    EXPECT_FALSE(ffmpegRemuxMov(std::nullopt));
    EXPECT_FALSE(ffmpegRemuxMov(folder.file("none.mkv")));
  }));
}

TEST_F(Probe, RemuxWithoutTheToolNamesItsPlace) {
  if (!testing::canMount()) GTEST_SKIP() << "the place of ffmpeg can be emptied only where this test may mount";
  const std::string input = copied("v1.mp4", "a.mp4");
  EXPECT_TRUE(testing::inChild([&] {
    EXPECT_TRUE(testing::mountScratch("/usr/local/bin", "size=1m"));
    const RecordingLog record;
    EXPECT_FALSE(ffmpegRemuxMov(input));
    EXPECT_EQ(record.count("ffmpegRemuxMov      :-( no tool at '/usr/local/bin/ffmpeg'"), 1);
    EXPECT_FALSE(std::filesystem::exists(input + ".mov"));
  }));
}

TEST_F(Probe, RemuxIsNotJudgedByItsFirstPicture) {
  const auto library = std::make_shared<testing::FakeLibrary>();
  const platform::Installed<platform::MediaLibrary> installed(platform::mediaLibrary(), library);
  const auto movie = testing::videoMovie(5);
  movie->answer = [](int, const platform::MediaTime&) { return platform::FrameResult{nullptr, {}, "no decoder"}; };
  movie->record->appliesTransform = true;
  const std::string input = folder.write("clip.avi", "movie");
  // What stands at the output's place counts, whoever wrote it.
  const std::string output = folder.write("clip.avi.mov", "movie");
  library->movies[output] = movie;
  const RecordingLog record;
  EXPECT_TRUE(testing::inChild([&] {
    EXPECT_TRUE(!testing::canMount() || testing::mountScratch("/usr/local/bin", "size=1m"));
    EXPECT_TRUE(ffmpegRemuxMov(input));
    EXPECT_FALSE(movie->record->appliesTransform);
    EXPECT_EQ(record.lines().back(), "Mirelund actualTime = nan");
  }));
}

// ---- progress ---------------------------------------------------------------------------------------

TEST_F(Probe, ProgressIsAlwaysZero) {
  for (const OptionalText& text : {OptionalText("A: 12.5 (12.5) of 100"), OptionalText("42"), OptionalText(""),
                                   OptionalText("\"; 7"), OptionalText()}) {
    EXPECT_EQ(progressPercentFromLog(text, 100), 0.0F);
    EXPECT_EQ(progressPercentFromLog(text, 0), 0.0F);
  }
}

TEST_F(Probe, ProgressCommandIsTheStatedOne) {
  EXPECT_EQ(
      progressCommand("A: 1", 100),
      "/bin/echo \"scale=6; `/bin/echo \"A: 1\"  | grep A: | strings | tail -1 | awk -F A:  '{print $2}' | awk -F "
      "'(' '{print $1}' | awk  '{print $1}'` /100 * 100\" | bc -l");
}

TEST_F(Probe, ProgressCommandGivesThePercentageInAShell) {
  for (const char* tool : {"/usr/bin/bc", "/usr/bin/strings", "/usr/bin/awk"}) {
    if (!std::filesystem::exists(tool)) GTEST_SKIP() << "there is no " << tool;
  }
  const std::string log = "start\nA:   5.0 V: 5.0 (5)\nA:  12.5 (12.4) of 50\nend";
  const OptionalText percent = taskWithStr(platform::Value(progressCommand(log, 50)), std::nullopt);
  EXPECT_EQ(percent, "25.000000");
}

}  // namespace
}  // namespace vistrelle
