#include "vistrelle/text/replacing.h"

#include <string.h>

#include <algorithm>

#include "vistrelle/platform/base/utf8.h"

namespace vistrelle {

std::vector<std::size_t> bordersOf(std::string_view text) {
  std::vector<std::size_t> borders(text.size() + 1, 0);
  for (std::size_t i = 1, border = 0; i < text.size(); ++i) {
    while (border > 0 && text[i] != text[border]) border = borders[border];
    if (text[i] == text[border]) ++border;
    borders[i + 1] = border;
  }
  return borders;
}

TextSearch::TextSearch(std::string_view search) : search_(search) {
  // A valid search begins with a byte that begins a character wherever it occurs, and ends where that character ends.
  if (!platform::isValidUtf8(search)) borders_ = bordersOf(search);
}

std::size_t TextSearch::find(std::string_view text, std::size_t from) const {
  if (search_.empty() || from > text.size() || text.size() - from < search_.size()) return std::string_view::npos;
  if (!borders_.empty()) return findAligned(text, from);
  const char* const start = text.data() + from;
  const std::size_t length = text.size() - from;
  // memmem is linear whatever the texts are, unlike std::string_view::find.
  const void* const found = search_.size() == 1 ? ::memchr(start, search_[0], length)
                                                : ::memmem(start, length, search_.data(), search_.size());
  if (!found) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

std::size_t TextSearch::findAligned(std::string_view text, std::size_t from) const {
  std::size_t matched = 0;
  for (std::size_t i = from; i < text.size(); ++i) {
    while (matched > 0 && (matched == search_.size() || text[i] != search_[matched])) matched = borders_[matched];
    if (text[i] == search_[matched]) ++matched;
    if (matched < search_.size()) continue;
    const std::size_t start = i + 1 - matched;
    if (platform::isCharacterBoundary(text, start) && platform::isCharacterBoundary(text, i + 1)) return start;
  }
  return std::string_view::npos;
}

std::string TextSearch::replacedIn(std::string_view text, std::string_view replacement) const {
  return replacedIn(text, replacement, find(text, 0));
}

std::string TextSearch::replacedIn(std::string_view text, std::string_view replacement, std::size_t first,
                                   std::size_t* count) const {
  std::string result;
  result.reserve(text.size() + (replacement.size() > search_.size() ? text.size() / 8 + replacement.size() : 0));
  std::size_t copied = 0;
  for (std::size_t at = first; at != std::string_view::npos; at = find(text, copied)) {
    result.append(text, copied, at - copied);
    result.append(replacement);
    copied = at + search_.size();
    if (count) ++*count;
  }
  result.append(text, copied, text.size() - copied);
  return result;
}

}  // namespace vistrelle
