// A plug-in of the toolkit that sits in front of the screen of another process: it waits for a window and does what
// VISTRELLE_ROBOT says, steps separated by ";":
//   click NAME    a mouse click on the part of that object name
//   key NAME      Escape, Return, Tab or Space, pressed in the focus
//   type TEXT     replaces the text of the field
//   close         as the window's close button
//   grab PATH     a picture of the window
//   wait          one more pause
//   abort, hang   the process dies, or does nothing any more
//   die           the process goes as a toolkit goes that has lost its display
#include <stdlib.h>
#include <unistd.h>

#include <QApplication>
#include <QGenericPlugin>
#include <QLineEdit>
#include <QTest>
#include <QTimer>
#include <QWidget>

namespace {

constexpr int kPause = 25;

class Robot : public QObject {
 public:
  Robot() : steps_(qEnvironmentVariable("VISTRELLE_ROBOT").split(QLatin1Char(';'), Qt::SkipEmptyParts)) {
    timer_.callOnTimeout(this, [this] { act(); });
    timer_.start(kPause);
  }

 private:
  void act() {
    QWidget* window = nullptr;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      if (widget->isVisible()) window = widget;
    }
    // Two pauses after it came up it has been laid out and painted.
    if (!window || ++seen_ < 3) return;
    if (steps_.isEmpty()) return timer_.stop();
    const QString step = steps_.takeFirst();
    perform(*window, step.section(QLatin1Char(' '), 0, 0), step.section(QLatin1Char(' '), 1));
  }

  void perform(QWidget& window, const QString& verb, const QString& object) {
    if (verb == QLatin1String("click")) {
      auto* part = window.findChild<QWidget*>(object);
      // A check box reacts to clicks on its mark, at the left.
      if (part) QTest::mouseClick(part, Qt::LeftButton, {}, QPoint(12, part->height() / 2));
    } else if (verb == QLatin1String("key")) {
      press(window, object);
    } else if (verb == QLatin1String("type")) {
      auto* field = window.findChild<QLineEdit*>();
      field->clear();
      QTest::keyClicks(field, object);
    } else if (verb == QLatin1String("close")) {
      window.close();
    } else if (verb == QLatin1String("grab")) {
      window.grab().save(object);
    } else if (verb == QLatin1String("abort")) {
      ::abort();
    } else if (verb == QLatin1String("die")) {
      ::_exit(1);
    } else if (verb == QLatin1String("hang")) {
      for (;;) ::pause();
    }
  }

  static void press(QWidget& window, const QString& name) {
    Qt::Key key = Qt::Key_Escape;
    if (name == QLatin1String("Return")) key = Qt::Key_Return;
    if (name == QLatin1String("Tab")) key = Qt::Key_Tab;
    if (name == QLatin1String("Space")) key = Qt::Key_Space;
    QWidget* focus = window.focusWidget();
    QTest::keyClick(focus ? focus : &window, key);
  }

  QStringList steps_;
  int seen_ = 0;
  QTimer timer_;
};

}  // namespace

class RobotPlugin : public QGenericPlugin {
  Q_OBJECT
  Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "robot.json")

 public:
  QObject* create(const QString& /*key*/, const QString& /*arguments*/) override { return new Robot; }
};

#include "robot.moc"
