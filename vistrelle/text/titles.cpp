#include "vistrelle/text/titles.h"

#include <algorithm>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/bundles.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/replacing.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using platform::deletingPathExtension;
using platform::lastPathComponent;

constexpr std::size_t kLongestExtension = 12;
constexpr const char* kMasterMark = "_MASTER";
constexpr std::size_t kMasterMarkLength = 7;
constexpr std::size_t kLongestMasterName = 27;

std::string replaced(std::string_view text, std::string_view search, std::string_view replacement) {
  return TextSearch(search).replacedIn(text, replacement);
}

std::string inFolderOf(const std::string& path, const std::string& name) {
  const std::string folder = platform::deletingLastPathComponent(path);
  return folder.empty() ? name : platform::appendingPathComponent(folder, name);
}

std::string withExtension(const std::string& path, const std::string& extension) {
  return extension.empty() ? path : platform::appendingPathExtension(path, extension);
}

}  // namespace

OptionalText pathes2Titles(const OptionalText& path, const std::optional<std::vector<std::string>>& extraSuffixes) {
  if (!path || path->empty()) return std::nullopt;
  logVerbose("pathes2Titles - begin");
  std::vector<std::string> suffixes = extraSuffixes.value_or(std::vector<std::string>());
  suffixes.insert(suffixes.end(), {"-PAL", "-NV", "-NF"});
  if (isVerbose()) log("suffixesMa : {}", platform::description(suffixes));
  std::string name = fichier_nom(path).value_or("");
  for (const std::string& suffix : suffixes) {
    if (suffix.empty() || !name.ends_with(suffix)) continue;
    // The first occurrence, which need not be the one at the end.
    name.resize(std::min(TextSearch(suffix).find(name, 0), name.size()));
  }
  const OptionalText spaced = findAndReplace(replaced(name, "_", " "), "  ", " ", true);
  const OptionalText title = trimBlanks(spaced, true, true);
  logVerbose("str def : {}", title.value_or("nil"));
  logVerbose("pathes2Titles - end");
  return title ? title : deletingPathExtension(lastPathComponent(*path));
}

OptionalText trimPathStr(const OptionalText& path, std::int64_t maximum) {
  if (!path || path->empty()) return std::nullopt;
  std::string extension = platform::pathExtension(*path);
  if (platform::characterCount(extension) > kLongestExtension) {
    // The name loses that text all the same.
    log("trimPathStr() oops! :-( too many chars, post-'.' was not an ext ({})", extension);
    extension.clear();
  }
  const std::string clean = replaced(replaced(deletingPathExtension(lastPathComponent(*path)), "`", ""), ":", "-");
  const auto longest = static_cast<std::size_t>(std::max<std::int64_t>(maximum, 0));
  const std::string name(platform::prefixOfCharacters(clean, longest));
  return withExtension(inFolderOf(*path, name), extension);
}

OptionalText masterName(const OptionalText& path) {
  if (!path || path->empty()) return std::nullopt;
  const std::string extension = platform::pathExtension(*path);
  const std::string candidate = withExtension(deletingPathExtension(*path) + kMasterMark, extension);
  // The whole path is measured, so that few paths are short.
  if (platform::characterCount(deletingPathExtension(candidate)) <= kLongestMasterName) return candidate;
  const OptionalText base = findAndReplace(deletingPathExtension(lastPathComponent(*path)), ".", "_", true);
  const OptionalText shortened = trimPathStr(base, kLongestMasterName - kMasterMarkLength);
  return withExtension(inFolderOf(*path, shortened.value_or("") + kMasterMark), extension);
}

}  // namespace vistrelle
