#include "vistrelle/system/shell_words.h"

#include <unistd.h>

#include <climits>

#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/system/commands.h"
#include "vistrelle/system/tmp_folder.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

bool isRedirection(const std::string& element) {
  return element == "2>&1" || element == ">" || element == "<" || element == "|";
}

/// A link is read from its own folder, so its target must not depend on the current one.
std::string absolutePath(const std::string& path) {
  std::string expanded = platform::expandingTilde(path);
  if (expanded.starts_with('/')) return expanded;
  char current[PATH_MAX];
  return ::getcwd(current, sizeof current) ? platform::appendingPathComponent(current, expanded) : expanded;
}

std::string inSingleQuotes(const std::string& text) {
  return "'" + findAndReplace(text, "'", "'\\''", false).value_or(text) + "'";
}

bool isHarmless(std::string_view text) {
  return text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789/._-+,:@%") ==
         std::string_view::npos;
}

std::string quoted(const std::string& element) {
  const bool wrapped = isWrappedIn(element, '\'') || isWrappedIn(element, '"');
  const std::string inner = wrapped && element.size() > 1 ? withoutEndCharacters(element) : element;
  if (inner.find('"') != std::string::npos) return "\"" + inner + "\"";
  return inSingleQuotes(inner);
}

std::optional<std::string> linkTo(const std::string& element, std::size_t index, const std::string& workFolder) {
  if (!tmpFolderReady() || !mkdirCocoa(workFolder)) return std::nullopt;
  const std::string link = platform::appendingPathComponent(workFolder, platform::format("arg{}", index));
  ln_sCocoa(absolutePath(element), link);
  // The temporary folder is the host's choice and may need quotes itself.
  return isHarmless(link) ? link : inSingleQuotes(link);
}

std::optional<std::string> piece(const std::string& element, std::size_t index, const std::string& workFolder) {
  if (isRedirection(element) || isStringSafeForTask(element)) return element;
  // Intended: the same question once more; a text that is safe only now is missing, and prints as such.
  if (isStringSafeForTask(element)) return "(null)";
  if (testPresenceCocoa(element)) return linkTo(element, index, workFolder);
  return quoted(element);
}

}  // namespace

std::optional<std::string> shellLine(const platform::List& elements, const std::string& workFolder) {
  std::string line;
  for (std::size_t index = 0; index < elements.size(); ++index) {
    const auto part = piece(platform::description(elements[index]), index, workFolder);
    if (!part) return std::nullopt;
    if (index > 0) line += " ";
    line += *part;
  }
  return line;
}

bool isWrappedIn(std::string_view text, char quote) {
  return text.starts_with(quote) && text.ends_with(quote);
}

std::string withoutEndCharacters(std::string_view text) {
  text.remove_prefix(platform::characterAt(text, 0).length);
  text.remove_suffix(platform::characterBefore(text, text.size()).length);
  return std::string(text);
}

std::string inDoubleQuotes(std::string_view text) {
  std::string word = "\"";
  for (const char c : text) {
    if (std::string_view("\"$`\\").find(c) != std::string_view::npos) word += '\\';
    word += c;
  }
  return word + "\"";
}

}  // namespace vistrelle
