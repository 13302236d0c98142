#include "vistrelle/movieedit/export.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/random.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/export_session.h"
#include "vistrelle/platform/workspace/workspace.h"

namespace vistrelle {
namespace {

using namespace std::chrono_literals;
using platform::ExportStatus;
using platform::Installed;
using platform::OptionalText;
using testing::CountingClock;
using testing::FakeAsset;
using testing::readFile;
using testing::RecordingLog;
using testing::ScratchFolder;

/// A session that a test decides about.
class FakeSession : public platform::ExportSession {
 public:
  ~FakeSession() override {
    if (thread.joinable()) thread.join();
  }
  std::string description() const override { return "<session>"; }
  void setOutputUrl(const platform::Url& itsUrl) override { url = itsUrl.text; }
  void setOutputFileType(const std::string& itsType) override { type = itsType; }
  std::string outputFileType() const override { return type; }
  std::vector<std::string> supportedFileTypes() const override { return types; }
  void exportAsynchronously(std::function<void()> itsCompletion) override {
    ++starts;
    finishedAtStart = exportFinished();
    completion = std::move(itsCompletion);
    started.set();
    if (endsAtOnce) end();
  }
  /// Writes what is to be written and calls the completion on another thread, at the end of which it returns.
  void end() {
    if (content) {
      std::ofstream(platform::pathOfFileUrl(url), std::ios::binary) << *content;
    }
    thread = std::thread([this] { completion(); });
    thread.join();
  }
  float progress() const override { return done; }
  ExportStatus status() const override { return itsStatus; }
  OptionalText error() const override { return itsError; }
  void cancelExport() override {}

  std::string url;
  std::string type;
  std::vector<std::string> types{platform::kFileTypeQuickTimeMovie, platform::kFileTypeAppleM4A};
  bool endsAtOnce = true;
  OptionalText content = std::string(2048, 'x');
  std::atomic<float> done = 1.0F;
  ExportStatus itsStatus = ExportStatus::completed;
  OptionalText itsError;
  platform::Signal started;
  std::function<void()> completion;
  std::thread thread;
  int starts = 0;
  bool finishedAtStart = true;
};

class FakeExportLibrary : public platform::ExportLibrary {
 public:
  std::shared_ptr<platform::ExportSession> makeSession(const std::shared_ptr<platform::Asset>& asset,
                                                       const std::string& presetName) override {
    assets.push_back(asset);
    presets.push_back(presetName);
    return session;
  }
  std::vector<std::shared_ptr<platform::Asset>> assets;
  std::vector<std::string> presets;
  std::shared_ptr<FakeSession> session = std::make_shared<FakeSession>();
};

/// Draws the numbers a test gives, then counts on.
class FixedRandom : public platform::Random {
 public:
  explicit FixedRandom(std::vector<std::int64_t> numbers) : numbers_(std::move(numbers)) {}
  std::int64_t next() override {
    ++draws;
    if (numbers_.empty()) return 900000 + draws;
    const std::int64_t number = numbers_.front();
    numbers_.erase(numbers_.begin());
    return number;
  }
  int draws = 0;

 private:
  std::vector<std::int64_t> numbers_;
};

class RecordingWorkspace : public platform::ForwardingWorkspace {
 public:
  using ForwardingWorkspace::ForwardingWorkspace;
  void noteFileSystemChanged(const std::string& path) override { noted.push_back(path); }
  std::vector<std::string> noted;
};

class Export : public ::testing::Test {
 protected:
  std::string file(const std::string& name) const { return folder_.file(name); }
  std::vector<std::string> entries() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
  }
  FakeSession& session() { return *library_->session; }

