#include "vistrelle/system/alerts.h"

namespace vistrelle {

void setControlsEnabled(const std::shared_ptr<platform::View>& view, bool enabled) {
  if (!view) return;
  if (view->answersSetEnabled()) view->setEnabled(enabled);
  const std::string name = view->className();
  if (name == "NSTextField") {
    view->setTextColour(enabled ? platform::ControlTextColour::Enabled : platform::ControlTextColour::Disabled);
  } else if (name == "NSBox") {
    // A box's subview is its content view; the controls are one level below. Other containers are not entered.
    for (const auto& content : view->subviews()) {
      for (const auto& control : content->subviews()) setControlsEnabled(control, enabled);
    }
  }
}

}  // namespace vistrelle
