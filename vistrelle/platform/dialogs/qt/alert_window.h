#pragma once

#include <QDialog>
#include <cstddef>
#include <functional>
#include <string>

#include "vistrelle/platform/dialogs/alert_content.h"

class QCheckBox;
class QLineEdit;
class QVBoxLayout;

namespace vistrelle::platform::qt {

/// The window of one alert. Its parts are found by their object names: "message", "informative", "checkbox", "field"
/// and "button0", "button1", "button2" by list position. The window stays until somebody takes it away.
class AlertWindow : public QDialog {
 public:
  /// Both may be empty. `onAnswer` gets the position of the clicked button, once or more often.
  struct Callbacks {
    std::function<void(std::size_t position)> onAnswer;
    std::function<void(bool ticked)> onTick;
  };
  AlertWindow(const AlertContent& content, QWidget* parent, Callbacks callbacks);

  bool ticked() const;
  std::string fieldText() const;

  /// Escape and the window's close button.
  void reject() override;

 private:
  void addTexts(const AlertContent& content, QVBoxLayout& column);
  void addInputs(const AlertContent& content, QVBoxLayout& column);
  void addButtons(const AlertContent& content, QVBoxLayout& column);

  Callbacks callbacks_;
  std::size_t buttons_ = 0;
  QCheckBox* checkbox_ = nullptr;
  QLineEdit* field_ = nullptr;
};

}  // namespace vistrelle::platform::qt
