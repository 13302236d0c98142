#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/timecode.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/dialogs/dialog.h"
#include "vistrelle/platform/preferences/user_defaults.h"
#include "vistrelle/system/preferences.h"

namespace vistrelle {
namespace {

using platform::AlertContent;
using testing::RecordingLog;

/// An alert that nobody answers.
class IgnoredAlert : public platform::AlertDialog {
 public:
  explicit IgnoredAlert(AlertContent content) : content_(std::move(content)) {}
  bool answersLayout() const override { return false; }
  void layout() override {}
  bool answersPrepare() const override { return false; }
  void prepare() override {}
  std::vector<std::string> buttons() const override {
    std::vector<std::string> captions;
    for (const auto& button : platform::alertButtons(content_)) captions.push_back(button.caption);
    return captions;
  }
  void setButtonAction(std::size_t, platform::ButtonAction) override {}
  void beginModalSession() override {}
  platform::ModalResponse runModalSession() override { return platform::kModalContinue; }
  const platform::Signal& answered() const override { return answered_; }
  void closeWindow() override {}
  void endModalSession() override {}
  platform::ModalResponse runModal() override { return platform::kAlertDefault; }
  bool checkboxTicked() const override { return false; }
  std::string fieldText() const override { return ""; }
  platform::OptionalText fieldPlaceholder() const override { return std::nullopt; }

 private:
  AlertContent content_;
  platform::Signal answered_;
};

class RecordingDialogs : public platform::Dialogs {
 public:
  std::shared_ptr<platform::AlertDialog> makeAlert(const AlertContent& content) override {
    shown.push_back(content);
    return std::make_shared<IgnoredAlert>(content);
  }
  std::shared_ptr<platform::Sheet> beginSheet(const AlertContent&, const std::shared_ptr<platform::Window>&) override {
    return nullptr;
  }
  std::vector<AlertContent> shown;
};

class SuspiciousZero : public ::testing::Test {
 protected:
  std::shared_ptr<RecordingDialogs> dialogs = std::make_shared<RecordingDialogs>();
  std::shared_ptr<platform::FakeClock> clock = std::make_shared<platform::FakeClock>();
  testing::ScratchFolder home;
  platform::Installed<platform::UserDefaults> noDefaults{platform::userDefaults(),
                                                         platform::fileDefaults(home.file("empty.plist"))};
  platform::Installed<platform::Dialogs> dialogsInstalled{platform::dialogs(), dialogs};
  platform::Installed<platform::Clock> clockInstalled{platform::clock(), clock};
};

TEST_F(SuspiciousZero, AlertsInVerboseMode) {
  RecordingLog record(true);
  EXPECT_EQ(timecodeStr2Float("1:30"), 0.0F);
  ASSERT_EQ(dialogs->shown.size(), 1U);
  const AlertContent& alert = dialogs->shown.front();
  EXPECT_EQ(alert.message, "utils > timecodeStr2Float ? :-/");
  EXPECT_EQ(alert.informative, "…à revoir :-( returnedFloat = 0.000000");
  EXPECT_TRUE(alert.critical);
  EXPECT_FALSE(alert.defaultButton.has_value());
  EXPECT_FALSE(alert.alternateButton.has_value());
  EXPECT_FALSE(alert.otherButton.has_value());
  // Gives up after 60 seconds of the clock.
  EXPECT_GE(clock->elapsed(), std::chrono::seconds(59));
  EXPECT_LE(clock->elapsed(), std::chrono::seconds(61));
}

TEST_F(SuspiciousZero, NoAlertInOrdinaryUse) {
  RecordingLog record(false);
  EXPECT_EQ(timecodeStr2Float("1:30"), 0.0F);
  EXPECT_TRUE(dialogs->shown.empty());
}

TEST_F(SuspiciousZero, AlertsOnDevelopersMachines) {
  testing::ScratchFolder folder;
  platform::Installed<platform::UserDefaults> defaults(platform::userDefaults(),
                                                       platform::fileDefaults(folder.file("defaults.plist")));
  RecordingLog record(false);
  timecodeStr2Float("1:30");
  EXPECT_TRUE(dialogs->shown.empty());
  prefWrite("id", "someone@vistrelle.example");
  timecodeStr2Float("1:30");
  EXPECT_EQ(dialogs->shown.size(), 1U);
  timecodeSeconds("1:30");
  EXPECT_EQ(dialogs->shown.size(), 1U);
}

TEST_F(SuspiciousZero, NoAlertForATextThatIsZero) {
  RecordingLog record(true);
  for (const char* text : {"0", "00:00:00", "0.0", "", "   ", "abc"}) EXPECT_EQ(timecodeStr2Float(text), 0.0F) << text;
  EXPECT_TRUE(dialogs->shown.empty());
}

TEST_F(SuspiciousZero, NoAlertForANumberThatWasRead) {
  RecordingLog record(true);
  timecodeStr2Float("00:00:00.5");
  EXPECT_TRUE(dialogs->shown.empty());
}

TEST_F(SuspiciousZero, AlertForATinyResult) {
  RecordingLog record(true);
  EXPECT_EQ(timecodeStr2Float("0.0005"), 0.0005F);
  ASSERT_EQ(dialogs->shown.size(), 1U);
  EXPECT_EQ(dialogs->shown.front().informative, "…à revoir :-( returnedFloat = 0.000500");
}

TEST_F(SuspiciousZero, SilentReadingNeverAlerts) {
  RecordingLog record(true);
  timecodeSeconds("1:30");
  EXPECT_TRUE(dialogs->shown.empty());
}

}  // namespace
}  // namespace vistrelle
