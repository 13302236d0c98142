#include "vistrelle/text/text.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/text/pieces.h"
#include "vistrelle/text/replacing.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

std::string_view withoutLeadingLetters(std::string_view text) {
  while (!text.empty()) {
    const platform::Character character = platform::characterAt(text, 0);
    if (!character.valid || !platform::isLetter(character.code)) break;
    text.remove_prefix(character.length);
  }
  return text;
}

/// Moves a negative value with a fractional thousandth toward zero. The steps' precisions are the behaviour.
float nudged(float value) {
  if (value == 0) return value;
  const auto truncatedThousandths = static_cast<float>(std::trunc(1000.0 * static_cast<double>(value)));
  const float thousandths = value * 1000.0F;
  return truncatedThousandths > thousandths ? static_cast<float>(static_cast<double>(value) + 0.0001) : value;
}

/// "h:m:s" in seconds; 0 for any other shape.
float clockSeconds(std::string_view text) {
  const std::vector<std::string> pieces = piecesAt(text, ':');
  if (pieces.size() != 3) return 0;
  return floatValue(pieces[2]) + floatValue(pieces[1]) * 60 + floatValue(pieces[0]) * 60 * 60;
}

/// The number of str2Float; its log lines only when it `tells`.
float readNumber(const std::string& text, bool tells) {
  if (tells) log("str2Float           - deb : {}…", text);
  std::string withoutBlanks;
  std::string_view cleaned = text;
  if (const std::size_t blank = text.find(' '); blank != std::string::npos) {
    withoutBlanks.assign(text, 0, blank);
    std::copy_if(text.begin() + static_cast<std::ptrdiff_t>(blank), text.end(), std::back_inserter(withoutBlanks),
                 [](char c) { return c != ' '; });
    cleaned = withoutBlanks;
  }
  const ScannedFloat scanned = scanFloat(withoutLeadingLetters(cleaned));
  if (scanned.length == 0) {
    if (tells) log("mais heuu, c'est meme pas un float :(");
    return 0;
  }
  const float value = nudged(scanned.value);
  if (tells) log("str2Float           - end :'{}'->{:f}", cleaned, value);
  return value;
}

}  // namespace

float str2Float(const OptionalText& text) {
  return text ? readNumber(*text, isVerbose()) : 0;
}
float readFloat(const OptionalText& text) {
  return text ? readNumber(*text, false) : 0;
}

float str2FloatInner(const OptionalText& text) {
  if (!text || text->empty()) return 0;
  const std::size_t start = platform::characterAt(*text, 0).length;
  const std::size_t end = text->size() - platform::characterBefore(*text, text->size()).length;
  return str2Float(end > start ? text->substr(start, end - start) : std::string());
}

std::string shortDescription(const OptionalValue& object, std::int64_t maximum) {
  constexpr std::int64_t kDefault = 50;
  constexpr std::int64_t kLargest = 999;
  const auto limit = static_cast<std::size_t>(maximum < 1 || maximum > kLargest ? kDefault : maximum);
  std::string text = textOf(object);
  const std::size_t cut = platform::offsetOfCharacter(text, limit);
  if (cut == text.size()) return text;
  text.resize(cut);
  return text + " […]";
}

OptionalText trimBlanks(const OptionalText& text, bool leading, bool trailing) {
  if (!text) return std::nullopt;
  std::string_view rest = *text;
  if (trailing) rest = rest.substr(0, rest.find_last_not_of(' ') + 1);
  if (leading) rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  if (rest.empty()) return std::nullopt;
  return std::string(rest);
}

std::vector<std::string> splitLines(const OptionalText& text) {
  std::vector<std::string> lines;
  if (!text) return lines;
  const std::string_view whole = *text;
  std::size_t start = 0;
  const auto endLine = [&](std::size_t end) {
    if (end > start) lines.emplace_back(whole.substr(start, end - start));
  };
  for (std::size_t offset = 0; offset < whole.size();) {
    const platform::Character character = platform::characterAt(whole, offset);
    if (character.valid && platform::isNewline(character.code)) {
      endLine(offset);
      start = offset + character.length;
    }
    offset += character.length;
  }
  endLine(whole.size());
  return lines;
}

