// Alerts without a display: text on the terminal, and a person at its keyboard.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <string>

#include "tests/support/child.h"
#include "tests/support/display.h"
#include "tests/support/recording_log.h"
#include "tests/support/terminal_run.h"
#include "vistrelle/system/alerts.h"

namespace vistrelle {
namespace {

using platform::OptionalText;
using testing::Environment;
using testing::RecordingLog;
using testing::TerminalRun;

const OptionalText kNone;
/// A give-up time longer than a test waits for its result.
constexpr std::int64_t kLong = 600;

/// Holds a child process up until the test lets it pass.
class Gate {
 public:
  Gate() {
    if (::pipe(ends_) != 0) std::abort();
  }
  ~Gate() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  /// In the child; says on its terminal that it is there.
  void pass() const {
    char byte = 0;
    (void)!::write(STDERR_FILENO, "at the gate\n", 12);
    (void)!::read(ends_[0], &byte, 1);
  }
  void open() const { (void)!::write(ends_[1], "x", 1); }

 private:
  int ends_[2] = {-1, -1};
};

double secondsOf(const std::function<void()>& action) {
  const auto begin = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

class TerminalTest : public ::testing::Test {
 protected:
  static std::function<std::string()> giveUp(const OptionalText& b1, const OptionalText& b2, const OptionalText& b3,
                                             std::int64_t seconds) {
    return [=] { return alertGiveUp("Message", "Informative", b1, b2, b3, 2, seconds).value_or("(null)"); };
  }
  /// The result of a three-button alert after these keys.
  static std::string answerTo(const std::string& keys, std::int64_t seconds = kLong) {
    TerminalRun run(giveUp("A", "B", "C", seconds));
    EXPECT_TRUE(run.shows("3) C"));
    run.type(keys);
    return run.result();
  }

  Environment environment_{Environment::Variables{
      {"DISPLAY", std::nullopt}, {"WAYLAND_DISPLAY", std::nullopt}, {"QT_QPA_PLATFORM", std::nullopt}}};
};

TEST_F(TerminalTest, ShowsTheTextAndTheButtonsByNumber) {
  TerminalRun run(giveUp("A", "B", "C", kLong));
  EXPECT_TRUE(run.shows("[!] Message\r\nInformative\r\n  1) A  2) B  3) C\r\n"));
  run.type("1");
  EXPECT_EQ(run.result(), "A");
}

TEST_F(TerminalTest, DigitsAnswer) {
  EXPECT_EQ(answerTo("1"), "A");
  EXPECT_EQ(answerTo("2"), "B");
  EXPECT_EQ(answerTo("3"), "C");
  EXPECT_EQ(answerTo("2\r"), "B");
  EXPECT_EQ(answerTo("3", 0), "C");
}

TEST_F(TerminalTest, ReturnIsTheFirstButton) {
  EXPECT_EQ(answerTo("\r"), "A");
  EXPECT_EQ(answerTo("\n", 0), "A");
}

TEST_F(TerminalTest, EscapeIsTheCancelPosition) {
  EXPECT_EQ(answerTo("\x1b"), "B");
  // An arrow key begins with the same character and is no answer.
  EXPECT_EQ(answerTo("\x1b[A3"), "C");
}

TEST_F(TerminalTest, OtherKeysAreNoAnswer) {
  EXPECT_EQ(answerTo("x4905 3"), "C");
  TerminalRun one(giveUp("A", kNone, kNone, kLong));
  ASSERT_TRUE(one.shows("1) A"));
  one.type("2\x1b");
  EXPECT_EQ(one.result(), "A");
}

TEST_F(TerminalTest, KeysTypedAheadAnswer) {
  TerminalRun run(giveUp("A", "B", "C", kLong));
  run.type("2\n");
  EXPECT_EQ(run.result(), "B");
}

TEST_F(TerminalTest, AnAnswerEndsTheWaitAtOnce) {
  TerminalRun run(giveUp("A", "B", "C", kLong));
  ASSERT_TRUE(run.shows("3) C"));
  run.type("2");
  EXPECT_EQ(run.result(), "B");
}

TEST_F(TerminalTest, NobodyAnswersInTime) {
  TerminalRun run([] {
    std::string answer;
    const double seconds = secondsOf([&] { answer = giveUp("A", "B", "C", 1)(); });
    return answer + (seconds >= 1.0 ? " in time" : " early");
  });
  EXPECT_EQ(run.result(), "A in time");
  EXPECT_TRUE(run.shows("FERMETURE AUTO      : TIMEOUT"));
}

TEST_F(TerminalTest, TheTerminalIsLeftAsItWas) {
  const Gate gate;
  TerminalRun run([&gate] {
    alertGiveUp("First", kNone, "A", kNone, kNone, 0, kLong);
    gate.pass();
    return std::string("done");
  });
  ASSERT_TRUE(run.takesKeys());
  run.type("1");
  ASSERT_TRUE(run.shows("at the gate"));
  EXPECT_TRUE(run.isInLineMode());
  gate.open();
  EXPECT_EQ(run.result(), "done");
}

TEST_F(TerminalTest, TheReturnAfterADigitAnswersNothingElse) {
  const Gate gate;
  TerminalRun run([&gate] {
    const auto first = alertGiveUp("First", kNone, "A", "B", kNone, 0, kLong);
    gate.pass();
    return *first + *alertGiveUp("Second", kNone, "A", "B", kNone, 0, 1);
  });
  ASSERT_TRUE(run.shows("First\r\n  1) A  2) B"));
  run.type("2");
  ASSERT_TRUE(run.shows("at the gate\r\n"));
  run.type("\r");
  // Its echo: the terminal has it.
  ASSERT_TRUE(run.shows("at the gate\r\n\r\n"));
  gate.open();
  ASSERT_TRUE(run.shows("Second\r\n  1) A  2) B"));
  EXPECT_EQ(run.result(), "BA");
  EXPECT_TRUE(run.shows("TIMEOUT"));
}

TEST_F(TerminalTest, AReturnForTheNextAlertAnswersIt) {
  TerminalRun run([] {
    const auto first = alertGiveUp("First", kNone, "A", "B", kNone, 0, kLong);
    return *first + *alertGiveUp("Second", kNone, "A", "B", kNone, 0, kLong);
  });
  ASSERT_TRUE(run.shows("First\r\n  1) A  2) B"));
  run.type("2");
  ASSERT_TRUE(run.shows("Second\r\n  1) A  2) B"));
  // What was typed before it took keys may be the Return of the digit; this one comes after that was looked for.
  ASSERT_TRUE(run.takesKeys());
  ::usleep(200000);
  run.type("\r");
  EXPECT_EQ(run.result(), "BA");
  EXPECT_EQ(run.screen().find("TIMEOUT"), std::string::npos);
}

TEST_F(TerminalTest, TheBackgroundIsNotAsked) {
  TerminalRun waiting(giveUp("A", "B", "C", 0), TerminalRun::Group::Background);
  EXPECT_EQ(waiting.result(), "A");
  EXPECT_TRUE(waiting.shows("alert               :-/ nobody to answer 'Message', button 1"));

  TerminalRun run(giveUp("A", "B", "C", 1), TerminalRun::Group::Background);
  ASSERT_TRUE(run.shows("3) C"));
  run.type("2\n");
  EXPECT_EQ(run.result(), "A");
  EXPECT_TRUE(run.shows("TIMEOUT"));
}

TEST_F(TerminalTest, WithoutAThreadToListenNobodyIsAsked) {
  TerminalRun run([] {
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_NPROC, &none);
    testing::becomeNobody();
    return giveUp("A", "B", "C", 0)();
  });
  EXPECT_EQ(run.result(), "A");
  EXPECT_TRUE(run.shows("alert               :-/ nobody to answer 'Message', button 1")) << run.screen();
}

TEST_F(TerminalTest, TheTextGoesToTheTerminalWhenStandardErrorDoesNot) {
  TerminalRun run(giveUp("A", "B", "C", kLong), TerminalRun::Group::Foreground, false);
  EXPECT_TRUE(run.shows("3) C"));
  run.type("3");
  EXPECT_EQ(run.result(), "C");
}

TEST_F(TerminalTest, NothingThatATerminalObeysIsShown) {
  TerminalRun run([] {
    return alertGiveUp(
               "\x1b]0;title\x07 \xC2\x9B"
               "2J \x9B"
               "31m é",
               "a\rb\tc\nd", "A\x1b[H", kNone, kNone, 0, 1)
        .value_or("");
  });
  EXPECT_TRUE(run.shows("[i] ?]0;title? ?2J ?31m é\r\na?b\tc\r\nd\r\n  1) A?[H\r\n"));
  EXPECT_EQ(run.result(), "A\x1b[H");
}

std::string textField() {
  return alertTextField("Name", kNone, "old", kNone).value_or("(null)");
}

TEST_F(TerminalTest, ALineIsTheText) {
  TerminalRun run(textField);
  ASSERT_TRUE(run.shows("  1) OK  2) Cancel\r\n[old] "));
  run.type(
      "Étx\x7f"
      "é\n");
  EXPECT_EQ(run.result(), "Été");
}

TEST_F(TerminalTest, AnEmptyLineIsTheInitialText) {
  TerminalRun run(textField);
  ASSERT_TRUE(run.shows("[old] "));
  run.type("\n");
  EXPECT_EQ(run.result(), "old");
}

TEST_F(TerminalTest, EndOfInputCancels) {
  TerminalRun run(textField);
  ASSERT_TRUE(run.shows("[old] "));
  run.type("\x04");
  EXPECT_EQ(run.result(), "(null)");
}

TEST_F(TerminalTest, TheCheckboxStaysUnticked) {
  TerminalRun run([] {
    const auto result = alertGiveUpWithCheckbox("Message", kNone, "A", "B", kNone, 0, kLong, "Never again");
    return *result[0].get<std::string>() + std::to_string(*result[1].get<std::int64_t>());
  });
  ASSERT_TRUE(run.shows("[ ] Never again\r\n  1) A  2) B"));
  run.type("2");
  EXPECT_EQ(run.result(), "B0");
}

/// Without a terminal of any kind.
class NobodyTest : public TerminalTest {
 protected:
  NobodyTest() { testing::leaveTerminal(); }
};

TEST_F(NobodyTest, WithoutATimeTheFirstButtonAtOnce) {
  RecordingLog log;
  EXPECT_LT(secondsOf([&] { EXPECT_EQ(giveUp("A", "B", "C", 0)(), "A"); }), 20.0);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"alert               :-/ nobody to answer 'Message', button 1"});
  EXPECT_EQ(log.plain(), "[!] Message\nInformative\n  1) A  2) B  3) C\n");
  EXPECT_EQ(textField(), "old");
  alertSimple("m", "i", 0);
  EXPECT_EQ(alertUnexpected("x"), platform::kAlertDefault);
}

TEST_F(NobodyTest, TheGiveUpTimeHolds) {
  RecordingLog log;
  const double seconds = secondsOf([&] { EXPECT_EQ(giveUp("A", "B", "C", 1)(), "A"); });
  EXPECT_GE(seconds, 1.0);
  EXPECT_LT(seconds, 20.0);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"FERMETURE AUTO      : TIMEOUT"});
}

}  // namespace
}  // namespace vistrelle
