#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vistrelle {

/// The pieces of `text` between the separators, empty ones included; never an empty list.
inline std::vector<std::string> piecesAt(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (std::size_t from = 0;;) {
    const std::size_t at = text.find(separator, from);
    pieces.emplace_back(text.substr(from, at == std::string_view::npos ? at : at - from));
    if (at == std::string_view::npos) return pieces;
    from = at + 1;
  }
}

}  // namespace vistrelle
