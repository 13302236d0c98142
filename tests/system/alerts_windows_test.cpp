// Alerts as real windows: the helper and its plug-in, with somebody who clicks.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "tests/support/display.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/system/alerts.h"

namespace vistrelle {
namespace {

using platform::OptionalText;
using std::chrono::duration;
using std::chrono::steady_clock;
using testing::Environment;
using testing::RecordingLog;
using testing::VirtualDisplay;

const OptionalText kNone;

#ifdef VISTRELLE_DIALOG_FILES
constexpr const char* kFiles = VISTRELLE_DIALOG_FILES;
constexpr const char* kRobot = VISTRELLE_ROBOT_FOLDER;
#else
constexpr const char* kFiles = nullptr;
constexpr const char* kRobot = nullptr;
#endif

double secondsOf(const std::function<void()>& action) {
  const auto begin = steady_clock::now();
  action();
  return duration<double>(steady_clock::now() - begin).count();
}

/// Real time that begins when a file is there: a window that is slow to come up costs nothing of the alert's time.
class ClockFromFile : public platform::Clock {
 public:
  ClockFromFile(std::shared_ptr<platform::Clock> next, std::string file)
      : next_(std::move(next)), file_(std::move(file)) {}
  WallTime now() override { return next_->now(); }
  SteadyTime steady() override { return next_->steady(); }
  void sleep(std::chrono::microseconds time) override {
    awaitFile();
    next_->sleep(time);
  }
  bool wait(const platform::Signal& signal, std::chrono::microseconds atMost) override {
    awaitFile();
    return next_->wait(signal, atMost);
  }

 private:
  void awaitFile() {
    const auto limit = steady_clock::now() + std::chrono::seconds(60);
    while (::access(file_.c_str(), F_OK) != 0 && steady_clock::now() < limit) ::usleep(10000);
  }
  std::shared_ptr<platform::Clock> next_;
  std::string file_;
};

/// The parameter is the toolkit's platform: "offscreen", or "xcb" on a server of the test's own.
class WindowsTest : public ::testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    if (!kFiles) GTEST_SKIP() << "built without Qt 6: there are no windows to test";
    testing::leaveTerminal();
    std::optional<std::string> display;
    if (platformName() == "xcb") {
      display_ = std::make_unique<VirtualDisplay>();
      if (display_->name().empty()) GTEST_SKIP() << "Xvfb is not installed";
      display = display_->name();
    }
    environment_ = std::make_unique<Environment>(
        std::map<std::string, std::optional<std::string>>{{"VISTRELLE_DIALOGS", kFiles},
                                                          {"QT_PLUGIN_PATH", kRobot},
                                                          {"QT_QPA_GENERIC_PLUGINS", "vistrellerobot"},
                                                          {"QT_QPA_PLATFORM", platformName()},
                                                          {"WAYLAND_DISPLAY", std::nullopt},
                                                          {"DISPLAY", display},
                                                          {"VISTRELLE_ROBOT", std::nullopt}});
  }

  std::string platformName() const { return GetParam(); }
  void robot(const std::string& steps) const { ::setenv("VISTRELLE_ROBOT", steps.c_str(), 1); }

  OptionalText giveUp(const std::string& steps, const OptionalText& b1, const OptionalText& b2, const OptionalText& b3,
                      std::int64_t seconds = 30) {
    robot(steps);
    return alertGiveUp("Message", "Informative", b1, b2, b3, 0, seconds);
  }

  /// What a robot ends its steps with where `waitForGrab` is used.
  std::string grab() const { return "grab " + folder_.file("shown.png"); }
  /// No time passes before the robot has taken its picture.
  platform::Installed<platform::Clock> waitForGrab() const {
    return {platform::clock(), std::make_shared<ClockFromFile>(platform::clock().get(), folder_.file("shown.png"))};
  }

  testing::ScratchFolder folder_;
  RecordingLog log_{true};
  std::unique_ptr<VirtualDisplay> display_;
  std::unique_ptr<Environment> environment_;
};

