#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// What findAndReplace is made of.
namespace vistrelle {

/// For each prefix of the text, by its length, the length of its longest border: a proper prefix that is a suffix too.
std::vector<std::size_t> bordersOf(std::string_view text);

/// Literal search for one text. Occurrences begin and end at character boundaries; time is linear in the text searched.
/// Borrows the search text.
class TextSearch {
 public:
  explicit TextSearch(std::string_view search);

  /// Offset of the first occurrence at or after `from` (a boundary), npos when there is none. An empty search occurs
  /// nowhere.
  std::size_t find(std::string_view text, std::size_t from) const;

  /// Every occurrence replaced in one pass, left to right; `first` is the first occurrence where it is known, `count`
  /// takes how many there were.
  std::string replacedIn(std::string_view text, std::string_view replacement) const;
  std::string replacedIn(std::string_view text, std::string_view replacement, std::size_t first,
                         std::size_t* count = nullptr) const;

 private:
  std::size_t findAligned(std::string_view text, std::size_t from) const;

  std::string_view search_;
  /// Only for a search that is not valid UTF-8, whose occurrences may lie across characters and must be looked at one
  /// by one.
  std::vector<std::size_t> borders_;
};

/// Passes over `text` until `search`, which does not occur in `replacement`, is gone; with `tells`, each pass's text is
/// logged when verbose. Stops at the bounds that findAndReplace states.
std::string repeatedWhileFound(std::string text, const std::string& search, const std::string& replacement,
                               bool tells = true);

}  // namespace vistrelle
