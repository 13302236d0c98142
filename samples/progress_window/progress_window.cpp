/// A window with the progress of a ProRes export, and the library's alerts as sheets on it:
///     sample_progress_window movie.mp4 movie.mov
#include <QApplication>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <cstdio>
#include <memory>
#include <string>

#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/dialogs/toolkit.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/export/export_session.h"
#include "vistrelle/system/alerts.h"

namespace platform = vistrelle::platform;

namespace {

std::shared_ptr<platform::ExportSession> sessionFor(const std::string& source, const std::string& destination) {
  if (!vistrelle::movieLoad(source)) return nullptr;
  auto session = platform::exportLibrary().get()->makeSession(vistrelle::MYMOVIEget(), platform::kPresetAppleProRes422);
  if (!session) return nullptr;
  session->setOutputUrl(platform::Url{platform::fileUrlText(destination)});
  session->setOutputFileType(platform::kFileTypeQuickTimeMovie);
  return session;
}

/// What the person is told at the end.
std::string verdict(const platform::ExportSession& session) {
  switch (session.status()) {
    case platform::ExportStatus::completed:
      return "The movie is written.";
    case platform::ExportStatus::cancelled:
      return "Cancelled. Nothing was changed.";
    default:
      return session.error().value_or("The movie could not be written.");
  }
}

bool hasEnded(const platform::ExportSession& session) {
  return session.status() >= platform::ExportStatus::completed;
}

}  // namespace

int main(int argc, char** argv) {
  QApplication application(argc, argv);
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s MOVIE DESTINATION.mov\n", argv[0]);
    return 2;
  }
  QApplication::setQuitOnLastWindowClosed(false);
  QWidget window;
  auto* layout = new QVBoxLayout(&window);
  auto* bar = new QProgressBar;
  auto* button = new QPushButton("Cancel");
  layout->addWidget(bar);
  layout->addWidget(button);
  bar->setRange(0, 1000);
  window.setWindowTitle("Export");
  window.resize(360, 0);
  window.show();

  // Alerts are windows of this process from now on; without the plug-in they are text on the terminal.
  const auto toolkit = platform::loadToolkit();
  if (toolkit) platform::dialogs().install(toolkit);

  const auto session = sessionFor(argv[1], argv[2]);
  if (!session) {
    vistrelle::alertSimple("Not written", "The movie cannot be read.", 2, toolkit ? toolkit->window(&window) : nullptr);
    return 1;
  }
  session->exportAsynchronously([] {});
  QObject::connect(button, &QPushButton::clicked, [&] { session->cancelExport(); });

  QTimer timer;
  QObject::connect(&timer, &QTimer::timeout, [&] {
    bar->setValue(static_cast<int>(session->progress() * 1000));
    if (!hasEnded(*session)) return;
    timer.stop();
    button->setEnabled(false);
    const std::string text = verdict(*session);
    std::printf("%s\n", text.c_str());
    vistrelle::alertSimple("Export", text, 0, toolkit ? toolkit->window(&window) : nullptr);
    QTimer::singleShot(3000, &application, &QApplication::quit);  // the sheet is left to the person meanwhile
  });
  timer.start(40);
  application.exec();
  return session->status() == platform::ExportStatus::completed ? 0 : 1;
}
