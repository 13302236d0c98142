#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// An editable line in an alert; sizes in points.
struct AlertField {
  std::string text;
  double width = 300;
  double height = 40;
};

/// All that an alert shows, as plain text: nothing in it is markup or a shortcut mark.
struct AlertContent {
  std::string message;
  std::string informative;
  /// Absent: the platform's own caption, "OK". There is always a default button.
  OptionalText defaultButton;
  OptionalText alternateButton;
  OptionalText otherButton;
  bool critical = false;
  /// Absent: no checkbox. Empty: the platform's own title.
  OptionalText checkbox;
  std::optional<AlertField> field;
};

enum class ButtonRole { Default, Alternate, Other };

struct AlertButton {
  ButtonRole role;
  std::string caption;
};

/// The buttons by list position: default, other, alternate.
std::vector<AlertButton> alertButtons(const AlertContent& content);

/// The position that Escape and closing stand for: the alternate's place (2 of three or more buttons, 1 of two), or
/// the only button.
std::size_t cancelPosition(std::size_t buttons);

}  // namespace vistrelle::platform

#pragma GCC visibility pop
