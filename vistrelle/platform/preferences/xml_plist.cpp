#include "vistrelle/platform/preferences/xml_plist.h"

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>

#include "vistrelle/platform/preferences/binary_plist.h"

namespace vistrelle::platform::xml_plist {
namespace {

struct Release {
  void operator()(void* node) const { plist_free(node); }
  void operator()(char* bytes) const { std::free(bytes); }
};
using Node = std::unique_ptr<void, Release>;
using Bytes = std::unique_ptr<char, Release>;

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

PropertyListReading refused(const char* reason) {
  return {std::nullopt, std::string("XML property list: ") + reason};
}

/// Skips a comment or a CDATA section that begins at `position`; nothing when it is neither.
std::optional<std::size_t> endOfAside(std::string_view text, std::size_t position) {
  constexpr std::string_view kAsides[][2] = {{"<!--", "-->"}, {"<![CDATA[", "]]>"}};
  for (const auto& [open, close] : kAsides) {
    if (!text.substr(position).starts_with(open)) continue;
    const auto end = text.find(close, position + open.size());
    return end == std::string_view::npos ? text.size() : end + close.size();
  }
  return std::nullopt;
}

/// The end of the markup that begins at `position`, where the library sees it as well: for it an end between double
/// quotation marks is none, so what holds an odd one has its end elsewhere.
const char* findEnd(std::string_view text, std::size_t position, std::size_t* end) {
  const bool isInstruction = text.substr(position).starts_with("<?");
  *end = text.find(isInstruction ? "?>" : ">", position);
  if (*end == std::string_view::npos) return "an element is not closed";
  const std::string_view markup = text.substr(position, *end - position);
  return std::ranges::count(markup, '"') % 2 == 0 ? nullptr : "a quotation mark is not closed";
}

/// The library parses without bounds, so depth and number of elements are counted before it sees the text.
const char* breaksLimits(std::string_view text, const PropertyListLimits& limits) {
  std::size_t depth = 0;
  std::size_t elements = 0;
  for (std::size_t at = text.find('<'); at != std::string_view::npos; at = text.find('<', at)) {
    if (const auto end = endOfAside(text, at)) {
      at = *end;
      continue;
    }
    std::size_t close = 0;
    if (const char* reason = findEnd(text, at, &close)) return reason;
    const bool instruction = text.substr(at).starts_with("<?");
    const bool ends = text.substr(at).starts_with("</");
    const bool declaration = text.substr(at).starts_with("<!");
    // A document type with declarations of its own may define entities; ordinary files have none.
    if (declaration && text.substr(at, close - at).find('[') != std::string_view::npos) return "it declares entities";
    if (ends && depth > 0) --depth;
    if (!ends && !declaration && !instruction) {
      if (++elements > limits.values) return "too many values";
      if (text[close - 1] != '/') ++depth;
      // The <plist> element and a value's own element stand outside and inside the lists.
      if (depth > limits.depth + 2) return "nested too deeply";
    }
    at = close;
  }
  return nullptr;
}

}  // namespace

bool looksLike(std::string_view bytes) {
  if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
  const auto first = bytes.find_first_not_of(" \t\r\n");
  return first != std::string_view::npos && bytes[first] == '<';
}

PropertyListReading read(std::string_view bytes, const PropertyListLimits& limits) {
  if (bytes.starts_with(kByteOrderMark)) bytes.remove_prefix(kByteOrderMark.size());
  if (bytes.size() > std::numeric_limits<std::uint32_t>::max()) return refused("too long");
  if (const char* reason = breaksLimits(bytes, limits)) return refused(reason);
  plist_t parsed = nullptr;
  plist_from_xml(bytes.data(), static_cast<std::uint32_t>(bytes.size()), &parsed);
  const Node node(parsed);
  if (!node) return refused("malformed");
  // Read through the binary form: the library's own accessors lose the sign of large whole numbers and every date
  // outside 1933 to 2069.
  char* raw = nullptr;
  std::uint32_t length = 0;
  plist_to_bin(node.get(), &raw, &length);
  const Bytes binary(raw);
  if (!binary || length == 0) return refused("malformed");
  // The library stores a real in four bytes where they hold it exactly; XML knows one kind.
  return binary_plist::read({binary.get(), length}, limits, binary_plist::ShortReal::kDouble);
}

}  // namespace vistrelle::platform::xml_plist
