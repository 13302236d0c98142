// A host that has windows of its own: the plug-in in its process, sheets on its windows, its widgets as views.
#include "vistrelle/platform/dialogs/toolkit.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <QApplication>
#include <QDialog>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QVBoxLayout>
#include <functional>
#include <memory>

#include "tests/support/recording_log.h"
#include "vistrelle/system/alerts.h"

// The toolkit and its font library keep what they load until the process ends.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig\nleak:libQt6\nleak:libqoffscreen\nleak:libdbus\nleak:libglib\n";
}

namespace vistrelle {
namespace {

using platform::OptionalText;
using testing::RecordingLog;

const OptionalText kNone;

QApplication& application() {
  static int argc = 1;
  static char name[] = "host";
  static char* argv[] = {name, nullptr};
  static auto* made = new QApplication(argc, argv);
  return *made;
}

class ToolkitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    ::setenv("VISTRELLE_DIALOGS", VISTRELLE_DIALOG_FILES, 1);
    if (!QCoreApplication::instance()) {
      RecordingLog log;
      EXPECT_EQ(platform::loadToolkit(), nullptr);
      EXPECT_TRUE(log.has("dialogs             :-( the toolkit's application object is missing"));
    }
    application();
    QApplication::setQuitOnLastWindowClosed(false);
    toolkit_ = platform::loadToolkit();
    ASSERT_TRUE(toolkit_);
    former_ = platform::dialogs().install(toolkit_);
  }
  void TearDown() override { platform::dialogs().install(former_); }

  static QDialog* shownDialog() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      auto* dialog = qobject_cast<QDialog*>(widget);
      if (dialog && dialog->isVisible()) return dialog;
    }
    return nullptr;
  }

  /// Does this with the dialog as soon as it is on the screen.
  static void whenShown(const std::function<void(QDialog&)>& action) {
    QTimer::singleShot(20, [action] {
      if (QDialog* dialog = shownDialog()) {
        action(*dialog);
      } else {
        whenShown(action);
      }
    });
  }
  static void clickWhenShown(const char* part) {
    whenShown([part](QDialog& dialog) {
      QTest::mouseClick(dialog.findChild<QWidget*>(QLatin1String(part)), Qt::LeftButton);
    });
  }

  std::shared_ptr<platform::Toolkit> toolkit_;
  std::shared_ptr<platform::Dialogs> former_;
};

TEST_F(ToolkitTest, IsLoadedOnce) {
  EXPECT_EQ(platform::loadToolkit(), toolkit_);
}

TEST_F(ToolkitTest, NothingComesFromNothing) {
  EXPECT_EQ(toolkit_->window(nullptr), nullptr);
  EXPECT_EQ(toolkit_->view(nullptr), nullptr);
}

TEST_F(ToolkitTest, AlertsOfTheHostsOwnProcess) {
  RecordingLog log;
  clickWhenShown("button1");
  EXPECT_EQ(alertGiveUp("M", "I", "A", "B", "C", 2, 30), "C");
  clickWhenShown("button2");
  EXPECT_EQ(alertGiveUp("M", "I", "A", "B", "C", 2, 30), "B");
  clickWhenShown("button0");
  EXPECT_EQ(alertGiveUp("M", "I", "A", "B", "C", 2, 0), "A");
  whenShown([](QDialog& dialog) { QTest::keyClick(&dialog, Qt::Key_Escape); });
  EXPECT_EQ(alertGiveUp("M", "I", "A", "B", kNone, 2, 0), "B");
  EXPECT_EQ(alertGiveUp("M", "I", "A", kNone, kNone, 2, 1), "A");
  EXPECT_EQ(log.lines(), std::vector<std::string>{"FERMETURE AUTO      : TIMEOUT"});
  EXPECT_EQ(shownDialog(), nullptr);
}

TEST_F(ToolkitTest, TheTextsAreShownAsTheyAre) {
  RecordingLog log;
  QString message;
  QString informative;
  QString button;
  whenShown([&](QDialog& dialog) {
    message = dialog.findChild<QLabel*>(QStringLiteral("message"))->text();
    informative = dialog.findChild<QLabel*>(QStringLiteral("informative"))->text();
    button = dialog.findChild<QPushButton*>(QStringLiteral("button0"))->text();
    dialog.close();
  });
  alertGiveUp("50% done", "<b>Été</b>", "A & B", kNone, kNone, 2, 30);
  EXPECT_EQ(message, QStringLiteral("50%% done"));
  EXPECT_EQ(informative, QStringLiteral("<b>Été</b>"));
  EXPECT_EQ(button, QStringLiteral("A && B"));
}

TEST_F(ToolkitTest, ALongWordDoesNotWidenTheWindow) {
  RecordingLog log;
  int width = 0;
  whenShown([&](QDialog& dialog) {
    width = dialog.width();
    dialog.close();
  });
  alertGiveUp("/" + std::string(5000, 'x'), std::string(5000, 'y'), kNone, kNone, kNone, 0, 30);
  EXPECT_GT(width, 400);
  EXPECT_LT(width, 700);
}

