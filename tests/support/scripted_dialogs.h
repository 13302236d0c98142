#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/dialogs/dialog.h"

namespace vistrelle::testing {

/// What a test says about the alerts to come.
struct AlertScript {
  /// The pass of the session (from 1) at which the button at `position` is clicked; 0: never.
  int pass = 0;
  std::size_t position = 0;
  /// A response that the session gives instead of the wired one.
  std::optional<platform::ModalResponse> response;
  platform::ModalResponse modal = platform::kAlertDefault;
  bool ticked = false;
  std::string entered;
  platform::OptionalText placeholder;
  bool answersLayout = true;
  bool answersPrepare = true;
  /// How many buttons are on the list before anything is laid out.
  std::optional<std::size_t> buttonsWithoutLayout;
};

/// Alerts that do as they are told and write down what is done to them.
class ScriptedDialogs : public platform::Dialogs, public std::enable_shared_from_this<ScriptedDialogs> {
 public:
  AlertScript script;
  std::vector<platform::AlertContent> contents;
  std::vector<std::string> calls;
  std::map<std::size_t, platform::ButtonAction> actions;
  std::shared_ptr<platform::Window> sheetParent;
  int passes = 0;

  std::shared_ptr<platform::AlertDialog> makeAlert(const platform::AlertContent& content) override {
    contents.push_back(content);
    return std::make_shared<Alert>(shared_from_this(), content);
  }

  std::shared_ptr<platform::Sheet> beginSheet(const platform::AlertContent& content,
                                              const std::shared_ptr<platform::Window>& parent) override {
    contents.push_back(content);
    sheetParent = parent;
    calls.emplace_back("beginSheet");
    return std::make_shared<ScriptedSheet>(shared_from_this());
  }

 private:
  class Alert : public platform::AlertDialog {
   public:
    Alert(std::shared_ptr<ScriptedDialogs> owner, platform::AlertContent content)
        : owner_(std::move(owner)), content_(std::move(content)) {}

    bool answersLayout() const override { return owner_->script.answersLayout; }
    void layout() override { laidOut("layout"); }
    bool answersPrepare() const override { return owner_->script.answersPrepare; }
    void prepare() override { laidOut("prepare"); }
    std::vector<std::string> buttons() const override {
      std::vector<std::string> captions;
      for (const auto& button : platform::alertButtons(content_)) captions.push_back(button.caption);
      if (!laidOut_ && owner_->script.buttonsWithoutLayout) captions.resize(*owner_->script.buttonsWithoutLayout);
      return captions;
    }
    void setButtonAction(std::size_t position, platform::ButtonAction action) override {
      owner_->actions[position] = action;
    }
    void beginModalSession() override { owner_->calls.emplace_back("begin"); }
    platform::ModalResponse runModalSession() override {
      ++owner_->passes;
      const AlertScript& script = owner_->script;
      if (script.pass == 0 || owner_->passes < script.pass) return platform::kModalContinue;
      if (script.response) return *script.response;
      switch (owner_->actions.at(script.position)) {
        case platform::ButtonAction::StopModal:
          return platform::kModalStopped;
        case platform::ButtonAction::AbortModal:
          return platform::kModalAborted;
        default:
          return platform::kModalCode;
      }
    }
    const platform::Signal& answered() const override { return signal_; }
    void closeWindow() override { owner_->calls.emplace_back("close"); }
    void endModalSession() override { owner_->calls.emplace_back("end"); }
    platform::ModalResponse runModal() override {
      owner_->calls.emplace_back("runModal");
      return owner_->script.modal;
    }
    bool checkboxTicked() const override {
      owner_->calls.emplace_back("checkbox");
      return owner_->script.ticked;
    }
    std::string fieldText() const override { return owner_->script.entered; }
    platform::OptionalText fieldPlaceholder() const override { return owner_->script.placeholder; }

   private:
    void laidOut(const char* how) {
      laidOut_ = true;
      owner_->calls.emplace_back(how);
    }
    std::shared_ptr<ScriptedDialogs> owner_;
    platform::AlertContent content_;
    platform::Signal signal_;
    bool laidOut_ = false;
  };

  class ScriptedSheet : public platform::Sheet {
   public:
    explicit ScriptedSheet(std::shared_ptr<ScriptedDialogs> owner) : owner_(std::move(owner)) {}
    void orderOut() override { owner_->calls.emplace_back("orderOut"); }
    void end() override { owner_->calls.emplace_back("endSheet"); }

   private:
    std::shared_ptr<ScriptedDialogs> owner_;
  };
};

}  // namespace vistrelle::testing
