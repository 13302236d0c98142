#include <algorithm>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/listing.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/replacing.h"
#include "vistrelle/text/text.h"
#include "vistrelle/text/titles.h"

namespace vistrelle {
namespace {

using platform::Date;

constexpr std::size_t kDateAndTime = 19;  // "YYYY-MM-DD HH:MM:SS"
constexpr std::size_t kDateAlone = 10;    // "YYYY-MM-DD"
constexpr std::size_t kCompactDateAndTime = 14;

std::string without(std::string_view text, std::string_view removed) {
  return TextSearch(removed).replacedIn(text, "");
}

std::optional<Date> creationDate(const std::string& path) {
  const std::string standardized = platform::standardizedPath(path);
  const auto attributes = platform::fileManager().get()->attributes(standardized, true);
  std::optional<Date> date;
  if (attributes) date = attributes->creationDate;
  logVerbose("path : {}", path);
  if (isVerbose()) {
    log("dico (creation date) : {}", platform::description(date ? OptionalValue(*date) : OptionalValue()));
  }
  return date;
}

/// The date in a line "base name : date" of the playlist text. The text is the folder's path itself, so that one is
/// found only where a folder's name holds such a line; it is meant to be so.
OptionalText dateInPlaylist(const std::string& folder, const std::string& baseName) {
  const std::string playlist = platform::appendingPathComponent(folder, "PLAYLIST/");
  logVerbose("dateCreation2Name   - folderPLAYLIST : {}", playlist);
  logVerbose("dateCreation2Name   - str : {}", playlist);
  const std::vector<std::string> lines = splitLines(playlist);
  if (isVerbose()) log("dateCreation2Name   - linesA : {}", platform::description(lines));
  OptionalText date;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    logVerbose("str line {} : {}", i, lines[i]);
    const std::size_t colon = lines[i].find(" : ");
    if (colon == std::string::npos || lines[i].compare(0, colon, baseName) != 0) continue;
    const std::size_t start = colon + 3;
    date = lines[i].substr(start, lines[i].find(" : ", start) - start);
  }
  return date;
}

OptionalText dateFromPlaylists(const std::string& path, const std::string& baseName) {
  const std::string folder = platform::deletingLastPathComponent(platform::deletingLastPathComponent(path));
  logVerbose("dateCreation2Name   - 1: {}", path);
  logVerbose("dateCreation2Name   - 2: {}", folder);
  const PathList entries = lsCocoa(folder);
  if (isVerbose()) {
    log("dateCreation2Name   - a : {}", entries ? platform::description(*entries) : std::string("(null)"));
  }
  OptionalText date;
  for (const std::string& entry : entries.value_or(std::vector<std::string>())) {
    if (entry.find("PLAYLIST") == std::string::npos) continue;
    if (OptionalText found = dateInPlaylist(folder, baseName)) date = std::move(found);
  }
  return date;
}

}  // namespace

OptionalText dateCreation(const OptionalText& path, const std::optional<Date>& date, bool withTime) {
  const std::optional<Date> used = path && !path->empty() ? creationDate(*path) : date;
  if (!used) return std::nullopt;
  std::string text = platform::description(Value(*used));
  logVerbose("dateCreation        : {}", text);
  text.resize(platform::offsetOfCharacter(text, withTime ? kDateAndTime : kDateAlone));
  logVerbose("dateCreation        : {}", text);
  return text;
}

OptionalText dateCreationForTouch(const OptionalText& date) {
  constexpr std::size_t kCompactDate = 8;
  if (!date) return std::nullopt;
  std::string text = without(platform::prefixOfCharacters(*date, kDateAndTime), "-");
  logVerbose("myDateCreationStr = {}", text);
  if (platform::characterCount(text) > kCompactDate) {
    for (const char* removed : {":", " "}) {
      text = without(text, removed);
      logVerbose("myDateCreationStr = {}", text);
    }
    if (platform::characterCount(text) == kCompactDateAndTime) {
      text.insert(platform::offsetOfCharacter(text, kCompactDateAndTime - 2), ".");
    }
  }
  log("dateCreationForTouch: {}", text);
  return text;
}

OptionalText dateCreation2Name(const OptionalText& path, bool withId) {
  if (!path || path->empty()) return std::nullopt;
  log("dateCreation2iMovieN…");
  const std::string baseName = platform::deletingPathExtension(platform::lastPathComponent(*path));
  OptionalText date = dateFromPlaylists(*path, baseName);
  if (!date) {
    logVerbose("dateCreation2Name   - 2");
    date = dateCreation(path, std::nullopt, true);
    logVerbose("dstPathNameStr = {}", date.value_or("(null)"));
    if (date) date->resize(std::min(date->find(" +"), date->size()));
  }
  const std::string shownDate = date.value_or("(null)");
  std::string name = withId ? platform::format("{} (id) {}", shownDate, baseName)
                            : platform::format("clip-{}-{}", shownDate, baseName);
  logVerbose("dstPathNameStr = {}", name);
  name = TextSearch(":").replacedIn(name, ";");
  name = TextSearch(";;").replacedIn(name, ";");
  logVerbose("dstPathNameStr = {}", name);
  return name;
}

}  // namespace vistrelle