INSTANTIATE_TEST_SUITE_P(Platforms, WindowsTest, ::testing::Values("offscreen", "xcb"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(WindowsTest, EachOfThreeButtons) {
  EXPECT_EQ(giveUp("click button0", "A", "B", "C"), "A");
  EXPECT_EQ(giveUp("click button1", "A", "B", "C"), "C");
  EXPECT_EQ(giveUp("click button2", "A", "B", "C"), "B");
  EXPECT_EQ(log_.count("FERMETURE USER      : CLIC"), 3);
}

TEST_P(WindowsTest, EachOfTwoButtonsAndTheOnlyOne) {
  EXPECT_EQ(giveUp("click button0", "A", "B", kNone), "A");
  EXPECT_EQ(giveUp("click button1", "A", "B", kNone), "B");
  EXPECT_EQ(giveUp("click button0", "A", kNone, kNone), "A");
  EXPECT_EQ(giveUp("click button0", "", kNone, kNone), "OK");
  EXPECT_EQ(log_.count("FERMETURE USER      : CLIC"), 4);
}

TEST_P(WindowsTest, EscapeAndClosingAreTheCancelPosition) {
  EXPECT_EQ(giveUp("key Escape", "A", "B", "C"), "B");
  EXPECT_EQ(giveUp("close", "A", "B", "C"), "B");
  EXPECT_EQ(giveUp("key Escape", "A", "B", kNone), "B");
  EXPECT_EQ(giveUp("close", "A", kNone, kNone), "A");
  EXPECT_EQ(log_.count("FERMETURE USER      : CLIC"), 4);
}

TEST_P(WindowsTest, ReturnIsTheDefaultButton) {
  EXPECT_EQ(giveUp("key Return", "A", "B", "C"), "A");
  // The focus moves on to another button, which Return presses then.
  EXPECT_EQ(giveUp("key Tab;key Return", "A", "B", kNone), "B");
  EXPECT_EQ(log_.count("FERMETURE USER      : CLIC"), 2);
}

TEST_P(WindowsTest, NobodyAnswers) {
  const auto clock = waitForGrab();
  OptionalText answer;
  const double seconds = secondsOf([&] { answer = giveUp(grab(), "A", "B", kNone, 2); });
  EXPECT_EQ(answer, "A");
  EXPECT_GE(seconds, 2.0);
  EXPECT_LT(seconds, 30.0);
  EXPECT_TRUE(log_.has("FERMETURE AUTO      : TIMEOUT"));
  EXPECT_EQ(log_.plain(), "");
}

TEST_P(WindowsTest, TheAnswerEndsTheWait) {
  const double seconds = secondsOf([&] { giveUp("click button0", "A", kNone, kNone, 600); });
  EXPECT_LT(seconds, 60.0);
}

TEST_P(WindowsTest, WithoutATimeItWaitsForTheClick) {
  EXPECT_EQ(giveUp("click button0", "A", "B", "C", 0), "A");
  EXPECT_EQ(giveUp("click button1", "A", "B", "C", 0), "C");
  EXPECT_EQ(giveUp("click button2", "A", "B", "C", 0), "B");
  EXPECT_EQ(giveUp("key Escape", "A", "B", "C", 0), "B");
  EXPECT_EQ(log_.count("ALERTE NORMALE"), 4);
}

TEST_P(WindowsTest, TheCheckboxIsRead) {
  robot("click checkbox;click button1");
  auto result = alertGiveUpWithCheckbox("M", "I", "A", "B", kNone, 2, 30, "Do not ask again");
  EXPECT_EQ(result, (platform::List{"B", std::int64_t{1}}));
  EXPECT_TRUE(log_.has("FERMETURE USER      : CLIC=-1001"));
  robot("click checkbox;click checkbox;click button0");
  result = alertGiveUpWithCheckbox("M", "I", "A", "B", kNone, 2, 30, "");
  EXPECT_EQ(result, (platform::List{"A", std::int64_t{0}}));
  // Ticked, and then nobody answers.
  const auto clock = waitForGrab();
  robot("click checkbox;" + grab());
  result = alertGiveUpWithCheckbox("M", "I", "A", kNone, kNone, 2, 1, "Do not ask again");
  EXPECT_EQ(result, (platform::List{"A", std::int64_t{1}}));
}

TEST_P(WindowsTest, TheFieldIsRead) {
  robot("type new words;key Return");
  EXPECT_EQ(alertTextField("M", "I", "old", kNone), "new words");
  robot("click button0");
  EXPECT_EQ(alertTextField("M", "I", "Été % &amp;", kNone), "Été % &amp;");
  robot("type x;click button1");
  EXPECT_EQ(alertTextField("M", "I", "old", "Annuler"), std::nullopt);
  robot("key Escape");
  EXPECT_EQ(alertTextField("M", "I", "old", kNone), std::nullopt);
  robot("type ;click button0");
  EXPECT_EQ(alertTextField("M", "I", "old", kNone), std::nullopt);
}

TEST_P(WindowsTest, UnexpectedAndSimpleAreModal) {
  robot("key Return");
  EXPECT_EQ(alertUnexpected("details"), platform::kAlertDefault);
  alertSimple("m", "i", 2);
  alertSheetSimple("m", "i", nullptr);
  EXPECT_EQ(log_.plain(), "");
}

TEST_P(WindowsTest, ASheetWithoutAWindowStaysItsTime) {
  const auto clock = waitForGrab();
  robot(grab() + ";click button0");
  const double seconds = secondsOf([] { alertSheetGiveUp("m", "i", "A", kNone, kNone, 0, 0, nullptr); });
  EXPECT_GE(seconds, 1.0);
  EXPECT_TRUE(log_.has("i = 0"));
  EXPECT_EQ(log_.plain(), "");
}

TEST_P(WindowsTest, AHelperThatDiesHandsOverToTheTerminal) {
  OptionalText answer;
  const char* end = platformName() == "xcb" ? "die" : "abort";
  const double seconds = secondsOf([&] { answer = giveUp(end, "A", "B", kNone, 3); });
  EXPECT_EQ(answer, "A");
  EXPECT_GE(seconds, 3.0);
  EXPECT_LT(seconds, 30.0);
  EXPECT_TRUE(log_.has("alert               :-/ no window, the text goes to the terminal"));
  EXPECT_TRUE(log_.has("FERMETURE AUTO      : TIMEOUT"));
  EXPECT_NE(log_.plain().find("Message\nInformative\n"), std::string::npos);
}

TEST_P(WindowsTest, AHelperThatHangsIsKilledAtTheEnd) {
  const auto clock = waitForGrab();
  const double seconds = secondsOf([&] { EXPECT_EQ(giveUp(grab() + ";hang", "A", "B", kNone, 1), "A"); });
  EXPECT_LT(seconds, 30.0);
}

/// A long text, and marks that a toolkit might take for its own, show as they are.
TEST_P(WindowsTest, LongTextsKeepTheButtonsInReach) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += "<b>line</b> & more\n";
  robot("click button0");
  EXPECT_EQ(alertGiveUp("M", text, "&A", "<i>B</i>", kNone, 2, 30), "&A");
  EXPECT_TRUE(log_.has("FERMETURE USER      : CLIC"));
}

class DisplayTest : public WindowsTest {};
INSTANTIATE_TEST_SUITE_P(Platforms, DisplayTest, ::testing::Values("xcb"),
                         [](const auto& parameter) { return std::string(parameter.param); });

TEST_P(DisplayTest, ADisplayThatGoesAwayHandsOverToTheTerminal) {
  OptionalText answer;
  std::thread end([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    display_->kill();
  });
  const double seconds = secondsOf([&] { answer = giveUp("", "A", "B", kNone, 2); });
  end.join();
  EXPECT_EQ(answer, "A");
  EXPECT_GE(seconds, 2.0);
  EXPECT_LT(seconds, 30.0);
  EXPECT_TRUE(log_.has("alert               :-/ no window, the text goes to the terminal"));
  EXPECT_NE(log_.plain().find("Message"), std::string::npos);
}

TEST_P(DisplayTest, WithoutATimeADisplayThatGoesAwayIsButtonOne) {
  std::thread end([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(800));
    display_->kill();
  });
  EXPECT_EQ(giveUp("", "A", "B", kNone, 0), "A");
  end.join();
  EXPECT_TRUE(log_.has("alert               :-/ nobody to answer 'Message', button 1"));
}

