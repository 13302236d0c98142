#include "vistrelle/system/localisation.h"

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/bundle/bundle.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/system/commands.h"
#include "vistrelle/system/strings_lines.h"
#include "vistrelle/text/text.h"

namespace vistrelle {

bool isLocalized(const OptionalText& key) {
  if (!key) return false;
  return platform::mainBundle().get()->localizedString(*key, "", "Localized") != *key;
}

OptionalText localisedTitleFromStrings(const OptionalText& text, const OptionalText& file) {
  if (!text || text->empty()) return std::nullopt;
  if (!file || file->empty()) return text;
  logVerbose("str2LocalisationTitl- begin, from '{}'->'{}'", *file, *text);

  std::string path = platform::expandingTilde(*file);
  if (platform::pathExtension(path).empty()) path = platform::appendingPathExtension(path, "strings");
  if (!testPresenceCocoa(Value(path))) {
    const auto resource = platform::mainBundle().get()->pathForResource(platform::deletingPathExtension(path),
                                                                        platform::pathExtension(path));
    if (!resource || !testPresenceCocoa(Value(*resource))) return text;
    path = *resource;
  }

  if (auto key = keyOfValue(splitLines(readContentsTxtViaCat(path)), *text)) return key;
  log("str2LocalisationTitl:-( from '{}'", *text);
  return text;
}

std::optional<std::vector<std::string>> stringsFileKeys(const OptionalText& name) {
  if (!name) return std::nullopt;
  const auto resource =
      platform::mainBundle().get()->pathForResource(platform::deletingPathExtension(*name), "strings");
  if (!resource || !testPresenceCocoa(Value(*resource))) return std::nullopt;
  auto keys = keysOfLines(splitLines(readContentsTxtViaCat(*resource)));
  if (keys.empty()) return std::nullopt;
  return keys;
}

}  // namespace vistrelle
