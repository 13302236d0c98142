#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/scripted_dialogs.h"
#include "vistrelle/movie/timecode.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/preferences/user_defaults.h"
#include "vistrelle/system/preferences.h"

namespace vistrelle {
namespace {

using platform::AlertContent;
using testing::RecordingLog;

class SuspiciousZero : public ::testing::Test {
 protected:
  std::shared_ptr<testing::ScriptedDialogs> dialogs = std::make_shared<testing::ScriptedDialogs>();
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
  ASSERT_EQ(dialogs->contents.size(), 1U);
  const AlertContent& alert = dialogs->contents.front();
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
  EXPECT_TRUE(dialogs->contents.empty());
}

TEST_F(SuspiciousZero, AlertsOnDevelopersMachines) {
  testing::ScratchFolder folder;
  platform::Installed<platform::UserDefaults> defaults(platform::userDefaults(),
                                                       platform::fileDefaults(folder.file("defaults.plist")));
  RecordingLog record(false);
  timecodeStr2Float("1:30");
  EXPECT_TRUE(dialogs->contents.empty());
  prefWrite("id", "someone@vistrelle.example");
  timecodeStr2Float("1:30");
  EXPECT_EQ(dialogs->contents.size(), 1U);
  timecodeSeconds("1:30");
  EXPECT_EQ(dialogs->contents.size(), 1U);
}

TEST_F(SuspiciousZero, NoAlertForATextThatIsZero) {
  RecordingLog record(true);
  for (const char* text : {"0", "00:00:00", "0.0", "", "   ", "abc"}) EXPECT_EQ(timecodeStr2Float(text), 0.0F) << text;
  EXPECT_TRUE(dialogs->contents.empty());
}

TEST_F(SuspiciousZero, NoAlertForANumberThatWasRead) {
  RecordingLog record(true);
  timecodeStr2Float("00:00:00.5");
  EXPECT_TRUE(dialogs->contents.empty());
}

TEST_F(SuspiciousZero, AlertForATinyResult) {
  RecordingLog record(true);
  EXPECT_EQ(timecodeStr2Float("0.0005"), 0.0005F);
  ASSERT_EQ(dialogs->contents.size(), 1U);
  EXPECT_EQ(dialogs->contents.front().informative, "…à revoir :-( returnedFloat = 0.000500");
}

TEST_F(SuspiciousZero, SilentReadingNeverAlerts) {
  RecordingLog record(true);
  timecodeSeconds("1:30");
  EXPECT_TRUE(dialogs->contents.empty());
}

}  // namespace
}  // namespace vistrelle