  ScratchFolder folder_;
  RecordingLog log_;
  std::shared_ptr<FakeAsset> movie_ = std::make_shared<FakeAsset>();
  std::shared_ptr<FakeExportLibrary> library_ = std::make_shared<FakeExportLibrary>();
  std::shared_ptr<CountingClock> clock_ = std::make_shared<CountingClock>();
  std::shared_ptr<FixedRandom> random_ = std::make_shared<FixedRandom>(std::vector<std::int64_t>{});
  std::shared_ptr<RecordingWorkspace> workspace_ = std::make_shared<RecordingWorkspace>(platform::workspace().get());
  Installed<platform::ExportLibrary> installedLibrary_{platform::exportLibrary(), library_};
  Installed<platform::Clock> installedClock_{platform::clock(), clock_};
  Installed<platform::Random> installedRandom_{platform::randomSource(), random_};
  Installed<platform::Workspace> installedWorkspace_{platform::workspace(), workspace_};
};

TEST_F(Export, WritesToANewDestination) {
  EXPECT_TRUE(qtAvExport(movie_, file("a b.mov"), -1));
  EXPECT_EQ(readFile(file("a b.mov")).size(), 2048U);
  EXPECT_EQ(library_->presets, (std::vector<std::string>{"AVAssetExportPresetPassthrough"}));
  EXPECT_EQ(session().type, "AVFileTypeQuickTimeMovie");
  EXPECT_EQ(session().url, platform::fileUrlText(file("a b.mov")));
  EXPECT_EQ(library_->assets.front(), movie_);
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"[qt|av]export       - begin", "exportInt           = -1, dst=" + file("a b.mov"),
                                      "<movie>", "myAsset             : <movie>",
                                      "url : " + platform::fileUrlText(file("a b.mov")), "exportSession.status:-)",
                                      "exporter.status     : 3", "[qt|av]export       :-) end"}));
  EXPECT_EQ(log_.plain(), "");
  EXPECT_EQ(random_->draws, 0);
  // Either look for the file tells of it, and the end once more.
  EXPECT_EQ(workspace_->noted, std::vector<std::string>(3, file("a b.mov")));
}

TEST_F(Export, VerboseLinesAreWrittenOnlyWhenVerbose) {
  RecordingLog verbose(true);
  qtAvExport(movie_, file("a.mov"), -1);
  const auto lines = verbose.lines();
  ASSERT_GE(lines.size(), 4U);
  EXPECT_EQ(lines[2], "…export > dstPathStr: " + file("a.mov"));
  EXPECT_EQ(lines[3], "…export > export    #-1");
}

TEST_F(Export, ModesHaveTheirPresetsAndTypes) {
  const std::vector<std::tuple<std::int64_t, std::string, std::string>> modes{
      {-3, "AVAssetExportPresetAppleM4A", "AVFileTypeAppleM4A"},
      {-2, "AVAssetExportPresetAppleM4A", "AVFileTypeAppleM4A"},
      {-1, "AVAssetExportPresetPassthrough", "AVFileTypeQuickTimeMovie"},
      {2, "AVAssetExportPresetAppleProRes422LPCM", "AVFileTypeQuickTimeMovie"}};
  for (const auto& [mode, preset, type] : modes) {
    library_->session = std::make_shared<FakeSession>();
    EXPECT_TRUE(qtAvExport(movie_, file(platform::format("{}.mov", mode)), mode));
    EXPECT_EQ(library_->presets.back(), preset);
    EXPECT_EQ(session().type, type);
  }
}

TEST_F(Export, MinusTwoIsLoggedAsItCame) {
  qtAvExport(movie_, file("a.m4a"), -2);
  EXPECT_TRUE(log_.has("exportInt           = -2, dst=" + file("a.m4a")));
}

/// Counts every question that is put to the file system.
class UntouchedFiles : public platform::ForwardingFileManager {
 public:
  using ForwardingFileManager::ForwardingFileManager;
  bool canOpenForReading(const std::string& path) override {
    return ++touches, ForwardingFileManager::canOpenForReading(path);
  }
  bool exists(const std::string& path) override { return ++touches, ForwardingFileManager::exists(path); }
  std::optional<platform::FileAttributes> attributes(const std::string& path, bool followLink) override {
    ++touches;
    return ForwardingFileManager::attributes(path, followLink);
  }
  int touches = 0;
};

