#include "vistrelle/platform/dialogs/qt/views.h"

#include <QApplication>
#include <QFrame>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>

namespace vistrelle::platform::qt {
namespace {

std::vector<std::shared_ptr<View>> childViews(QWidget* widget) {
  std::vector<std::shared_ptr<View>> views;
  if (!widget) return views;
  for (QWidget* child : widget->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)) {
    if (!child->isWindow()) views.push_back(makeView(child));
  }
  return views;
}

/// The level between a box and its controls, which this toolkit does not have.
class ContentView final : public View {
 public:
  explicit ContentView(QWidget* box) : box_(box) {}
  bool answersSetEnabled() const override { return false; }
  void setEnabled(bool /*enabled*/) override {}
  std::string className() const override { return "NSView"; }
  void setTextColour(ControlTextColour /*colour*/) override {}
  std::vector<std::shared_ptr<View>> subviews() const override { return childViews(box_); }

 private:
  QPointer<QWidget> box_;
};

class QtView final : public View {
 public:
  explicit QtView(QWidget* widget) : widget_(widget) {}

  bool answersSetEnabled() const override { return widget_ && !isBox() && !isPlainContainer(); }

  void setEnabled(bool enabled) override {
    if (widget_) widget_->setEnabled(enabled);
  }

  std::string className() const override {
    if (isBox()) return "NSBox";
    if (qobject_cast<QLineEdit*>(widget_.data()) || qobject_cast<QLabel*>(widget_.data())) return "NSTextField";
    return widget_ ? widget_->metaObject()->className() : "";
  }

  void setTextColour(ControlTextColour colour) override {
    if (!widget_) return;
    const auto group = colour == ControlTextColour::Enabled ? QPalette::Active : QPalette::Disabled;
    const QColor text = QApplication::palette(widget_).color(group, QPalette::Text);
    QPalette palette = widget_->palette();
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::WindowText, text);
    widget_->setPalette(palette);
  }

  std::vector<std::shared_ptr<View>> subviews() const override {
    if (isBox()) return {std::make_shared<ContentView>(widget_)};
    return childViews(widget_);
  }

 private:
  bool isBox() const { return qobject_cast<QGroupBox*>(widget_.data()) != nullptr; }
  /// A bare widget or frame only holds others; disabling it here would disable all of them.
  bool isPlainContainer() const {
    const QMetaObject* type = widget_->metaObject();
    return type == &QWidget::staticMetaObject || type == &QFrame::staticMetaObject;
  }

  QPointer<QWidget> widget_;
};

}  // namespace

std::shared_ptr<View> makeView(QWidget* widget) {
  return std::make_shared<QtView>(widget);
}

}  // namespace vistrelle::platform::qt
