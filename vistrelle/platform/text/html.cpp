#include "vistrelle/platform/text/html.h"

#include <gumbo.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <memory>
#include <string>
#include <system_error>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kMostTags = 1000;
constexpr std::size_t kLongestMarkup = 32768;

struct OutputDeleter {
  void operator()(GumboOutput* output) const { gumbo_destroy_output(&kGumboDefaultOptions, output); }
};

struct Style {
  bool bold = false;
  bool italic = false;
  bool underlined = false;
  bool operator==(const Style&) const = default;
};

bool isHtmlSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\f' || c == '\r';
}

/// Gathers the text of the tree's nodes and lays it out.
class Layout {
 public:
  void text(std::string_view text, const Style& style, bool preformatted) {
    for (const char c : text) {
      if (!preformatted && isHtmlSpace(c)) {
        if (!blankPending_) blankStyle_ = style;
        blankPending_ = !atLineStart_;
        continue;
      }
      if (blankPending_) put(' ', blankStyle_);
      blankPending_ = false;
      put(c, style);
      atLineStart_ = preformatted && c == '\n';
    }
  }

  void lineBreak(const Style& style) {
    blankPending_ = false;
    put('\n', style);
    atLineStart_ = true;
  }

  void blockEdge(const Style& style) {
    if (!atLineStart_) lineBreak(style);
  }

  /// The runs, without white space at the end.
  std::vector<HtmlRun> take() {
    while (!runs_.empty()) {
      std::string& last = runs_.back().text;
      while (!last.empty() && isHtmlSpace(last.back())) last.pop_back();
      if (!last.empty()) break;
      runs_.pop_back();
    }
    return std::move(runs_);
  }

 private:
  void put(char c, const Style& style) {
    if (runs_.empty() || !(style_ == style)) {
      runs_.push_back({"", style.bold, style.italic, style.underlined});
      style_ = style;
    }
    runs_.back().text.push_back(c);
  }

  std::vector<HtmlRun> runs_;
  Style style_;
  Style blankStyle_;
  bool blankPending_ = false;
  bool atLineStart_ = true;
};

