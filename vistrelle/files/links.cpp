#include <unistd.h>

#include <string_view>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/system/tmp_folder.h"

namespace vistrelle {

using platform::equalsIgnoringCase;
using platform::expandingTilde;
using platform::fileManager;
using platform::OptionalText;

namespace {

constexpr std::string_view harmlessCharacters =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.,;'()-_";

std::string keepingHarmless(const std::string& name) {
  std::string kept;
  // Every harmless character is one byte, and no byte of a longer one is among them.
  for (const char character : name) {
    if (harmlessCharacters.find(character) != std::string_view::npos) kept += character;
  }
  return kept;
}

/// Where the link goes; absent when the temporary folder cannot be had.
struct LinkFolder {
  OptionalText path;
  bool isTemporary = false;
};

LinkFolder linkFolder(const OptionalText& asked) {
  const std::string temporary = tmpFolderPath();
  if (!testPresenceCocoa(asked)) {
    return {tmpFolderReady() ? OptionalText(temporary) : std::nullopt, true};
  }
  const std::string folder = expandingTilde(*asked);
  const auto files = fileManager().get();
  const auto one = files->attributes(folder, true);
  const auto other = files->attributes(temporary, true);
  return {folder, one && other && one->sameFile(*other) && tmpFolderReady()};
}

/// Elsewhere than in the program's own folder, only what an earlier call can have left there is an old candidate.
/// Nowhere is a link that another user has put there ours to deal with.
bool mayRemoveCandidate(const std::string& candidate, const std::string& path, bool inTemporary) {
  const auto files = fileManager().get();
  const auto item = files->attributes(candidate, false);
  if (!item) return true;
  if (item->kind == platform::FileKind::symbolicLink) return item->owner == ::geteuid();
  const std::string folder = files->resolvedPath(candidate).value_or(candidate) + "/";
  const bool holdsPath = files->resolvedPath(path).value_or(path).starts_with(folder);
  return inTemporary && !holdsPath;
}

/// The same entry by another spelling, or another name of the same file; not a link to it.
bool isSameEntry(const std::string& first, const std::string& second) {
  const auto one = fileManager().get()->attributes(first, false);
  const auto other = fileManager().get()->attributes(second, false);
  return one && other && one->sameFile(*other);
}

}  // namespace

bool ln_sCocoa(const OptionalText& target, const OptionalText& link) {
  if (!target || !link) {
    log("ln_sCocoa           :-/ no input | output ('{}' | '{}')", target.value_or("nil"), link.value_or("nil"));
    return false;
  }
  const std::string to = expandingTilde(*target);
  const std::string at = expandingTilde(*link);
  if (equalsIgnoringCase(to, at)) {
    log("ln_sCocoa           :-/ identical input & output");
    return false;
  }
  const auto made = fileManager().get()->makeSymbolicLink(to, at);
  if (!made.ok()) log("ln :-( {}", made.description());
  return made.ok();
}

OptionalText toolPathSafe(const OptionalText& path, const OptionalText& folder) {
  const std::string name = keepingHarmless(fileNameOfPath(path));
  logVerbose("toolPathSa… new name: '{}'", name);
  if (!path || name.empty() || name == "." || name == "..") return path;
  const LinkFolder base = linkFolder(folder);
  if (!base.path) return path;
  const std::string candidate = *base.path + "/" + name;
  if (equalsIgnoringCase(candidate, *path)) return path;
  const std::string expanded = expandingTilde(*path);
  if (isSameEntry(candidate, expanded)) return candidate;  // removing it would remove the file itself
  const bool removed = mayRemoveCandidate(candidate, expanded, base.isTemporary) && rmCocoa(candidate);
  log("toolPathSafe symlink:-{} rm ({})", mood(removed), candidate);
  // A candidate that stayed makes the link fail: making one never goes through a link that is there.
  if (ln_sCocoa(path, candidate)) return candidate;
  log("toolPathSafe symlink:-( ln ('{}' -> '{}')", *path, candidate);
  return path;
}

}  // namespace vistrelle