TEST_P(DisplayTest, AFrozenDisplayDoesNotHoldUpTheGiveUp) {
  display_->freeze();
  OptionalText answer;
  const double seconds = secondsOf([&] { answer = giveUp("", "A", "B", kNone, 1); });
  EXPECT_EQ(answer, "A");
  EXPECT_LT(seconds, 8.0);
}

TEST_P(DisplayTest, ATextThatNoWindowShowedGoesToTheTerminal) {
  display_->freeze();
  giveUp("", "A", "B", kNone, 1);
  EXPECT_TRUE(log_.has("alert               :-/ no window, the text goes to the terminal"));
  EXPECT_NE(log_.plain().find("Message\nInformative\n"), std::string::npos);
}

TEST_P(DisplayTest, ADisplayThatIsNotThere) {
  const Environment nowhere(Environment::Variables{{"DISPLAY", ":991"}});
  EXPECT_EQ(giveUp("", "A", "B", kNone, 0), "A");
  EXPECT_TRUE(log_.has("alert               :-/ no window, the text goes to the terminal"));
  EXPECT_TRUE(log_.has("alert               :-/ nobody to answer 'Message', button 1"));
}

TEST_P(DisplayTest, AWaylandThatCannotBeReached) {
  const Environment wayland(Environment::Variables{
      {"DISPLAY", std::nullopt}, {"WAYLAND_DISPLAY", "wayland-not-there"}, {"QT_QPA_PLATFORM", std::nullopt}});
  EXPECT_EQ(giveUp("", "A", "B", kNone, 0), "A");
  EXPECT_TRUE(log_.has("alert               :-/ nobody to answer 'Message', button 1"));
  const double seconds = secondsOf([&] { EXPECT_EQ(giveUp("", "A", "B", kNone, 1), "A"); });
  EXPECT_GE(seconds, 1.0);
}

