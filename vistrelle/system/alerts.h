#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/dialogs/dialog.h"

#pragma GCC visibility push(default)

/// Alerts. All of them are for the main thread and block it while they are shown. Style 2 is the critical style, any
/// other value the plain one. Texts may be absent, which shows as empty.
namespace vistrelle {

/// A modal alert that closes itself after `seconds` without an answer (0 or less: it waits for the user). Returns the
/// title of the chosen button, button 1 on a timeout: "OK", "Button 2" or "Bouton 3" where the title is the empty
/// text, nothing where it is absent. Absent and empty titles make no button; 2 needs 1, and 3 needs 2.
/// Percent signs of both texts are shown doubled.
platform::OptionalText alertGiveUp(const platform::OptionalText& message, const platform::OptionalText& informative,
                                   const platform::OptionalText& button1, const platform::OptionalText& button2,
                                   const platform::OptionalText& button3, std::int64_t style, std::int64_t seconds);

/// The same with a checkbox (an absent title: none); 0 seconds stand for 10, and there is no form that waits for ever.
/// Returns two elements: the chosen button's title ("button 1", "button 2" or "button 3" where it is absent) and the
/// checkbox's state as a number, 1 when ticked, else 0.
platform::List alertGiveUpWithCheckbox(const platform::OptionalText& message, const platform::OptionalText& informative,
                                       const platform::OptionalText& button1, const platform::OptionalText& button2,
                                       const platform::OptionalText& button3, std::int64_t style, std::int64_t seconds,
                                       const platform::OptionalText& checkbox);

/// A sheet on `parent` that is shown for the given time and removed; a click does not shorten the time. `ignored` has
/// no effect.
void alertSheetGiveUp(const platform::OptionalText& message, const platform::OptionalText& informative,
                      const platform::OptionalText& button1, const platform::OptionalText& button2,
                      const platform::OptionalText& button3, std::int64_t ignored, std::int64_t seconds,
                      const std::shared_ptr<platform::Window>& parent);

/// A sheet on `parent` with the default button, left to the user; without a parent a modal alert.
void alertSheetSimple(const platform::OptionalText& title, const platform::OptionalText& message,
                      const std::shared_ptr<platform::Window>& parent);

/// An alert with the default button: a sheet on `parent`, or modal when there is none.
void alertSimple(const platform::OptionalText& message, const platform::OptionalText& informative, std::int64_t style,
                 const std::shared_ptr<platform::Window>& parent = {});

/// Asks for one line of text; nothing when cancelled. An absent cancel title is "Cancel".
platform::OptionalText alertTextField(const platform::OptionalText& message, const platform::OptionalText& informative,
                                      const platform::OptionalText& initial, const platform::OptionalText& cancel);

/// For situations that should never arise, in French where the interface is. Returns the modal response.
platform::ModalResponse alertUnexpected(const platform::OptionalText& informative);

/// Enables or disables a control, and in a box the controls of the box. Texts take the colour that goes with it.
void setControlsEnabled(const std::shared_ptr<platform::View>& view, bool enabled);

}  // namespace vistrelle

#pragma GCC visibility pop