TEST_F(Export, ModesZeroAndOneAreRefusedWithoutTouchingTheFileSystem) {
  const auto files = std::make_shared<UntouchedFiles>(platform::fileManager().get());
  const Installed<platform::FileManager> installed(platform::fileManager(), files);
  const std::string old = folder_.write("old.mov", "old");
  setExportFinished(true);
  for (const std::int64_t mode : {0, 1}) {
    for (const std::string& path : {file("a.mov"), old}) {
      log_.clear();
      EXPECT_FALSE(qtAvExport(movie_, path, mode));
      EXPECT_EQ(log_.lines(),
                (std::vector<std::string>{"[qt|av]export       - begin",
                                          platform::format("exportInt           = {}, dst={}", mode, path), "<movie>",
                                          "myAsset             : <movie>"}));
    }
  }
  EXPECT_EQ(files->touches, 0);
  EXPECT_TRUE(workspace_->noted.empty());
  EXPECT_EQ(random_->draws, 0);
  EXPECT_TRUE(library_->presets.empty());
  EXPECT_TRUE(exportFinished());
  EXPECT_EQ(entries(), (std::vector<std::string>{"old.mov"}));
}

TEST_F(Export, OtherModesHaveNoSessionAndFailTheTypeTest) {
  for (const std::int64_t mode : {3, -4, 99}) {
    log_.clear();
    EXPECT_FALSE(qtAvExport(movie_, file("a.mov"), mode));
    EXPECT_TRUE(log_.has("url : " + platform::fileUrlText(file("a.mov"))));
    EXPECT_TRUE(log_.has("export type asked   : (null)"));
    EXPECT_TRUE(log_.has("not compatible type :-( (null)"));
  }
  EXPECT_TRUE(library_->presets.empty());
  EXPECT_TRUE(entries().empty());
}

TEST_F(Export, AnUnsupportedTypeIsRefusedBeforeTheExport) {
  session().types = {"one", "two"};
  setExportFinished(true);
  EXPECT_FALSE(qtAvExport(movie_, file("a.mov"), 2));
  EXPECT_TRUE(log_.has("export type asked   : AVFileTypeQuickTimeMovie"));
  EXPECT_TRUE(log_.has("not compatible type :-( (\n    one,\n    two\n)"));
  EXPECT_EQ(session().starts, 0);
  EXPECT_TRUE(exportFinished());
}

TEST_F(Export, WithoutAMovieNothingIsWritten) {
  EXPECT_FALSE(qtAvExport(nullptr, file("a.mov"), -1));
  EXPECT_EQ(log_.lines(), (std::vector<std::string>{"[qt|av]export       - begin",
                                                    "exportInt           = -1, dst=" + file("a.mov"), "(null)"}));
  EXPECT_TRUE(library_->presets.empty());
}

TEST_F(Export, AMovieOfAnotherClassIsRefused) {
  movie_->assetKind = platform::AssetKind::other;
  EXPECT_FALSE(qtAvExport(movie_, file("a.mov"), -1));
  EXPECT_TRUE(log_.has("<movie>"));
  EXPECT_FALSE(log_.hasContaining("myAsset"));
  EXPECT_TRUE(library_->presets.empty());
}

TEST_F(Export, WithoutADestinationNothingIsWritten) {
  EXPECT_FALSE(qtAvExport(movie_, std::nullopt, -1));
  EXPECT_TRUE(log_.has("exportInt           = -1, dst=(null)"));
  EXPECT_FALSE(qtAvExport(movie_, "", -1));
  EXPECT_EQ(session().starts, 0);
}

TEST_F(Export, OfACompositionACopyIsExported) {
  const auto composition = platform::Composition::make();
  EXPECT_TRUE(qtAvExport(composition, file("a.mov"), -1));
  ASSERT_EQ(library_->assets.size(), 1U);
  EXPECT_EQ(library_->assets.front()->kind(), platform::AssetKind::composition);
  EXPECT_NE(library_->assets.front(), composition);
}

