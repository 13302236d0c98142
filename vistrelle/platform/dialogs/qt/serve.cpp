#include <sys/socket.h>
#include <unistd.h>

#include <QApplication>
#include <QSocketNotifier>
#include <QTimer>
#include <optional>
#include <string>

#include "vistrelle/platform/dialogs/qt/alert_window.h"
#include "vistrelle/platform/dialogs/wire.h"

namespace vistrelle::platform::qt {
namespace {

constexpr int kEnded = 0;
constexpr int kNoContent = 4;

std::optional<AlertContent> receiveContent(int socket) {
  wire::Decoder decoder;
  for (;;) {
    if (const auto message = decoder.next()) return wire::contentFromTexts(*message);
    char buffer[4096];
    const ssize_t got = ::recv(socket, buffer, sizeof buffer, 0);
    if (got <= 0 || decoder.failed()) return std::nullopt;
    decoder.add({buffer, static_cast<std::size_t>(got)});
  }
}

/// A listener that is gone has nothing to be told.
void say(int socket, const wire::Texts& texts) {
  const std::string message = wire::encode(texts);
  (void)!::send(socket, message.data(), message.size(), MSG_NOSIGNAL);
}

}  // namespace
}  // namespace vistrelle::platform::qt

/// The helper's whole life: the content comes in, the window is shown, what happens to it goes out, and the end of the
/// connection is the end of all.
extern "C" __attribute__((visibility("default"))) int vistrelleDialogsServe(int socket) {
  using namespace vistrelle::platform;
  const auto content = qt::receiveContent(socket);
  if (!content) return qt::kNoContent;
  int argc = 1;
  char name[] = "vistrelle-dialog";
  char* argv[] = {name, nullptr};
  QApplication application(argc, argv);
  QApplication::setQuitOnLastWindowClosed(false);

  qt::AlertWindow* shown = nullptr;
  qt::AlertWindow window(*content, nullptr,
                         {[&](std::size_t position) {
                            qt::say(socket, {wire::kAnswer, std::to_string(position), shown->fieldText()});
                          },
                          [&](bool ticked) {
                            qt::say(socket, {wire::kTick, ticked ? "1" : "0"});
                          }});
  shown = &window;
  // The listener says nothing more: anything readable is the end. What the display still holds goes with us.
  QSocketNotifier closed(socket, QSocketNotifier::Read);
  QObject::connect(&closed, &QSocketNotifier::activated, [] { ::_exit(qt::kEnded); });
  window.show();
  window.raise();
  window.activateWindow();
  QTimer::singleShot(0, [&] { qt::say(socket, {wire::kShown}); });
  return QApplication::exec();
}
