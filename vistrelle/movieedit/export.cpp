#include "vistrelle/movieedit/export.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/base/random.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/media/composition.h"
#include "vistrelle/platform/media/export/export_session.h"

namespace vistrelle {

using platform::ExportSession;
using platform::ExportStatus;
using platform::OptionalText;

namespace {

struct ExportMode {
  std::int64_t number;
  const char* preset;
  const char* fileType;
};

constexpr std::array<ExportMode, 4> kModes{{
    {kExportM4a, platform::kPresetAppleM4A, platform::kFileTypeAppleM4A},
    // Never reached, because -2 has become -3 before the table is looked at; kept on purpose. The preset's name is
    // that of the file type.
    {-2, platform::kFileTypeWave, platform::kFileTypeWave},
    {kExportPassthrough, platform::kPresetPassthrough, platform::kFileTypeQuickTimeMovie},
    {kExportProRes, platform::kPresetAppleProRes422, platform::kFileTypeQuickTimeMovie},
}};

/// The destination itself, or a name beside it that is free where it exists.
std::string targetFor(const std::string& destination) {
  if (!testPresenceCocoa(destination)) return destination;
  const std::string folder = platform::deletingLastPathComponent(destination);
  const std::string extension = platform::pathExtension(destination);
  std::string target;
  do {
    const std::string name = platform::format("{}", platform::randomSource().get()->next());
    target = platform::appendingPathComponent(folder, name);
    if (!extension.empty()) target = platform::appendingPathExtension(target, extension);
  } while (testPresenceCocoa(target));
  return target;
}

/// What is really written: of a composition, which may be edited meanwhile, a copy. Empty for what is no movie.
Movie movieToWrite(const Movie& movie) {
  if (!movie || movie->kind() == platform::AssetKind::other) return nullptr;
  if (movie->kind() != platform::AssetKind::composition) return movie;
  const auto composition = std::dynamic_pointer_cast<platform::Composition>(movie);
  return composition ? composition->copy() : movie;
}

std::shared_ptr<ExportSession> makeSession(const Movie& movie, std::int64_t exportInt, const std::string& target) {
  const auto mode = std::ranges::find(kModes, exportInt, &ExportMode::number);
  const bool isKnown = mode != kModes.end();
  auto session = isKnown ? platform::exportLibrary().get()->makeSession(movie, mode->preset) : nullptr;
  const platform::Url url{platform::fileUrlText(target)};
  log("url : {}", url.text);
  if (session) {
    session->setOutputUrl(url);
    session->setOutputFileType(mode->fileType);
    const auto types = session->supportedFileTypes();
    if (std::ranges::find(types, session->outputFileType()) != types.end()) return session;
  }
  log("export type asked   : {}", session ? session->outputFileType() : "(null)");
  log("not compatible type :-( {}", session ? platform::description(session->supportedFileTypes()) : "(null)");
  return nullptr;
}

std::string statusWord(ExportStatus status, const OptionalText& error) {
  switch (status) {
    case ExportStatus::completed:
      return ":-)";
    case ExportStatus::failed:
      return ":-( " + error.value_or("(null)");
    case ExportStatus::cancelled:
      return ":-/ Canceled";
    default:
      return ": else(?!?)";
  }
}

/// Runs on the session's own thread.
void reportEnd(const ExportSession& session) {
  const ExportStatus status = session.status();
  const OptionalText error = session.error();
  log("exportSession.status{}", statusWord(status, error));
  log("exporter.status     : {}", static_cast<std::int64_t>(status));
  if (error) log("exporter.error      :-( {}", *error);
  setExportFinished(true);
}

/// Two paces on purpose: a line a second until 99 %, then a look three times a second without a word. Either wait ends
/// as soon as the handler has run; without it there is no end.
void runSession(ExportSession& session) {
  using std::chrono::microseconds;
  using std::chrono::seconds;
  const auto ended = std::make_shared<platform::Signal>();
  setExportFinished(false);
  session.exportAsynchronously([&session, ended] {
    reportEnd(session);
    ended->set();
  });
  const auto clock = platform::clock().get();
  while (session.progress() < 0.99F && !exportFinished()) {
    platform::plain("pourcentage    : {:.2f}\n", session.progress() * 100.0F);
    clock->wait(*ended, seconds(1));
  }
  while (!exportFinished()) clock->wait(*ended, microseconds(333333));
}

/// Looks at what was written and not at what the session says of it. A file of less than a kilobyte stays.
bool checkTarget(const std::string& target) {
  if (!testPresenceCocoa(target)) {
    log("[qt|av]export       :-( failure (Couldn't write movie to file)");
    return false;
  }
  if (poidsFile(target, "k") < 1.0) {
    log("[qt|av]export       :-( failure (not exists || no real weight)");
    return false;
  }
  return true;
}

}  // namespace

bool qtAvExport(const Movie& movie, const OptionalText& destination, std::int64_t exportInt) {
  log("[qt|av]export       - begin");
  log("exportInt           = {}, dst={}", exportInt, destination.value_or("(null)"));
  logVerbose("…export > dstPathStr: {}", destination.value_or("(null)"));
  logVerbose("…export > export    #{}", exportInt);
  log("{}", movie ? movie->description() : "(null)");
  const Movie written = movieToWrite(movie);
  if (!written) return false;
  log("myAsset             : {}", written->description());
  const std::int64_t mode = exportInt == -2 ? kExportM4a : exportInt;
  if (mode == 0 || mode == 1 || !destination || destination->empty()) return false;

  // Looked for only now, so that a refused mode asks the file system nothing.
  const std::string final = platform::expandingTilde(*destination);
  const std::string target = targetFor(final);
  const std::shared_ptr<ExportSession> session = makeSession(written, mode, target);
  if (!session) return false;
  runSession(*session);
  if (!checkTarget(target)) return false;
  bool result = true;
  if (target != final) result = mv(target, final, "y");
  noteFsChanged(final);
  log("[qt|av]export       :-) end");
  return result;
}

}  // namespace vistrelle
