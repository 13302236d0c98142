#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/dialogs/alert_content.h"

#pragma GCC visibility push(default)

/// Alerts as windows (or, without a display, as text on the terminal), and the little that is asked of views.
/// Everything here is for the main thread.
namespace vistrelle::platform {

/// What a modal session or a modal run answers.
using ModalResponse = std::int64_t;
inline constexpr ModalResponse kModalContinue = -1002;  ///< nobody has answered yet
inline constexpr ModalResponse kModalAborted = -1001;
inline constexpr ModalResponse kModalStopped = -1000;
/// What a button with `StopModalWithCode` answers: any code that is none of the above.
inline constexpr ModalResponse kModalCode = 1001;
/// What `runModal` answers, by the role of the button that was chosen.
inline constexpr ModalResponse kAlertDefault = 1;
inline constexpr ModalResponse kAlertAlternate = 0;
inline constexpr ModalResponse kAlertOther = -1;

/// What a click on a button does to the modal session.
enum class ButtonAction { StopModal, AbortModal, StopModalWithCode };

/// One alert. Escape and the closing of its window count as a click on the cancel position (see cancelPosition).
/// Objects are removed from the screen, at the latest, when the last owner lets go.
class AlertDialog {
 public:
  virtual ~AlertDialog() = default;

  /// Two ways of making the buttons before the alert is shown; an alert may know either, both or neither.
  virtual bool answersLayout() const = 0;
  virtual void layout() = 0;
  virtual bool answersPrepare() const = 0;
  virtual void prepare() = 0;

  /// The captions of the buttons in list order (default, other, alternate).
  virtual std::vector<std::string> buttons() const = 0;
  /// Replaces what the button at `position` does; without this a click answers as `runModal` does.
  virtual void setButtonAction(std::size_t position, ButtonAction action) = 0;

  /// Shows the alert's window. A session that was begun is ended by `endModalSession`, whatever happened between.
  virtual void beginModalSession() = 0;
  /// Lets the session work on what has come in; kModalContinue as long as nobody has answered. Never waits.
  virtual ModalResponse runModalSession() = 0;
  /// Set as soon as there is an answer to fetch, where the alert can tell by itself.
  virtual const Signal& answered() const = 0;
  virtual void closeWindow() = 0;
  virtual void endModalSession() = 0;

  /// Shows the alert and waits for an answer. Where nobody can answer, the default button at once, with a log line.
  virtual ModalResponse runModal() = 0;

  /// The state of the checkbox, false without one. Valid after the window has been closed, too.
  virtual bool checkboxTicked() const = 0;
  /// The text of the field, empty without one. Valid after the window has been closed, too.
  virtual std::string fieldText() const = 0;
  /// The grey text of the empty field, absent when there is none.
  virtual OptionalText fieldPlaceholder() const = 0;
};

/// An alert that hangs on a window and leaves the caller free; it answers nobody. Letting go of the object leaves the
/// sheet where it is: it goes with a click or with its window.
class Sheet {
 public:
  virtual ~Sheet() = default;
  /// Takes the sheet's window off the screen.
  virtual void orderOut() = 0;
  /// Gives its parent window back to the user.
  virtual void end() = 0;
};

/// A window of the host, by which its toolkit shows sheets.
class Window {
 public:
  virtual ~Window() = default;
  virtual std::shared_ptr<Sheet> beginSheet(const AlertContent& content) = 0;
};

/// The toolkit's colours for the text of a control.
enum class ControlTextColour { Enabled, Disabled };

/// One view of a window, in the terms that setControlsEnabled asks for.
class View {
 public:
  virtual ~View() = default;
  /// Whether `setEnabled` means something to it; plain containers answer no.
  virtual bool answersSetEnabled() const = 0;
  virtual void setEnabled(bool enabled) = 0;
  /// "NSTextField" for a text field or a label, "NSBox" for a titled box, anything else for the rest.
  virtual std::string className() const = 0;
  virtual void setTextColour(ControlTextColour colour) = 0;
  /// A box has one: its content view, which holds the controls.
  virtual std::vector<std::shared_ptr<View>> subviews() const = 0;
};

/// Where alerts come from.
class Dialogs {
 public:
  virtual ~Dialogs() = default;
  /// An alert that is not shown yet.
  virtual std::shared_ptr<AlertDialog> makeAlert(const AlertContent& content) = 0;
  /// Shows a sheet on `parent`; without one a free window that stays until its sheet is ordered out.
  virtual std::shared_ptr<Sheet> beginSheet(const AlertContent& content, const std::shared_ptr<Window>& parent) = 0;
};

/// The default shows windows by a helper process where there is a display, else text on the terminal.
Seam<Dialogs>& dialogs();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