TEST_F(ToolkitTest, CheckboxAndField) {
  RecordingLog log;
  whenShown([](QDialog& dialog) {
    auto* box = dialog.findChild<QWidget*>(QStringLiteral("checkbox"));
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(10, box->height() / 2));
    QTest::mouseClick(dialog.findChild<QWidget*>(QStringLiteral("button0")), Qt::LeftButton);
  });
  EXPECT_EQ(alertGiveUpWithCheckbox("M", "I", "A", kNone, kNone, 0, 30, "Never"),
            (platform::List{"A", std::int64_t{1}}));
  QSize size;
  whenShown([&](QDialog& dialog) {
    auto* field = dialog.findChild<QLineEdit*>(QStringLiteral("field"));
    size = field->size();
    QTest::keyClicks(field, QStringLiteral("new"));
    QTest::keyClick(field, Qt::Key_Return);
  });
  EXPECT_EQ(alertTextField("M", "I", kNone, kNone), "new");
  EXPECT_EQ(size, QSize(300, 40));
}

TEST_F(ToolkitTest, ASheetBlocksItsWindowUntilItIsAnswered) {
  QWidget host;
  QPushButton button(QStringLiteral("host"), &host);
  QWidget other;
  host.show();
  other.show();
  alertSimple("sheet", "text", 2, toolkit_->window(&host));
  QDialog* sheet = shownDialog();
  ASSERT_TRUE(sheet);
  EXPECT_EQ(sheet->parentWidget(), &host);
  EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
  EXPECT_EQ(QApplication::activeModalWidget(), sheet);
  QTest::mouseClick(sheet->findChild<QWidget*>(QStringLiteral("button0")), Qt::LeftButton);
  QTest::qWait(20);
  EXPECT_EQ(shownDialog(), nullptr);
}

TEST_F(ToolkitTest, ASheetGoesWithItsWindow) {
  auto host = std::make_unique<QWidget>();
  host->show();
  alertSheetSimple("sheet", "text", toolkit_->window(host.get()));
  EXPECT_TRUE(shownDialog());
  host.reset();
  EXPECT_EQ(shownDialog(), nullptr);
}

TEST_F(ToolkitTest, AWindowThatIsGoneHasNoSheetButAWindow) {
  auto host = std::make_unique<QWidget>();
  const auto window = toolkit_->window(host.get());
  host.reset();
  RecordingLog log;
  alertSheetGiveUp("m", "i", kNone, kNone, kNone, 0, 0, window);
  EXPECT_TRUE(log.has("i = 0"));
  EXPECT_EQ(shownDialog(), nullptr);
}

TEST_F(ToolkitTest, ASheetIsRemovedAfterItsTime) {
  RecordingLog log;
  QWidget host;
  host.show();
  alertSheetGiveUp("m", "i", "A", "B", "C", 0, 0, toolkit_->window(&host));
  EXPECT_EQ(log.lines(), (std::vector<std::string>{"giveUpAfterSeconds : 0", "i = 0"}));
  EXPECT_EQ(shownDialog(), nullptr);
  EXPECT_TRUE(host.isVisible());
}

TEST_F(ToolkitTest, ControlsOfABoxAreDisabledAndEnabled) {
  QWidget panel;
  auto* column = new QVBoxLayout(&panel);
  auto* box = new QGroupBox(QStringLiteral("box"));
  auto* inner = new QVBoxLayout(box);
  auto* button = new QPushButton(QStringLiteral("go"));
  auto* field = new QLineEdit(QStringLiteral("text"));
  auto* label = new QLabel(QStringLiteral("label"));
  inner->addWidget(button);
  inner->addWidget(field);
  inner->addWidget(label);
  auto* outside = new QPushButton(QStringLiteral("outside"));
  column->addWidget(box);
  column->addWidget(outside);

  const QColor enabledText = QApplication::palette(field).color(QPalette::Active, QPalette::Text);
  const QColor disabledText = QApplication::palette(field).color(QPalette::Disabled, QPalette::Text);
  ASSERT_NE(enabledText, disabledText);

  setControlsEnabled(toolkit_->view(box), false);
  EXPECT_FALSE(button->isEnabled());
  EXPECT_FALSE(field->isEnabled());
  EXPECT_FALSE(label->isEnabled());
  EXPECT_EQ(field->palette().color(QPalette::Text), disabledText);
  EXPECT_EQ(label->palette().color(QPalette::WindowText), disabledText);
  EXPECT_TRUE(box->isEnabled());
  EXPECT_TRUE(outside->isEnabled());

  setControlsEnabled(toolkit_->view(box), true);
  EXPECT_TRUE(button->isEnabled());
  EXPECT_TRUE(field->isEnabled());
  EXPECT_EQ(field->palette().color(QPalette::Text), enabledText);

  // A panel that is no box is not entered.
  setControlsEnabled(toolkit_->view(&panel), false);
  EXPECT_TRUE(button->isEnabled());
  EXPECT_TRUE(outside->isEnabled());
  setControlsEnabled(toolkit_->view(outside), false);
  EXPECT_FALSE(outside->isEnabled());
}

TEST_F(ToolkitTest, AWidgetThatIsGoneIsLeftAlone) {
  auto button = std::make_unique<QPushButton>();
  const auto view = toolkit_->view(button.get());
  button.reset();
  setControlsEnabled(view, true);
  EXPECT_FALSE(view->answersSetEnabled());
  EXPECT_TRUE(view->subviews().empty());
}

}  // namespace
}  // namespace vistrelle