bool isOneOf(GumboTag tag, std::initializer_list<GumboTag> tags) {
  return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

bool isHidden(GumboTag tag) {
  return isOneOf(tag, {GUMBO_TAG_SCRIPT, GUMBO_TAG_STYLE, GUMBO_TAG_TITLE, GUMBO_TAG_TEMPLATE, GUMBO_TAG_NOFRAMES,
                       GUMBO_TAG_IFRAME});
}

bool isBlock(GumboTag tag) {
  return isOneOf(tag, {GUMBO_TAG_P,       GUMBO_TAG_DIV,        GUMBO_TAG_H1,      GUMBO_TAG_H2,     GUMBO_TAG_H3,
                       GUMBO_TAG_H4,      GUMBO_TAG_H5,         GUMBO_TAG_H6,      GUMBO_TAG_UL,     GUMBO_TAG_OL,
                       GUMBO_TAG_LI,      GUMBO_TAG_DL,         GUMBO_TAG_DT,      GUMBO_TAG_DD,     GUMBO_TAG_TABLE,
                       GUMBO_TAG_TR,      GUMBO_TAG_BLOCKQUOTE, GUMBO_TAG_PRE,     GUMBO_TAG_HR,     GUMBO_TAG_SECTION,
                       GUMBO_TAG_ARTICLE, GUMBO_TAG_HEADER,     GUMBO_TAG_FOOTER,  GUMBO_TAG_NAV,    GUMBO_TAG_ASIDE,
                       GUMBO_TAG_FORM,    GUMBO_TAG_FIELDSET,   GUMBO_TAG_ADDRESS, GUMBO_TAG_CENTER, GUMBO_TAG_FIGURE});
}

Style styleInside(GumboTag tag, Style style) {
  if (isOneOf(tag, {GUMBO_TAG_B, GUMBO_TAG_STRONG, GUMBO_TAG_TH, GUMBO_TAG_H1, GUMBO_TAG_H2, GUMBO_TAG_H3, GUMBO_TAG_H4,
                    GUMBO_TAG_H5, GUMBO_TAG_H6})) {
    style.bold = true;
  }
  if (isOneOf(tag, {GUMBO_TAG_I, GUMBO_TAG_EM, GUMBO_TAG_CITE, GUMBO_TAG_DFN, GUMBO_TAG_VAR})) style.italic = true;
  if (isOneOf(tag, {GUMBO_TAG_U, GUMBO_TAG_INS, GUMBO_TAG_A})) style.underlined = true;
  return style;
}

// The depth is bounded by the number of tags.
void layOut(const GumboNode& node, Layout& layout, const Style& style, bool preformatted) {
  switch (node.type) {
    case GUMBO_NODE_TEXT:
    case GUMBO_NODE_CDATA:
    case GUMBO_NODE_WHITESPACE:
      layout.text(node.v.text.text, style, preformatted);
      return;
    case GUMBO_NODE_ELEMENT: {
      const GumboElement& element = node.v.element;
      if (isHidden(element.tag)) return;
      if (element.tag == GUMBO_TAG_BR) return layout.lineBreak(style);
      const bool block = isBlock(element.tag);
      if (block) layout.blockEdge(style);
      for (unsigned int i = 0; i < element.children.length; ++i) {
        layOut(*static_cast<const GumboNode*>(element.children.data[i]), layout, styleInside(element.tag, style),
               preformatted || element.tag == GUMBO_TAG_PRE);
      }
      if (block) layout.blockEdge(style);
      return;
    }
    default:
      return;
  }
}

/// Whether a tag, comment or declaration begins at the "<" at `offset`.
bool beginsMarkup(std::string_view html, std::size_t offset) {
  if (offset + 1 >= html.size()) return false;
  const char next = html[offset + 1];
  return (next >= 'a' && next <= 'z') || (next >= 'A' && next <= 'Z') || next == '/' || next == '!' || next == '?';
}

bool isReasonable(std::string_view html) {
  std::size_t tags = 0;
  for (std::size_t at = html.find('<'); at != std::string_view::npos; at = html.find('<', at + 1)) {
    if (beginsMarkup(html, at) && ++tags > kMostTags) return false;
  }
  return tags == 0 || html.size() <= kLongestMarkup;
}

std::string withoutMarkup(std::string_view html) {
  std::string text;
  for (const char c : html) {
    if (c == '<') {
      text += "&lt;";
    } else {
      text += c;
    }
  }
  return text;
}

/// Numeric references beyond the last code point turned into that of U+FFFD, which they stand for: the parser reads
/// their digits into 32 bits and would wrap around.
std::string withReferencesInRange(std::string_view html) {
  constexpr std::uint32_t kLastCode = 0x10FFFF;
  std::string text;
  std::size_t copied = 0;
  for (std::size_t at = html.find("&#"); at != std::string_view::npos; at = html.find("&#", at + 2)) {
    const std::string_view rest = html.substr(at + 2);
    const std::size_t mark = rest.starts_with('x') || rest.starts_with('X') ? 1 : 0;
    std::uint32_t code = 0;
    const auto [end, error] = std::from_chars(rest.data() + mark, rest.data() + rest.size(), code, mark == 1 ? 16 : 10);
    if (error != std::errc::result_out_of_range && code <= kLastCode) continue;
    // Decimal, so that a letter which ended the number does not go on with it.
    text.append(html, copied, at - copied).append("&#65533");
    copied = static_cast<std::size_t>(end - html.data());
  }
  return text.append(html, copied);
}

}  // namespace

std::vector<HtmlRun> htmlRuns(std::string_view html) {
  const std::string inRange = withReferencesInRange(isReasonable(html) ? std::string(html) : withoutMarkup(html));
  html = inRange;
  GumboOptions options = kGumboDefaultOptions;
  options.fragment_context = GUMBO_TAG_BODY;
  options.max_errors = 0;
  const std::unique_ptr<GumboOutput, OutputDeleter> output(
      gumbo_parse_with_options(&options, html.data(), html.size()));
  Layout layout;
  if (output && output->root) layOut(*output->root, layout, {}, false);
  return layout.take();
}

}  // namespace vistrelle::platform