float progressValueAfter(const OptionalText& text, const OptionalText& marker) {
  if (!text || !marker) return 0;
  const std::size_t at = TextSearch(*marker).find(*text, 0);
  if (at == std::string_view::npos) return 0;
  const std::string_view rest = std::string_view(*text).substr(at + marker->size());
  if (*marker == markerTime()) return clockSeconds(rest.substr(0, rest.find(' ')));
  return floatValue(rest);
}

std::int64_t digitSum(std::int64_t number) {
  while (number > 9) {
    std::int64_t sum = 0;
    for (; number > 0; number /= 10) sum += number % 10;
    number = sum;
  }
  return number;
}

std::string textOf(const OptionalValue& object) {
  return platform::description(object);
}

std::string joinWords(const std::vector<std::string>& list) {
  std::string joined;
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (i > 0) joined += ' ';
    joined += list[i];
  }
  return joined;
}

std::string joinWords(const std::optional<platform::List>& list) {
  std::vector<std::string> words;
  if (list) std::transform(list->begin(), list->end(), std::back_inserter(words), textOf);
  return joinWords(words);
}

std::string prefixOfText(const OptionalValue& object, std::int64_t maximum) {
  if (maximum < 1) return "";
  return std::string(platform::prefixOfCharacters(textOf(object), static_cast<std::size_t>(maximum)));
}

bool containsAnyOf(const OptionalText& text, const std::optional<std::vector<std::string>>& strings, bool ignoreCase) {
  if (!text || !strings) return false;
  const std::string lowered = ignoreCase ? platform::lowercased(*text) : std::string();
  const std::string& searched = ignoreCase ? lowered : *text;
  return std::any_of(strings->begin(), strings->end(), [&](const std::string& string) {
    const std::string wanted = ignoreCase ? platform::lowercased(string) : string;
    return TextSearch(wanted).find(searched, 0) != std::string_view::npos;
  });
}

OptionalText hexColorSwap(const OptionalText& colour) {
  if (!colour) return std::nullopt;
  std::string_view digits = *colour;
  if (digits.starts_with('#')) digits.remove_prefix(1);
  if (digits.ends_with('#')) digits.remove_suffix(1);
  if (platform::characterCount(digits) != 6) return std::nullopt;
  const std::size_t green = platform::offsetOfCharacter(digits, 2);
  const std::size_t blue = platform::offsetOfCharacter(digits, 4);
  std::string swapped(digits.substr(blue));
  swapped += digits.substr(green, blue - green);
  swapped += digits.substr(0, green);
  return swapped;
}

OptionalText userNameFromHome() {
  const std::string home = platform::expandingTilde("~/") + "/";
  for (const std::string_view folder : {"/Users/", "/home/"}) {
    const std::size_t at = home.find(folder);
    if (at == std::string::npos) continue;
    const std::size_t start = at + folder.size();
    const std::size_t end = home.find('/', start);
    if (end != std::string::npos && end > start) return home.substr(start, end - start);
  }
  return std::nullopt;
}

OptionalText invertCase(const OptionalText& text) {
  if (!text) return std::nullopt;
  return platform::invertedCase(*text);
}

OptionalText reverseText(const OptionalText& text) {
  if (!text) return std::nullopt;
  std::string reversed;
  reversed.reserve(text->size());
  for (std::size_t end = text->size(); end > 0;) {
    const std::size_t length = platform::characterBefore(*text, end).length;
    end -= length;
    reversed.append(*text, end, length);
  }
  return reversed;
}

std::string percentFreeName(const OptionalText& path) {
  if (!path) return "";
  return findAndReplace(platform::lastPathComponent(*path), "%", "_", true).value_or("");
}

}  // namespace vistrelle