TEST_F(Export, AnExistingDestinationIsReplacedThroughARandomSiblingOfItsExtension) {
  random_ = std::make_shared<FixedRandom>(std::vector<std::int64_t>{1804289383});
  const Installed<platform::Random> installed(platform::randomSource(), random_);
  const std::string destination = folder_.write("old.m4a", "old");
  std::string meanwhile;
  session().endsAtOnce = false;
  session().done = 0.5F;
  clock_->beforeWait = [&](int) {
    meanwhile = readFile(destination);
    session().end();
  };
  EXPECT_TRUE(qtAvExport(movie_, destination, -3));
  EXPECT_EQ(meanwhile, "old");
  EXPECT_EQ(session().url, platform::fileUrlText(file("1804289383.m4a")));
  EXPECT_EQ(readFile(destination).size(), 2048U);
  EXPECT_EQ(entries(), (std::vector<std::string>{"old.m4a"}));
}

TEST_F(Export, ASiblingThatExistsIsNotTaken) {
  random_ = std::make_shared<FixedRandom>(std::vector<std::int64_t>{7, 7, 8});
  const Installed<platform::Random> installed(platform::randomSource(), random_);
  const std::string destination = folder_.write("old.mov", "old");
  folder_.write("7.mov", "another");
  EXPECT_TRUE(qtAvExport(movie_, destination, -1));
  EXPECT_EQ(session().url, platform::fileUrlText(file("8.mov")));
  EXPECT_EQ(readFile(file("7.mov")), "another");
}

TEST_F(Export, ADestinationWithoutExtensionGetsASiblingWithout) {
  random_ = std::make_shared<FixedRandom>(std::vector<std::int64_t>{42});
  const Installed<platform::Random> installed(platform::randomSource(), random_);
  EXPECT_TRUE(qtAvExport(movie_, folder_.write("old", "old"), -1));
  EXPECT_EQ(session().url, platform::fileUrlText(file("42")));
}

TEST_F(Export, AFailedMoveIsTheResult) {
  class StuckFiles : public platform::ForwardingFileManager {
   public:
    using ForwardingFileManager::ForwardingFileManager;
    platform::FileResult move(const std::string& source, const std::string&) override { return {EIO, source}; }
    platform::FileResult remove(const std::string& path) override { return {EIO, path}; }
  };
  const std::string destination = folder_.write("old.mov", "old");
  const Installed<platform::FileManager> installed(platform::fileManager(),
                                                   std::make_shared<StuckFiles>(platform::fileManager().get()));
  EXPECT_FALSE(qtAvExport(movie_, destination, -1));
  EXPECT_TRUE(log_.has("[qt|av]export       :-) end"));
}

TEST_F(Export, ASessionThatFailsAtOnceIsToldAndGivesFalse) {
  session().content.reset();
  session().itsStatus = ExportStatus::failed;
  session().itsError = "no luck";
  session().done = 0.0F;
  EXPECT_FALSE(qtAvExport(movie_, file("a.mov"), -1));
  EXPECT_TRUE(log_.has("exportSession.status:-( no luck"));
  EXPECT_TRUE(log_.has("exporter.status     : 4"));
  EXPECT_TRUE(log_.has("exporter.error      :-( no luck"));
  EXPECT_TRUE(log_.has("[qt|av]export       :-( failure (Couldn't write movie to file)"));
  EXPECT_EQ(log_.plain(), "");  // the handler has run before the first look
  EXPECT_EQ(clock_->waits, 0);
}

TEST_F(Export, StatusesHaveTheirWords) {
  const std::vector<std::pair<ExportStatus, std::string>> words{{ExportStatus::cancelled, ":-/ Canceled"},
                                                                {ExportStatus::unknown, ": else(?!?)"},
                                                                {ExportStatus::exporting, ": else(?!?)"}};
  for (const auto& [status, word] : words) {
    log_.clear();
    library_->session = std::make_shared<FakeSession>();
    session().itsStatus = status;
    // Judged by the file alone, whatever the status.
    EXPECT_TRUE(qtAvExport(movie_, file("a.mov"), -1));
    EXPECT_TRUE(log_.has("exportSession.status" + word)) << word;
    EXPECT_TRUE(log_.has(platform::format("exporter.status     : {}", static_cast<int>(status))));
    EXPECT_FALSE(log_.hasContaining("exporter.error"));
  }
}

