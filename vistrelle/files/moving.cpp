#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {

using platform::canonicalPath;
using platform::expandingTilde;
using platform::fileManager;
using platform::OptionalText;

namespace {

/// Whether removing the destination would take the source, or what it leads to, with it, or whether the source holds
/// the destination. Of a destination that is a link only the link would go.
bool overlap(const std::string& source, const std::string& destination) {
  const auto files = fileManager().get();
  const auto one = files->attributes(source, true);
  const auto other = files->attributes(destination, true);
  if (one && other && one->sameFile(*other)) return true;
  const std::string to = canonicalPath(destination) + "/";
  for (const std::string& from : {canonicalPath(source) + "/", files->resolvedPath(source).value_or(source) + "/"}) {
    if (from.starts_with(to) || to.starts_with(from)) return true;
  }
  return false;
}

bool isYes(const OptionalText& overwrite) {
  return overwrite == "y";
}

/// Makes room for a move; false when the destination stays.
bool clearForMove(const std::string& source, const std::string& destination, const OptionalText& overwrite) {
  if (!testPresenceCocoa(destination)) return true;
  if (!isYes(overwrite)) {
    log("mv New already exist:-( '{}'", destination);
    return false;
  }
  if (overlap(source, destination)) {
    log("mv New overlaps File:-( '{}'", destination);
    return false;
  }
  if (!rmCocoa(destination)) {
    log("mv New deleted first:-( '{}'", destination);
    return false;
  }
  logVerbose("mv New deleted first:-) '{}'", destination);
  return true;
}

bool clearForCopy(const std::string& source, const std::string& destination, const OptionalText& overwrite) {
  if (!testPresenceCocoa(destination)) return true;
  if (!isYes(overwrite)) {
    logVerbose("New already exists  :-( {}", destination);
    return false;
  }
  if (overlap(source, destination)) {
    log("New overlaps current:-( {}", destination);
    return false;
  }
  rmCocoa(destination);  // whatever the outcome: the copy will tell
  logVerbose("New deleted first   :-) {}", destination);
  return true;
}

}  // namespace

bool mv(const OptionalText& source, const OptionalText& destination, const OptionalText& overwrite) {
  if (!source || !destination) return false;
  const std::string from = expandingTilde(*source);
  const std::string to = expandingTilde(*destination);
  logVerbose("mv File current->new: '{}' -> '{}'", from, to);
  if (!testPresenceCocoa(from)) {
    log("mv File current     :-( does not exist: '{}'", from);
    return false;
  }
  if (!clearForMove(from, to, overwrite)) return false;
  const auto moved = fileManager().get()->move(from, to);
  if (!moved.ok()) {
    log("mv File moved       :-( '{}', err…", to);
    log("{}", moved.description());
    return false;
  }
  noteFsChanged(to);
  logVerbose("mv File moved       :-) '{}'", to);
  return testPresenceCocoa(to);
}

bool cpCocoa(const OptionalText& source, const OptionalText& destination, const OptionalText& overwrite) {
  if (!source || !destination) return false;
  const std::string from = expandingTilde(*source);
  const std::string to = expandingTilde(*destination);
  logVerbose("File current        : {}", from);
  logVerbose("File new            : {}", to);
  if (!testPresenceCocoa(from)) {
    log("File current        :-( does not exist: {}", from);
    return false;
  }
  if (!clearForCopy(from, to, overwrite)) return false;
  const bool copied = fileManager().get()->copy(from, to).ok();
  if (copied) noteFsChanged(to);
  logVerbose("File copied         :-{} {}", mood(copied), to);
  return copied;
}

}  // namespace vistrelle
