#include "vistrelle/platform/dialogs/qt/alert_window.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QStyle>
#include <QVBoxLayout>
#include <utility>

namespace vistrelle::platform::qt {
namespace {

constexpr int kTextWidth = 420;
constexpr int kIconSize = 48;

QString text(const std::string& utf8) {
  return QString::fromStdString(utf8);
}

/// A caption in which "&" is a letter, not a shortcut mark.
QString caption(const std::string& utf8) {
  return text(utf8).replace(QLatin1String("&"), QLatin1String("&&"));
}

/// The text with places to break in words that are wider than a line (paths, as a rule), which would widen the window
/// without a limit.
QString breakable(const std::string& utf8) {
  constexpr int kLongWord = 40;
  constexpr char16_t kZeroWidthSpace = 0x200B;
  QString result;
  int length = 0;
  for (const QChar character : text(utf8)) {
    length = character.isSpace() ? 0 : length + 1;
    if (length > kLongWord && !character.isLowSurrogate()) {
      result += QChar(kZeroWidthSpace);
      length = 1;
    }
    result += character;
  }
  return result;
}

QLabel* makeLabel(const std::string& words, const char* name) {
  auto* label = new QLabel;
  label->setObjectName(QLatin1String(name));
  label->setTextFormat(Qt::PlainText);
  label->setText(breakable(words));
  label->setWordWrap(true);
  label->setFixedWidth(kTextWidth);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  return label;
}

}  // namespace

AlertWindow::AlertWindow(const AlertContent& content, QWidget* parent, Callbacks callbacks)
    : QDialog(parent), callbacks_(std::move(callbacks)) {
  setWindowTitle(text(content.message.substr(0, content.message.find('\n'))));
  auto* row = new QHBoxLayout(this);
  auto* icon = new QLabel;
  const auto picture = content.critical ? QStyle::SP_MessageBoxCritical : QStyle::SP_MessageBoxInformation;
  icon->setPixmap(style()->standardIcon(picture).pixmap(kIconSize, kIconSize));
  row->addWidget(icon, 0, Qt::AlignTop);
  auto* column = new QVBoxLayout;
  row->addLayout(column, 1);
  addTexts(content, *column);
  addInputs(content, *column);
  addButtons(content, *column);
}

void AlertWindow::addTexts(const AlertContent& content, QVBoxLayout& column) {
  auto* texts = new QWidget;
  auto* inner = new QVBoxLayout(texts);
  inner->setContentsMargins(0, 0, 0, 0);
  QLabel* message = makeLabel(content.message, "message");
  QFont bold = message->font();
  bold.setBold(true);
  message->setFont(bold);
  inner->addWidget(message);
  if (!content.informative.empty()) inner->addWidget(makeLabel(content.informative, "informative"));
  // The buttons of a text that is taller than the screen must stay in reach.
  const int limit = screen() ? screen()->availableGeometry().height() / 2 : kTextWidth;
  if (inner->heightForWidth(kTextWidth) < limit) {
    column.addWidget(texts);
    return;
  }
  auto* scroll = new QScrollArea;
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setWidget(texts);
  scroll->setMinimumSize(kTextWidth + 2 * kIconSize, limit);
  column.addWidget(scroll);
}

void AlertWindow::addInputs(const AlertContent& content, QVBoxLayout& column) {
  if (content.field) {
    field_ = new QLineEdit(text(content.field->text));
    field_->setObjectName(QLatin1String("field"));
    field_->setFixedSize(static_cast<int>(content.field->width), static_cast<int>(content.field->height));
    column.addWidget(field_);
  }
  if (!content.checkbox) return;
  checkbox_ =
      new QCheckBox(content.checkbox->empty() ? tr("Do not show this message again") : caption(*content.checkbox));
  checkbox_->setObjectName(QLatin1String("checkbox"));
  connect(checkbox_, &QCheckBox::toggled, this, [this](bool on) {
    if (callbacks_.onTick) callbacks_.onTick(on);
  });
  column.addWidget(checkbox_);
}

void AlertWindow::addButtons(const AlertContent& content, QVBoxLayout& column) {
  const auto buttons = alertButtons(content);
  buttons_ = buttons.size();
  // Position 0, the default button, stands rightmost.
  auto* row = new QHBoxLayout;
  for (std::size_t position = 0; position < buttons_; ++position) {
    auto* button = new QPushButton(caption(buttons[position].caption));
    button->setObjectName(QStringLiteral("button%1").arg(position));
    button->setDefault(position == 0);
    connect(button, &QPushButton::clicked, this, [this, position] {
      if (callbacks_.onAnswer) callbacks_.onAnswer(position);
    });
    row->insertWidget(0, button);
  }
  row->insertStretch(0, 1);
  column.addLayout(row);
  // Return presses the button that has the focus, so it begins at the default one, or in the field.
  if (field_) {
    field_->setFocus();
  } else {
    findChild<QPushButton*>(QLatin1String("button0"))->setFocus();
  }
}

bool AlertWindow::ticked() const {
  return checkbox_ && checkbox_->isChecked();
}

std::string AlertWindow::fieldText() const {
  return field_ ? field_->text().toStdString() : std::string();
}

void AlertWindow::reject() {
  if (callbacks_.onAnswer) callbacks_.onAnswer(cancelPosition(buttons_));
}

}  // namespace vistrelle::platform::qt
