#include "vistrelle/system/alerts.h"

#include <gtest/gtest.h>

#include "tests/support/recording_log.h"
#include "tests/support/scripted_dialogs.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/bundle/bundle.h"

namespace vistrelle {
namespace {

using platform::ButtonAction;
using platform::OptionalText;
using std::chrono::microseconds;
using testing::RecordingLog;
using testing::ScriptedDialogs;
using Calls = std::vector<std::string>;

const OptionalText kNone;

class AlertsTest : public ::testing::Test {
 protected:
  OptionalText giveUp(const OptionalText& b1, const OptionalText& b2, const OptionalText& b3, std::int64_t seconds,
                      std::int64_t style = 0) {
    return alertGiveUp("message", "informative", b1, b2, b3, style, seconds);
  }
  std::string answerOf(const platform::List& list) const { return *list.at(0).get<std::string>(); }
  std::int64_t stateOf(const platform::List& list) const { return *list.at(1).get<std::int64_t>(); }
  platform::List withCheckbox(const OptionalText& b1, const OptionalText& b2, const OptionalText& b3,
                              std::int64_t seconds, const OptionalText& checkbox) {
    return alertGiveUpWithCheckbox("message", "informative", b1, b2, b3, 0, seconds, checkbox);
  }

  std::shared_ptr<platform::FakeClock> clock_ = std::make_shared<platform::FakeClock>();
  platform::Installed<platform::Clock> installedClock_{platform::clock(), clock_};
  std::shared_ptr<ScriptedDialogs> dialogs_ = std::make_shared<ScriptedDialogs>();
  platform::Installed<platform::Dialogs> installedDialogs_{platform::dialogs(), dialogs_};
};

TEST_F(AlertsTest, GivesButtonOneAfterTheTime) {
  RecordingLog log;
  EXPECT_EQ(giveUp("Yes", "No", kNone, 3), "Yes");
  EXPECT_EQ(log.lines(), Calls{"FERMETURE AUTO      : TIMEOUT"});
  // 0.1 in single precision is counted 31 times before 3 is reached.
  EXPECT_EQ(dialogs_->passes, 31);
  EXPECT_EQ(clock_->elapsed(), microseconds(3100000));
  EXPECT_EQ(dialogs_->calls, (Calls{"layout", "begin", "close", "end"}));
}

TEST_F(AlertsTest, CountsInSinglePrecision) {
  RecordingLog log;
  giveUp(kNone, kNone, kNone, 1);
  EXPECT_EQ(dialogs_->passes, 10);
  dialogs_->passes = 0;
  giveUp(kNone, kNone, kNone, 60);
  EXPECT_EQ(dialogs_->passes, 601);
}

TEST_F(AlertsTest, AnEmptyFirstTitleIsTheFallbackWord) {
  RecordingLog log;
  EXPECT_EQ(giveUp("", kNone, kNone, 3), "OK");
  EXPECT_FALSE(dialogs_->contents[0].defaultButton);
}

TEST_F(AlertsTest, NoTitleGivesNothing) {
  RecordingLog log;
  EXPECT_EQ(giveUp(kNone, kNone, kNone, 60, 2), std::nullopt);
  EXPECT_TRUE(dialogs_->contents[0].critical);
  EXPECT_EQ(platform::alertButtons(dialogs_->contents[0]).size(), 1U);
  dialogs_->script.pass = 1;
  EXPECT_EQ(giveUp(kNone, kNone, kNone, 60, 2), std::nullopt);
}

TEST_F(AlertsTest, OnlyStyleTwoIsCritical) {
  RecordingLog log;
  for (const std::int64_t style : {-1, 0, 1, 3}) {
    giveUp("A", kNone, kNone, 1, style);
    EXPECT_FALSE(dialogs_->contents.back().critical) << style;
  }
}

TEST_F(AlertsTest, OfTwoButtonsTheSecondIsButtonTwo) {
  RecordingLog log(true);
  dialogs_->script.pass = 4;
  dialogs_->script.position = 1;
  EXPECT_EQ(giveUp("A", "B", kNone, 3), "B");
  EXPECT_EQ(log.lines(), (Calls{"giveUpAfterSeconds  : 3", "FERMETURE USER      : CLIC"}));
  EXPECT_EQ(dialogs_->actions,
            (std::map<std::size_t, ButtonAction>{{0, ButtonAction::StopModal}, {1, ButtonAction::AbortModal}}));
  EXPECT_EQ(clock_->elapsed(), microseconds(300000));
  EXPECT_EQ(dialogs_->calls, (Calls{"layout", "begin", "close", "end"}));
}

TEST_F(AlertsTest, OfThreeButtonsThePositionDecides) {
  RecordingLog log;
  dialogs_->script.pass = 1;
  dialogs_->script.position = 2;
  EXPECT_EQ(giveUp("A", "B", "C", 3), "B");
  dialogs_->script.position = 1;
  EXPECT_EQ(giveUp("A", "B", "C", 3), "C");
  dialogs_->script.position = 0;
  EXPECT_EQ(giveUp("A", "B", "C", 3), "A");
  EXPECT_EQ(dialogs_->actions,
            (std::map<std::size_t, ButtonAction>{
                {0, ButtonAction::StopModal}, {1, ButtonAction::StopModalWithCode}, {2, ButtonAction::AbortModal}}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(AlertsTest, AnyOtherResponseIsButtonThree) {
  RecordingLog log;
  dialogs_->script.pass = 1;
  for (const platform::ModalResponse response : {1, 0, -1, -999, -1003, 77}) {
    dialogs_->script.response = response;
    EXPECT_EQ(giveUp("A", "B", "C", 3), "C") << response;
  }
}

TEST_F(AlertsTest, FallbackWordsOfEmptyTitles) {
  RecordingLog log;
  dialogs_->script.pass = 1;
  dialogs_->script.response = platform::kModalAborted;
  EXPECT_EQ(giveUp("A", "", kNone, 3), "Button 2");
  EXPECT_EQ(giveUp("A", kNone, kNone, 3), std::nullopt);
  dialogs_->script.response = platform::kModalCode;
  EXPECT_EQ(giveUp("A", "B", "", 3), "Bouton 3");
}

TEST_F(AlertsTest, EachButtonNeedsTheOneBefore) {
  RecordingLog log;
  giveUp(kNone, "B", "C", 1);
  giveUp("", "B", "C", 1);
  giveUp("A", kNone, "C", 1);
  giveUp("A", "", "C", 1);
  for (const auto& content : dialogs_->contents) {
    EXPECT_FALSE(content.alternateButton);
    EXPECT_FALSE(content.otherButton);
  }
}

TEST_F(AlertsTest, PercentSignsShowDoubled) {
  RecordingLog log;
  alertGiveUp("50% done", "%@ and 100%%", kNone, kNone, kNone, 0, 1);
  EXPECT_EQ(dialogs_->contents[0].message, "50%% done");
  EXPECT_EQ(dialogs_->contents[0].informative, "%%@ and 100%%%%");
  alertGiveUpWithCheckbox("50%", "5%", kNone, kNone, kNone, 0, 1, "never 1%");
  EXPECT_EQ(dialogs_->contents[1].message, "50%%");
  EXPECT_EQ(dialogs_->contents[1].informative, "5%%");
  EXPECT_EQ(dialogs_->contents[1].checkbox, "never 1%%");
}

TEST_F(AlertsTest, AbsentTextsAreEmpty) {
  RecordingLog log;
  alertGiveUp(kNone, kNone, kNone, kNone, kNone, 0, 1);
  EXPECT_EQ(dialogs_->contents[0].message, "");
  EXPECT_EQ(dialogs_->contents[0].informative, "");
}

TEST_F(AlertsTest, WithoutATimeItWaitsForTheUser) {
  RecordingLog log(true);
  EXPECT_EQ(giveUp("A", "B", "C", 0), "A");
  dialogs_->script.modal = platform::kAlertAlternate;
  EXPECT_EQ(giveUp("A", "B", "C", -5), "B");
  dialogs_->script.modal = platform::kAlertOther;
  EXPECT_EQ(giveUp("A", "B", "C", 0), "C");
  EXPECT_EQ(log.lines(), (Calls{"giveUpAfterSeconds  : 0", "ALERTE NORMALE", "giveUpAfterSeconds  : -5",
                                "ALERTE NORMALE", "giveUpAfterSeconds  : 0", "ALERTE NORMALE"}));
  EXPECT_EQ(dialogs_->calls, (Calls{"runModal", "runModal", "runModal"}));
  EXPECT_TRUE(dialogs_->actions.empty());
}

TEST_F(AlertsTest, AnAlertWithoutLayoutIsPreparedOrShownAsItIs) {
  RecordingLog log;
  dialogs_->script.answersLayout = false;
  giveUp("A", "B", "C", 1);
  EXPECT_EQ(dialogs_->calls, (Calls{"prepare", "begin", "close", "end"}));
  EXPECT_EQ(dialogs_->actions.size(), 3U);

  dialogs_->calls.clear();
  dialogs_->actions.clear();
  dialogs_->script.answersPrepare = false;
  dialogs_->script.buttonsWithoutLayout = 0;
  EXPECT_EQ(giveUp("A", "B", "C", 1), "A");
  EXPECT_EQ(dialogs_->calls, (Calls{"begin", "close", "end"}));
  EXPECT_TRUE(dialogs_->actions.empty());

  dialogs_->script.buttonsWithoutLayout = 2;
  giveUp("A", "B", "C", 1);
  EXPECT_EQ(dialogs_->actions,
            (std::map<std::size_t, ButtonAction>{{0, ButtonAction::StopModal}, {1, ButtonAction::AbortModal}}));
}

TEST_F(AlertsTest, WithCheckboxZeroSecondsAreTen) {
  RecordingLog log;
  const auto result = withCheckbox("A", kNone, kNone, 0, "Never again");
  EXPECT_EQ(answerOf(result), "A");
  EXPECT_EQ(stateOf(result), 0);
  EXPECT_EQ(dialogs_->passes, 100);
  EXPECT_EQ(clock_->elapsed(), microseconds(10000000));
  EXPECT_EQ(log.lines(), (Calls{"FERMETURE AUTO      : TIMEOUT", "bt                  ? A (btDefault=A)"}));
  EXPECT_EQ(dialogs_->calls, (Calls{"layout", "begin", "close", "end", "checkbox"}));
}

TEST_F(AlertsTest, WithCheckboxTheTimeIsLoggedAsGivenWhenVerbose) {
  RecordingLog log(true);
  withCheckbox("A", kNone, kNone, 0, kNone);
  EXPECT_EQ(log.lines(), (Calls{"giveUpAfterSeconds  : 0", "FERMETURE AUTO      : TIMEOUT",
                                "bt                  ? A (btDefault=A)"}));
}

TEST_F(AlertsTest, WithCheckboxNegativeSecondsEndAtOnce) {
  RecordingLog log;
  EXPECT_EQ(answerOf(withCheckbox(kNone, kNone, kNone, -1, kNone)), "button 1");
  EXPECT_EQ(dialogs_->passes, 0);
}

TEST_F(AlertsTest, WithCheckboxAnAnswerIsAlwaysLogged) {
  RecordingLog log;
  dialogs_->script.pass = 2;
  dialogs_->script.position = 2;
  dialogs_->script.ticked = true;
  const auto result = withCheckbox("A", "B", "C", 5, "Never again");
  EXPECT_EQ(answerOf(result), "B");
  EXPECT_EQ(stateOf(result), 1);
  EXPECT_EQ(log.lines(),
            (Calls{"FERMETURE USER      : CLIC=-1001", "bt                  ? B (btDefault=A) (btAlt=B) (btOther=C)"}));
}

TEST_F(AlertsTest, WithCheckboxFallbackWords) {
  RecordingLog log;
  dialogs_->script.pass = 1;
  dialogs_->script.response = platform::kModalStopped;
  EXPECT_EQ(answerOf(withCheckbox(kNone, "B", kNone, 5, kNone)), "button 1");
  dialogs_->script.response = platform::kModalAborted;
  EXPECT_EQ(answerOf(withCheckbox("A", kNone, kNone, 5, kNone)), "button 2");
  dialogs_->script.response = 12;
  EXPECT_EQ(answerOf(withCheckbox("A", "B", kNone, 5, kNone)), "button 3");
  EXPECT_TRUE(log.has("bt                  ? button 1 (btAlt=B)"));
  EXPECT_TRUE(log.has("bt                  ? button 3 (btDefault=A) (btAlt=B)"));
  EXPECT_TRUE(log.has("FERMETURE USER      : CLIC=12"));
}

TEST_F(AlertsTest, WithCheckboxEmptyTitlesAreTitles) {
  RecordingLog log;
  dialogs_->script.pass = 1;
  dialogs_->script.position = 1;
  EXPECT_EQ(answerOf(withCheckbox("A", "", kNone, 5, "")), "");
  EXPECT_EQ(dialogs_->contents[0].alternateButton, "");
  EXPECT_EQ(dialogs_->contents[0].checkbox, "");
  EXPECT_TRUE(log.has("bt                  ?  (btDefault=A) (btAlt=)"));
}

TEST_F(AlertsTest, WithoutACheckboxItsStateIsNotRead) {
  RecordingLog log;
  dialogs_->script.ticked = true;
  EXPECT_EQ(stateOf(withCheckbox("A", kNone, kNone, 1, kNone)), 0);
  EXPECT_EQ(dialogs_->calls, (Calls{"layout", "begin", "close", "end"}));
}

class FakeWindow : public platform::Window {
 public:
  std::shared_ptr<platform::Sheet> beginSheet(const platform::AlertContent&) override { return nullptr; }
};

TEST_F(AlertsTest, ASheetIsHeldAndRemoved) {
  RecordingLog log;
  const auto window = std::make_shared<FakeWindow>();
  alertSheetGiveUp("50%", "60%", "A", "", "C", 12, 2, window);
  EXPECT_EQ(log.lines(), (Calls{"giveUpAfterSeconds : 2", "i = 0", "i = 1", "i = 2"}));
  // One second, then twice one second since the last pass and one more.
  EXPECT_EQ(clock_->elapsed(), microseconds(5000000));
  EXPECT_EQ(dialogs_->sheetParent, window);
  EXPECT_EQ(dialogs_->calls, (Calls{"beginSheet", "orderOut", "endSheet"}));
  EXPECT_EQ(dialogs_->contents[0].message, "50%");
  EXPECT_EQ(dialogs_->contents[0].informative, "60%%");
  EXPECT_EQ(dialogs_->contents[0].defaultButton, "A");
  EXPECT_FALSE(dialogs_->contents[0].alternateButton);
  EXPECT_FALSE(dialogs_->contents[0].otherButton);
}

TEST_F(AlertsTest, ASheetForNegativeSecondsGoesAtOnce) {
  RecordingLog log;
  alertSheetGiveUp(kNone, kNone, kNone, kNone, kNone, 0, -1, std::make_shared<FakeWindow>());
  EXPECT_EQ(log.lines(), Calls{"giveUpAfterSeconds : -1"});
  EXPECT_EQ(dialogs_->calls, (Calls{"beginSheet", "orderOut", "endSheet"}));
}

TEST_F(AlertsTest, SimpleSheetsAreLeftToTheUser) {
  const auto window = std::make_shared<FakeWindow>();
  alertSheetSimple(kNone, kNone, window);
  EXPECT_EQ(dialogs_->calls, Calls{"beginSheet"});
  EXPECT_EQ(dialogs_->contents[0].message, "");
  EXPECT_EQ(dialogs_->contents[0].informative, "");
  alertSheetSimple("100%", "%@", window);
  EXPECT_EQ(dialogs_->contents[1].message, "100%");
  EXPECT_EQ(dialogs_->contents[1].informative, "%@");
  EXPECT_EQ(dialogs_->sheetParent, window);
  alertSimple("m", "i", 2, window);
  EXPECT_EQ(dialogs_->calls, (Calls{"beginSheet", "beginSheet", "beginSheet"}));
  EXPECT_TRUE(dialogs_->contents[2].critical);
}

TEST_F(AlertsTest, SimpleIsModalWithoutAWindow) {
  alertSimple("encoding", "100%", 2);
  EXPECT_EQ(dialogs_->calls, Calls{"runModal"});
  EXPECT_EQ(dialogs_->contents[0].message, "encoding");
  EXPECT_EQ(dialogs_->contents[0].informative, "100%");
  EXPECT_TRUE(dialogs_->contents[0].critical);
  EXPECT_EQ(platform::alertButtons(dialogs_->contents[0]).size(), 1U);
}

TEST_F(AlertsTest, TextFieldGivesTheText) {
  dialogs_->script.entered = "Été";
  EXPECT_EQ(alertTextField("m", "i", "before", "Annuler"), "Été");
  EXPECT_EQ(dialogs_->contents[0].alternateButton, "Annuler");
  EXPECT_FALSE(dialogs_->contents[0].defaultButton);
  ASSERT_TRUE(dialogs_->contents[0].field);
  EXPECT_EQ(dialogs_->contents[0].field->text, "before");
  EXPECT_EQ(dialogs_->contents[0].field->width, 300);
  EXPECT_EQ(dialogs_->contents[0].field->height, 40);
}

TEST_F(AlertsTest, TextFieldCancelledGivesNothing) {
  dialogs_->script.entered = "text";
  dialogs_->script.modal = platform::kAlertAlternate;
  EXPECT_EQ(alertTextField(kNone, kNone, kNone, kNone), std::nullopt);
  EXPECT_EQ(dialogs_->contents[0].alternateButton, "Cancel");
  EXPECT_EQ(dialogs_->contents[0].informative, "");
  EXPECT_EQ(dialogs_->contents[0].field->text, "");
}

TEST_F(AlertsTest, TextFieldLeftEmptyGivesThePlaceholder) {
  EXPECT_EQ(alertTextField("m", "i", "before", kNone), std::nullopt);
  dialogs_->script.placeholder = "Name";
  EXPECT_EQ(alertTextField("m", "i", "before", kNone), "Name");
}

/// A bundle whose table "Localized" knows D_Langue, and no other.
class LanguageBundle : public platform::Bundle {
 public:
  explicit LanguageBundle(OptionalText language) : language_(std::move(language)) {}
  OptionalText name() const override { return std::nullopt; }
  std::string resourcePath() const override { return "/"; }
  OptionalText pathForResource(std::string_view, std::string_view) const override { return std::nullopt; }
  std::string localizedString(std::string_view key, std::string_view fallback, std::string_view table) const override {
    if (language_ && key == "D_Langue" && table == "Localized") return *language_;
    return std::string(fallback.empty() ? key : fallback);
  }

 private:
  OptionalText language_;
};

TEST_F(AlertsTest, UnexpectedSpeaksFrenchWhereTheInterfaceDoes) {
  const platform::Installed<platform::Bundle> bundle(platform::mainBundle(), std::make_shared<LanguageBundle>("fra"));
  EXPECT_EQ(alertUnexpected("detail 5%"), platform::kAlertDefault);
  EXPECT_EQ(dialogs_->contents[0].message,
            ":-(\nVous n'auriez pas du voir cette alerte apparaître. Merci d'en faire une capture (et de préparer "
            "-en plus- une capture de l'application…)");
  EXPECT_EQ(dialogs_->contents[0].informative, "detail 5%");
  EXPECT_TRUE(dialogs_->contents[0].critical);
}

TEST_F(AlertsTest, UnexpectedSpeaksEnglishElsewhere) {
  dialogs_->script.modal = 7;
  for (const OptionalText& language : {OptionalText(), OptionalText("eng"), OptionalText("D_Langue")}) {
    const platform::Installed<platform::Bundle> bundle(platform::mainBundle(),
                                                       std::make_shared<LanguageBundle>(language));
    EXPECT_EQ(alertUnexpected(kNone), 7);
    EXPECT_EQ(dialogs_->contents.back().message,
              ":-(\nYou would not have to see this alert. Thanks to make a screenshot of it (and to prepare a "
              "screenshot of the application...)");
  }
}

}  // namespace
}  // namespace vistrelle
