#include "vistrelle/platform/text/html.h"

#include <string_view>
#include <utility>

#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/text/replacing.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

/// Whether parsing the line as HTML would change nothing.
bool isPlainLine(std::string_view line) {
  if (line.find_first_of(std::string_view("&<\t\f\0", 5)) != std::string_view::npos) return false;
  if (line.starts_with(' ') || line.ends_with(' ') || line.find("  ") != std::string_view::npos) return false;
  return platform::isValidUtf8(line);
}

void append(StyledText& styled, platform::HtmlRun run) {
  if (run.bold || run.italic || run.underlined) {
    styled.runs.push_back({styled.text.size(), run.text.size(), run.bold, run.italic, run.underlined});
  }
  styled.text += run.text;
}

void appendLine(StyledText& styled, std::string_view line) {
  if (isPlainLine(line)) {
    styled.text += line;
    return;
  }
  for (platform::HtmlRun& run : platform::htmlRuns(line)) append(styled, std::move(run));
}

}  // namespace

std::optional<StyledText> htmlEntityDecode(const OptionalText& text) {
  if (!text) return std::nullopt;
  StyledText styled;
  if (text->find('&') == std::string::npos) {
    styled.text = *text;
    return styled;
  }
  const std::string html = TextSearch("&amp;").replacedIn(*text, "&");
  std::size_t start = 0;
  while (true) {
    // A parser takes line ends for blanks, so that it sees one line at a time.
    const std::size_t end = html.find_first_of("\r\n", start);
    appendLine(styled, std::string_view(html).substr(start, end == std::string::npos ? end : end - start));
    if (end == std::string::npos) return styled;
    styled.text += '\n';
    start = end + (html.compare(end, 2, "\r\n") == 0 ? 2 : 1);
  }
}

std::string htmlEntityDecodeStr(const OptionalText& text) {
  if (!text) return " ";
  return htmlEntityDecode(text)->text;
}

}  // namespace vistrelle
