#pragma once

#include <QWidget>
#include <memory>

#include "vistrelle/platform/dialogs/dialog.h"

namespace vistrelle::platform::qt {

/// A widget in the terms of View. A group box is a box whose one subview, its content view, holds its child widgets;
/// it has no enabled state of its own, so that its controls keep theirs.
std::shared_ptr<View> makeView(QWidget* widget);

}  // namespace vistrelle::platform::qt
