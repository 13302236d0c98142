#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/random.h"
#include "vistrelle/text/replacing.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

constexpr const char* kMarker = "ZyW";

bool occurs(std::string_view text, std::string_view search) {
  return TextSearch(search).find(text, 0) != std::string_view::npos;
}

/// A marker that the search does not occur in, or nothing.
OptionalText markerFor(std::string_view search) {
  std::string marker = kMarker;
  logVerbose("findAndReplace #1   : replaceTmpStr : {}", marker);
  if (!occurs(marker, search)) return marker;
  marker = std::to_string(platform::randomSource().get()->next());
  logVerbose("findAndReplace #1bis: replaceTmpStr : {}", marker);
  if (!occurs(marker, search)) return marker;
  return std::nullopt;
}

/// What the marker is turned back into; a replacement that holds the marker would never end, so one pass is all.
std::string repeatedWithMarker(std::string text, const std::string& search, const std::string& replacement) {
  logVerbose("findAndReplace      : oops, isRecursive != safe (returnStr:'{}')", text);
  const OptionalText marker = markerFor(search);
  if (!marker) {
    logVerbose("findAndReplace      :-( '{}'->'{}'", search, replacement);
    return text;
  }
  // The search may stay behind: a replacement that overlaps itself can leave one that is not part of any replacement.
  text = repeatedWhileFound(std::move(text), replacement, *marker, false);
  logVerbose("findAndReplace #3   : returnStr({}), replaceTmpStr('{}')->searchStr('{}'), replaceStr('{}')", text,
             *marker, *marker, replacement);
  logVerbose("findAndReplace #def : isRecursive, returnStr('{}'), searchStr('{}'), replaceStr('{}')", text, *marker,
             replacement);
  const TextSearch marked(*marker);
  if (marked.find(text, 0) == std::string_view::npos) return text;
  text = marked.replacedIn(text, replacement);
  if (marked.find(replacement, 0) != std::string_view::npos) {
    logVerbose("findAndReplace      : oops, isRecursive != safe (returnStr:'{}')", text);
    return text;
  }
  logVerbose("findAndReplace #def : isRecursive, returnStr('{}'), searchStr('{}'), replaceStr('{}')", text, *marker,
             replacement);
  return repeatedWhileFound(std::move(text), *marker, replacement);
}

}  // namespace

OptionalText findAndReplace(const OptionalText& text, const OptionalText& search, const OptionalText& replacement,
                            bool repeat) {
  if (!text || !search || !replacement) return std::nullopt;
  const TextSearch wanted(*search);
  const std::size_t first = wanted.find(*text, 0);
  if (first == std::string_view::npos) return text;
  std::string result = wanted.replacedIn(*text, *replacement, first);
  if (!repeat) return result;
  if (wanted.find(*replacement, 0) != std::string_view::npos) {
    return repeatedWithMarker(std::move(result), *search, *replacement);
  }
  logVerbose("findAndReplace #def : isRecursive, returnStr('{}'), searchStr('{}'), replaceStr('{}')", result, *search,
             *replacement);
  return repeatedWhileFound(std::move(result), *search, *replacement);
}

}  // namespace vistrelle