TEST_F(Export, AFileOfLessThanAKilobyteIsAFailureAndStays) {
  session().content = std::string(1023, 'x');
  EXPECT_FALSE(qtAvExport(movie_, file("a.mov"), -1));
  EXPECT_TRUE(log_.has("[qt|av]export       :-( failure (not exists || no real weight)"));
  EXPECT_EQ(entries(), (std::vector<std::string>{"a.mov"}));
  library_->session = std::make_shared<FakeSession>();
  session().content = std::string(1024, 'x');
  EXPECT_TRUE(qtAvExport(movie_, file("b.mov"), -1));
}

TEST_F(Export, AnOldDestinationSurvivesAFailedExportAndTheSmallTemporaryIsLeft) {
  random_ = std::make_shared<FixedRandom>(std::vector<std::int64_t>{5});
  const Installed<platform::Random> installed(platform::randomSource(), random_);
  const std::string destination = folder_.write("old.mov", "old");
  session().content = "small";
  EXPECT_FALSE(qtAvExport(movie_, destination, -1));
  EXPECT_EQ(readFile(destination), "old");
  EXPECT_EQ(entries(), (std::vector<std::string>{"5.mov", "old.mov"}));
  EXPECT_FALSE(log_.has("[qt|av]export       :-) end"));
}

TEST_F(Export, ProgressIsPrintedOnceASecondUntilNinetyNinePercentThenThereIsOnlyAWait) {
  session().endsAtOnce = false;
  session().done = 0.0F;
  std::vector<std::chrono::microseconds> lengths;
  clock_->beforeWait = [&](int wait) {
    if (wait == 1) session().done = 0.123456F;
    if (wait == 2) session().done = 0.9899F;
    if (wait == 3) session().done = 0.99F;
    if (wait == 6) session().end();
  };
  EXPECT_TRUE(qtAvExport(movie_, file("a.mov"), -1));
  EXPECT_EQ(log_.plain(), "pourcentage    : 0.00\npourcentage    : 12.35\npourcentage    : 98.99\n");
  EXPECT_EQ(clock_->waits, 6);
  EXPECT_EQ(clock_->elapsed(), 3s + 2 * 333333us);  // the sixth wait ends at once, because the handler has run
}

TEST_F(Export, ProgressThatIsStuckEndsOnTheFlag) {
  session().endsAtOnce = false;
  session().done = 0.4F;
  clock_->beforeWait = [&](int wait) {
    if (wait == 3) session().end();
  };
  EXPECT_TRUE(qtAvExport(movie_, file("a.mov"), -1));
  EXPECT_EQ(session().done, 0.4F);
  EXPECT_EQ(log_.plain(), "pourcentage    : 40.00\npourcentage    : 40.00\npourcentage    : 40.00\n");
  EXPECT_EQ(clock_->waits, 3);
}

TEST_F(Export, TheFlagIsClearedBeforeAndSetByTheHandler) {
  setExportFinished(true);
  qtAvExport(movie_, file("a.mov"), -1);
  EXPECT_FALSE(session().finishedAtStart);
  EXPECT_TRUE(exportFinished());
}

TEST_F(Export, NoSecondIsSleptAfterTheWorkIsDone) {
  const Installed<platform::Clock> real(platform::clock(), nullptr);
  session().endsAtOnce = false;
  session().done = 0.5F;
  std::thread worker([&] {
    session().started.waitReal(60s);
    std::this_thread::sleep_for(50ms);
    session().end();
  });
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(qtAvExport(movie_, file("a.mov"), -1));
  EXPECT_LT(std::chrono::steady_clock::now() - before, 900ms);
  worker.join();
  EXPECT_EQ(log_.plain(), "pourcentage    : 50.00\n");
}

TEST_F(Export, ATildeIsExpanded) {
  const char* home = std::getenv("HOME");
  const std::string former = home == nullptr ? "" : home;
  ::setenv("HOME", folder_.path().c_str(), 1);
  EXPECT_TRUE(qtAvExport(movie_, "~/a.mov", -1));
  ::setenv("HOME", former.c_str(), 1);
  EXPECT_TRUE(log_.has("exportInt           = -1, dst=~/a.mov"));
  EXPECT_EQ(entries(), (std::vector<std::string>{"a.mov"}));
}

}  // namespace
}  // namespace vistrelle
