#include "vistrelle/system/alerts.h"

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/system/alert_session.h"
#include "vistrelle/system/localisation.h"

namespace vistrelle {

using platform::AlertContent;
using platform::OptionalText;

namespace {

constexpr std::int64_t kCriticalStyle = 2;

/// Every "%" doubled. What reaches the screen is not a format any more, so the sign shows doubled: intended.
std::string escapedPercents(const OptionalText& text) {
  std::string escaped;
  for (const char character : text.value_or("")) escaped.append(character == '%' ? 2 : 1, character);
  return escaped;
}

bool isEmpty(const OptionalText& title) {
  return !title || title->empty();
}

/// The titles that make buttons, where the empty text counts as absent and each needs the one before it.
void setChainedButtons(AlertContent& content, const OptionalText& button1, const OptionalText& button2,
                       const OptionalText& button3) {
  if (isEmpty(button1)) return;
  content.defaultButton = button1;
  if (isEmpty(button2)) return;
  content.alternateButton = button2;
  if (!isEmpty(button3)) content.otherButton = button3;
}

/// Which of the three titles a response of the modal session chooses.
int buttonOfSession(platform::ModalResponse response) {
  if (response == platform::kModalAborted) return 2;
  return response == platform::kModalStopped ? 1 : 3;
}

int buttonOfModal(platform::ModalResponse response) {
  if (response == platform::kAlertDefault) return 1;
  return response == platform::kAlertAlternate ? 2 : 3;
}

const OptionalText& titleOf(int button, const OptionalText& button1, const OptionalText& button2,
                            const OptionalText& button3) {
  if (button == 1) return button1;
  return button == 2 ? button2 : button3;
}

OptionalText giveUpAnswer(int button, const OptionalText& title) {
  // The mixed languages are intended.
  static constexpr const char* kWords[] = {"OK", "Button 2", "Bouton 3"};
  if (title && title->empty()) return kWords[button - 1];
  return title;
}

std::string checkboxAnswer(int button, const OptionalText& title) {
  static constexpr const char* kWords[] = {"button 1", "button 2", "button 3"};
  return title.value_or(kWords[button - 1]);
}

void logCheckboxAnswer(const std::string& answer, const OptionalText& button1, const OptionalText& button2,
                       const OptionalText& button3) {
  const auto named = [](const char* name, const OptionalText& title) {
    return title ? std::string(" (") + name + "=" + *title + ")" : std::string();
  };
  log("bt                  ? {}{}{}{}", answer, named("btDefault", button1), named("btAlt", button2),
      named("btOther", button3));
}

/// The one list of both texts' alerts; the buttons are the caller's.
AlertContent escapedContent(const OptionalText& message, const OptionalText& informative, std::int64_t style) {
  AlertContent content;
  content.message = escapedPercents(message);
  content.informative = escapedPercents(informative);
  content.critical = style == kCriticalStyle;
  return content;
}

}  // namespace

OptionalText alertGiveUp(const OptionalText& message, const OptionalText& informative, const OptionalText& button1,
                         const OptionalText& button2, const OptionalText& button3, std::int64_t style,
                         std::int64_t seconds) {
  AlertContent content = escapedContent(message, informative, style);
  setChainedButtons(content, button1, button2, button3);
  const auto alert = platform::dialogs().get()->makeAlert(content);
  logVerbose("giveUpAfterSeconds  : {}", seconds);

  int button = 1;
  if (seconds <= 0) {
    logVerbose("ALERTE NORMALE");
    button = buttonOfModal(alert->runModal());
  } else if (const SessionEnd end = runAlertSession(*alert, seconds); end.timedOut) {
    log("FERMETURE AUTO      : TIMEOUT");
  } else {
    logVerbose("FERMETURE USER      : CLIC");
    button = buttonOfSession(end.response);
  }
  return giveUpAnswer(button, titleOf(button, button1, button2, button3));
}

platform::List alertGiveUpWithCheckbox(const OptionalText& message, const OptionalText& informative,
                                       const OptionalText& button1, const OptionalText& button2,
                                       const OptionalText& button3, std::int64_t style, std::int64_t seconds,
                                       const OptionalText& checkbox) {
  AlertContent content = escapedContent(message, informative, style);
  // Unlike alertGiveUp: an empty title is a button without a caption.
  content.defaultButton = button1;
  content.alternateButton = button2;
  content.otherButton = button3;
  if (checkbox) content.checkbox = escapedPercents(checkbox);
  const auto alert = platform::dialogs().get()->makeAlert(content);
  logVerbose("giveUpAfterSeconds  : {}", seconds);

  int button = 1;
  const SessionEnd end = runAlertSession(*alert, seconds == 0 ? 10 : seconds);
  if (end.timedOut) {
    log("FERMETURE AUTO      : TIMEOUT");
  } else {
    log("FERMETURE USER      : CLIC={}", end.response);
    button = buttonOfSession(end.response);
  }
  const std::string answer = checkboxAnswer(button, titleOf(button, button1, button2, button3));
  logCheckboxAnswer(answer, button1, button2, button3);
  const bool ticked = checkbox && alert->checkboxTicked();
  return {answer, std::int64_t{ticked ? 1 : 0}};
}

void alertSheetGiveUp(const OptionalText& message, const OptionalText& informative, const OptionalText& button1,
                      const OptionalText& button2, const OptionalText& button3, std::int64_t /*ignored*/,
                      std::int64_t seconds, const std::shared_ptr<platform::Window>& parent) {
  AlertContent content;
  content.message = message.value_or("");
  content.informative = escapedPercents(informative);
  setChainedButtons(content, button1, button2, button3);
  const auto sheet = platform::dialogs().get()->beginSheet(content, parent);
  log("giveUpAfterSeconds : {}", seconds);
  holdSheet(seconds);
  sheet->orderOut();
  sheet->end();
}

void alertSheetSimple(const OptionalText& title, const OptionalText& message,
                      const std::shared_ptr<platform::Window>& parent) {
  // No style is given, so the plain one.
  alertSimple(title, message, 0, parent);
}

void alertSimple(const OptionalText& message, const OptionalText& informative, std::int64_t style,
                 const std::shared_ptr<platform::Window>& parent) {
  AlertContent content;
  content.message = message.value_or("");
  content.informative = informative.value_or("");
  content.critical = style == kCriticalStyle;
  const auto dialogs = platform::dialogs().get();
  if (parent) {
    dialogs->beginSheet(content, parent);
  } else {
    dialogs->makeAlert(content)->runModal();
  }
}

OptionalText alertTextField(const OptionalText& message, const OptionalText& informative, const OptionalText& initial,
                            const OptionalText& cancel) {
  AlertContent content;
  content.message = message.value_or("");
  content.informative = informative.value_or("");
  content.alternateButton = cancel.value_or("Cancel");
  content.field = platform::AlertField{initial.value_or(""), 300, 40};
  const auto alert = platform::dialogs().get()->makeAlert(content);
  if (alert->runModal() == platform::kAlertAlternate) return std::nullopt;
  std::string entered = alert->fieldText();
  if (entered.empty()) return alert->fieldPlaceholder();
  return entered;
}

platform::ModalResponse alertUnexpected(const OptionalText& informative) {
  const bool french =
      isLocalized("D_Langue") && platform::mainBundle().get()->localizedString("D_Langue", "", "Localized") == "fra";
  // One ends with the ellipsis character, the other with three full stops: intended.
  const char* words = french ? "Vous n'auriez pas du voir cette alerte apparaître. Merci d'en faire une capture (et de "
                               "préparer -en plus- une capture de l'application…)"
                             : "You would not have to see this alert. Thanks to make a screenshot of it (and to "
                               "prepare a screenshot of the application...)";
  AlertContent content;
  content.message = std::string(":-(\n") + words;
  content.informative = informative.value_or("");
  content.critical = true;
  return platform::dialogs().get()->makeAlert(content)->runModal();
}

}  // namespace vistrelle
