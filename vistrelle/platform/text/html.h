#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vistrelle::platform {

/// A stretch of text in one style.
struct HtmlRun {
  std::string text;
  bool bold = false;
  bool italic = false;
  bool underlined = false;
};

/// The text of an HTML fragment as a reader sees it: entities resolved (HTML Living Standard, 13.5), white space
/// collapsed and dropped at both ends, a line end for <br> and between blocks, no scripts, styles or comments. Bytes
/// that are not valid UTF-8 become U+FFFD and zero bytes are dropped, as the standard has it.
///
/// A fragment with more than 1,000 tags, or with tags and more than 32,768 bytes, is taken as text with entities: the
/// parser's time and depth grow too fast with such markup.
std::vector<HtmlRun> htmlRuns(std::string_view html);

}  // namespace vistrelle::platform
