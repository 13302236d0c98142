#include <chrono>
#include <map>
#include <utility>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/dialogs/alert_state.h"
#include "vistrelle/platform/dialogs/dialog.h"

namespace vistrelle::platform {
namespace {

ModalResponse responseOfRole(ButtonRole role) {
  switch (role) {
    case ButtonRole::Default:
      return kAlertDefault;
    case ButtonRole::Alternate:
      return kAlertAlternate;
    case ButtonRole::Other:
      return kAlertOther;
  }
  return kAlertOther;
}

ModalResponse responseOfAction(ButtonAction action) {
  switch (action) {
    case ButtonAction::StopModal:
      return kModalStopped;
    case ButtonAction::AbortModal:
      return kModalAborted;
    case ButtonAction::StopModalWithCode:
      return kModalCode;
  }
  return kModalCode;
}

/// Shows by the helper, and by the terminal from the moment that the helper is of no use.
class SystemAlert final : public AlertDialog {
 public:
  explicit SystemAlert(AlertContent content) : content_(std::move(content)), buttons_(alertButtons(content_)) {}

  // The list of buttons follows from the content, so that there is nothing to lay out.
  bool answersLayout() const override { return true; }
  void layout() override {}
  bool answersPrepare() const override { return false; }
  void prepare() override {}

  std::vector<std::string> buttons() const override {
    std::vector<std::string> captions;
    for (const AlertButton& button : buttons_) captions.push_back(button.caption);
    return captions;
  }

  void setButtonAction(std::size_t position, ButtonAction action) override { actions_[position] = action; }

  void beginModalSession() override { show(); }

  ModalResponse runModalSession() override {
    handleLoss();
    const auto answer = state_->answer();
    if (!answer) return kModalContinue;
    const auto wired = actions_.find(answer->position);
    return wired == actions_.end() ? roleResponse(answer->position) : responseOfAction(wired->second);
  }

  const Signal& answered() const override { return state_->answered(); }
  void closeWindow() override {
    // A window that did not come up within the time has told nobody anything: its text must not be lost.
    const bool unseen = presenter_ && !onTerminal_ && !state_->shown() && !state_->answer();
    presenter_.reset();
    if (!unseen) return;
    log("alert               :-/ no window, the text goes to the terminal");
    presentOnTerminal(content_, state_);
  }
  void endModalSession() override { presenter_.reset(); }

  ModalResponse runModal() override {
    show();
    while (!state_->answer()) {
      state_->changed().waitReal(std::chrono::hours(1));
      if (handleLoss()) continue;
      if (!nobodyThere_) continue;
      log("alert               :-/ nobody to answer '{}', button 1", content_.message);
      break;
    }
    presenter_.reset();
    const auto answer = state_->answer();
    return answer ? roleResponse(answer->position) : kAlertDefault;
  }

  bool checkboxTicked() const override { return content_.checkbox && state_->ticked(); }

  std::string fieldText() const override {
    if (!content_.field) return "";
    const auto answer = state_->answer();
    return answer ? answer->field : content_.field->text;
  }

  OptionalText fieldPlaceholder() const override { return std::nullopt; }

 private:
  void show() {
    presenter_ = presentByHelper(content_, state_);
    onTerminal_ = !presenter_;
    if (onTerminal_) presenter_ = presentOnTerminal(content_, state_);
  }

  /// Goes over to the terminal when the window is lost, and notes when the terminal is; true when it went over.
  bool handleLoss() {
    if (!state_->takeLoss()) return false;
    if (onTerminal_) {
      nobodyThere_ = true;
      return false;
    }
    log("alert               :-/ no window, the text goes to the terminal");
    presenter_.reset();
    // An answer may have come with the last word of the helper.
    if (state_->answer()) return true;
    state_->takeLoss();
    onTerminal_ = true;
    presenter_ = presentOnTerminal(content_, state_);
    return true;
  }

  ModalResponse roleResponse(std::size_t position) const {
    return position < buttons_.size() ? responseOfRole(buttons_[position].role) : kAlertDefault;
  }

  const AlertContent content_;
  const std::vector<AlertButton> buttons_;
  std::map<std::size_t, ButtonAction> actions_;
  std::shared_ptr<AlertState> state_ = std::make_shared<AlertState>();
  std::unique_ptr<AlertPresenter> presenter_;
  bool onTerminal_ = false;
  bool nobodyThere_ = false;
};

/// A sheet without a parent: a window of its own, with nobody waiting for its answer.
class FreeSheet final : public Sheet {
 public:
  explicit FreeSheet(const AlertContent& content) : alert_(content) { alert_.beginModalSession(); }
  void orderOut() override {
    // Notices a window that was lost, so that its text is on the terminal at least.
    alert_.runModalSession();
    alert_.closeWindow();
  }
  void end() override { alert_.endModalSession(); }

 private:
  SystemAlert alert_;
};

class SystemDialogs final : public Dialogs {
 public:
  std::shared_ptr<AlertDialog> makeAlert(const AlertContent& content) override {
    return std::make_shared<SystemAlert>(content);
  }
  std::shared_ptr<Sheet> beginSheet(const AlertContent& content, const std::shared_ptr<Window>& parent) override {
    if (parent) return parent->beginSheet(content);
    return std::make_shared<FreeSheet>(content);
  }
};

std::shared_ptr<Dialogs> makeDefaultDialogs() {
  return std::make_shared<SystemDialogs>();
}

}  // namespace

Seam<Dialogs>& dialogs() {
  static auto* seam = new Seam<Dialogs>(makeDefaultDialogs);
  return *seam;
}

}  // namespace vistrelle::platform
