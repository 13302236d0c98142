#include <algorithm>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/text/linked_text.h"
#include "vistrelle/text/replacing.h"

namespace vistrelle {
namespace {

constexpr std::size_t kPlainPasses = 4;
constexpr std::size_t kSmallText = 1024;
constexpr std::size_t kLargestLinked = std::size_t{1} << 31;
constexpr std::size_t kAllowedSize = std::size_t{1} << 20;
constexpr std::size_t kMostReplacements = 100'000'000;

/// The bounds of a repetition that may never end by itself.
class Bounds {
 public:
  explicit Bounds(std::size_t startSize) : largest_(std::max(kAllowedSize, 16 * startSize)) {}
  bool exceeded(std::size_t replacements, std::size_t size) {
    replacements_ += replacements;
    return size > largest_ || replacements_ > kMostReplacements;
  }

 private:
  std::size_t largest_;
  std::size_t replacements_ = 0;
};

void logPass(const std::string& text, const std::string& search, const std::string& replacement) {
  log("findAndReplace #def : isRecursive, returnStr('{}'), searchStr('{}'), replaceStr('{}')", text, search,
      replacement);
}

void logStop() {
  log("findAndReplace      :-( repetition without end stopped");
}

/// The passes over a text of which each one changes little.
std::string repeatedLinked(const std::string& text, const std::string& search, const std::string& replacement,
                           Bounds bounds, bool tells) {
  LinkedText linked(text, search, replacement);
  while (const std::size_t count = linked.pass()) {
    if (tells && isVerbose()) logPass(linked.text(), search, replacement);
    if (bounds.exceeded(count, linked.size())) {
      logStop();
      break;
    }
  }
  return linked.text();
}

}  // namespace

std::string repeatedWhileFound(std::string text, const std::string& search, const std::string& replacement,
                               bool tells) {
  const TextSearch wanted(search);
  Bounds bounds(text.size());
  std::size_t passes = 0;
  for (std::size_t at = wanted.find(text, 0); at != std::string_view::npos; at = wanted.find(text, 0)) {
    std::size_t count = 0;
    text = wanted.replacedIn(text, replacement, at, &count);
    if (tells && isVerbose()) logPass(text, search, replacement);
    if (bounds.exceeded(count, text.size())) {
      logStop();
      break;
    }
    const bool changesLittle = count < text.size() / (search.size() + replacement.size()) / 8;
    if (++passes >= kPlainPasses && changesLittle && text.size() > kSmallText && text.size() < kLargestLinked) {
      return repeatedLinked(text, search, replacement, bounds, tells);
    }
  }
  return text;
}

}  // namespace vistrelle