TEST_P(DisplayTest, APlatformWithoutAScreenIsNoDisplay) {
  for (const char* platform : {"offscreen", "minimal"}) {
    const Environment unseen(
        Environment::Variables{{"QT_QPA_PLATFORM", platform}, {"QT_QPA_GENERIC_PLUGINS", std::nullopt}});
    log_.clear();
    EXPECT_EQ(giveUp("", "A", "B", kNone, 0), "A");
    EXPECT_TRUE(log_.has("alert               :-/ nobody to answer 'Message', button 1"));
  }
}

TEST_P(DisplayTest, WithoutThePlugInTheTextGoesToTheTerminal) {
  const testing::ScratchFolder empty;
  const Environment elsewhere(Environment::Variables{{"VISTRELLE_DIALOGS", empty.path()}});
  EXPECT_EQ(giveUp("", "A", "B", kNone, 0), "A");
  EXPECT_NE(log_.plain().find("  1) A  2) B\n"), std::string::npos);
}

TEST_P(DisplayTest, ADamagedPlugInIsNoPlugIn) {
  const testing::ScratchFolder folder;
  folder.write("vistrelle-dialogs-qt.so", "not a library");
  ASSERT_EQ(::symlink((std::string(kFiles) + "/vistrelle-dialog").c_str(), folder.file("vistrelle-dialog").c_str()), 0);
  const Environment elsewhere(Environment::Variables{{"VISTRELLE_DIALOGS", folder.path()}});
  EXPECT_EQ(giveUp("", "A", "B", kNone, 0), "A");
  EXPECT_NE(log_.plain().find("Message"), std::string::npos);
}

}  // namespace
}  // namespace vistrelle
