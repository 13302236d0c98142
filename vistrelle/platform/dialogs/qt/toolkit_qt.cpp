#include <QApplication>
#include <QPointer>
#include <QPushButton>
#include <map>
#include <optional>
#include <utility>

#include "vistrelle/platform/dialogs/qt/alert_window.h"
#include "vistrelle/platform/dialogs/qt/views.h"
#include "vistrelle/platform/dialogs/toolkit.h"

namespace vistrelle::platform::qt {
namespace {

/// An alert in the host's own process, for hosts that install this toolkit.
class QtAlert final : public AlertDialog {
 public:
  explicit QtAlert(AlertContent content) : content_(std::move(content)) {}
  ~QtAlert() override { remove(); }

  bool answersLayout() const override { return true; }
  void layout() override { window(); }
  bool answersPrepare() const override { return false; }
  void prepare() override {}

  std::vector<std::string> buttons() const override {
    std::vector<std::string> captions;
    for (const AlertButton& button : alertButtons(content_)) captions.push_back(button.caption);
    return captions;
  }

  void setButtonAction(std::size_t position, ButtonAction action) override { actions_[position] = action; }

  void beginModalSession() override {
    window().setWindowModality(Qt::ApplicationModal);
    window().show();
    window().raise();
    window().activateWindow();
  }

  ModalResponse runModalSession() override {
    if (!position_) QApplication::processEvents();
    // A window that went with something else answers as one that was closed.
    if (!position_ && !window_) position_ = cancelPosition(alertButtons(content_).size());
    return position_ ? response(*position_) : kModalContinue;
  }

  const Signal& answered() const override { return answered_; }
  void closeWindow() override { remove(); }
  void endModalSession() override { QApplication::processEvents(); }

  ModalResponse runModal() override {
    actions_.clear();
    beginModalSession();
    while (runModalSession() == kModalContinue) QApplication::processEvents(QEventLoop::WaitForMoreEvents);
    remove();
    endModalSession();
    return response(*position_);
  }

  bool checkboxTicked() const override { return ticked_; }
  std::string fieldText() const override {
    if (window_) return window_->fieldText();
    return field_;
  }
  OptionalText fieldPlaceholder() const override { return std::nullopt; }

 private:
  AlertWindow& window() {
    if (!window_) {
      window_ = new AlertWindow(content_, nullptr,
                                {[this](std::size_t position) {
                                   if (!position_) position_ = position;
                                   answered_.set();
                                 },
                                 [this](bool ticked) { ticked_ = ticked; }});
    }
    return *window_;
  }

  void remove() {
    if (!window_) return;
    field_ = window_->fieldText();
    delete window_.data();
  }

  ModalResponse response(std::size_t position) const {
    const auto wired = actions_.find(position);
    if (wired != actions_.end()) {
      if (wired->second == ButtonAction::StopModal) return kModalStopped;
      return wired->second == ButtonAction::AbortModal ? kModalAborted : kModalCode;
    }
    const ButtonRole role = alertButtons(content_).at(position).role;
    if (role == ButtonRole::Default) return kAlertDefault;
    return role == ButtonRole::Alternate ? kAlertAlternate : kAlertOther;
  }

  const AlertContent content_;
  std::map<std::size_t, ButtonAction> actions_;
  QPointer<AlertWindow> window_;
  std::optional<std::size_t> position_;
  bool ticked_ = false;
  std::string field_;
  Signal answered_;
};

class QtSheet final : public Sheet {
 public:
  explicit QtSheet(AlertWindow* window) : window_(window) {}
  void orderOut() override {
    if (window_) window_->hide();
  }
  // A hidden window-modal dialog blocks its parent no longer; its deletion is the end.
  void end() override {
    delete window_.data();
    QApplication::processEvents();
  }

 private:
  QPointer<AlertWindow> window_;
};

std::shared_ptr<Sheet> showSheet(const AlertContent& content, QWidget* parent) {
  auto holder = std::make_shared<QPointer<AlertWindow>>();
  auto* sheet = new AlertWindow(content, parent,
                                {[holder](std::size_t) {
                                   if (*holder) (*holder)->deleteLater();
                                   if (*holder) (*holder)->hide();
                                 },
                                 {}});
  *holder = sheet;
  sheet->setWindowModality(parent ? Qt::WindowModal : Qt::NonModal);
  sheet->show();
  // A caller that blocks from here on must find it painted.
  QApplication::processEvents();
  return std::make_shared<QtSheet>(holder->data());
}

class QtWindow final : public Window {
 public:
  explicit QtWindow(QWidget* window) : window_(window) {}
  std::shared_ptr<Sheet> beginSheet(const AlertContent& content) override { return showSheet(content, window_); }

 private:
  QPointer<QWidget> window_;
};

class QtToolkit final : public Toolkit {
 public:
  std::shared_ptr<AlertDialog> makeAlert(const AlertContent& content) override {
    return std::make_shared<QtAlert>(content);
  }
  std::shared_ptr<Sheet> beginSheet(const AlertContent& content, const std::shared_ptr<Window>& parent) override {
    return parent ? parent->beginSheet(content) : showSheet(content, nullptr);
  }
  std::shared_ptr<Window> window(void* widget) override {
    if (!widget) return nullptr;
    return std::make_shared<QtWindow>(static_cast<QWidget*>(widget));
  }
  std::shared_ptr<View> view(void* widget) override {
    return widget ? makeView(static_cast<QWidget*>(widget)) : nullptr;
  }
};

}  // namespace
}  // namespace vistrelle::platform::qt

extern "C" __attribute__((visibility("default"))) vistrelle::platform::Toolkit* vistrelleDialogsToolkit() {
  // Without one, the first widget would end the host.
  if (!qobject_cast<QApplication*>(QCoreApplication::instance())) return nullptr;
  return new vistrelle::platform::qt::QtToolkit;
}
