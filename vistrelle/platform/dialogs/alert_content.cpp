#include "vistrelle/platform/dialogs/alert_content.h"

namespace vistrelle::platform {

std::vector<AlertButton> alertButtons(const AlertContent& content) {
  std::vector<AlertButton> buttons{{ButtonRole::Default, content.defaultButton.value_or("OK")}};
  if (content.otherButton) buttons.push_back({ButtonRole::Other, *content.otherButton});
  if (content.alternateButton) buttons.push_back({ButtonRole::Alternate, *content.alternateButton});
  return buttons;
}

std::size_t cancelPosition(std::size_t buttons) {
  if (buttons >= 3) return 2;
  return buttons == 2 ? 1 : 0;
}

}  // namespace vistrelle::platform
