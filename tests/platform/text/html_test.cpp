#include "vistrelle/platform/text/html.h"

#include <gtest/gtest.h>

#include <ctime>

namespace vistrelle::platform {
namespace {

std::string textOf(std::string_view html) {
  std::string text;
  for (const HtmlRun& run : htmlRuns(html)) text += run.text;
  return text;
}

TEST(Html, Entities) {
  EXPECT_EQ(textOf("&eacute;&lt;&gt;&quot;&apos;&nbsp;x"), "é<>\"'\u00A0x");
  EXPECT_EQ(textOf("&#233;&#xE9;&#XE9;"), "ééé");
  EXPECT_EQ(textOf("&#x1F3AC;&Afr;"), "🎬𝔄");
  EXPECT_EQ(textOf("&#128;"), "€");  // as Windows-1252 had it
}

TEST(Html, MalformedEntities) {
  EXPECT_EQ(textOf("a & b"), "a & b");
  EXPECT_EQ(textOf("&nosuchthing;"), "&nosuchthing;");
  EXPECT_EQ(textOf("&eacute x"), "é x");
  EXPECT_EQ(textOf("&#;&#x;"), "&#;&#x;");
  EXPECT_EQ(textOf("&#0;&#xD800;&#x110000;"), "\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(textOf("&#99999999999999999999;"), "\uFFFD");
}

TEST(Html, NumbersBeyondThirtyTwoBitsDoNotWrapAround) {
  EXPECT_EQ(textOf("&#4294967361;"), "\uFFFD");       // 2^32 + 65
  EXPECT_EQ(textOf("&#x100000041;b"), "\uFFFDb");     // the same
  EXPECT_EQ(textOf("&#4294967361abc"), "\uFFFDabc");  // without its semicolon
  EXPECT_EQ(textOf("&#XFFFFFFFF;&#4294967295"), "\uFFFD\uFFFD");
  EXPECT_EQ(textOf("a&#" + std::string(2000000, '9') + "&#65;&#x10FFFD;"), "a\uFFFDA\U0010FFFD");
  EXPECT_EQ(textOf("&#-4294967361;"), "&#-4294967361;");
}

TEST(Html, WhiteSpaceCollapses) {
  EXPECT_EQ(textOf("  a \t b  "), "a b");
  EXPECT_EQ(textOf("<pre>a  b</pre>"), "a  b");
  EXPECT_EQ(textOf(""), "");
}

TEST(Html, BlocksAndBreaksMakeLines) {
  EXPECT_EQ(textOf("a<br>b"), "a\nb");
  EXPECT_EQ(textOf("<p>a</p><p>b</p>"), "a\nb");
  EXPECT_EQ(textOf("<ul><li>a<li>b</ul>c"), "a\nb\nc");
}

TEST(Html, HiddenParts) {
  EXPECT_EQ(textOf("a<script>x</script><style>y</style><!-- z -->b"), "ab");
}

TEST(Html, Styles) {
  const auto runs = htmlRuns("a<b>b<i>c</i></b><u>d</u>");
  ASSERT_EQ(runs.size(), 4U);
  EXPECT_FALSE(runs[0].bold || runs[0].italic || runs[0].underlined);
  EXPECT_TRUE(runs[1].bold && !runs[1].italic);
  EXPECT_TRUE(runs[2].bold && runs[2].italic);
  EXPECT_TRUE(runs[3].underlined && !runs[3].bold);
}

TEST(Html, StrayBytesAndZeros) {
  EXPECT_EQ(textOf("a\xFF"
                   "b"),
            "a\uFFFD"
            "b");
  EXPECT_EQ(textOf(std::string_view("a\0b", 3)), "ab");
}

TEST(Html, MarkupBeyondTheLimitsIsText) {
  std::string deep;
  for (int i = 0; i < 200000; ++i) deep += "<div>";
  EXPECT_EQ(textOf(deep), deep);
  const std::string attributes = "<a " + std::string(40000, 'x') + ">&eacute;";
  EXPECT_EQ(textOf(attributes), "<a " + std::string(40000, 'x') + ">é");
  std::string allowed;
  for (int i = 0; i < 1000; ++i) allowed += "<b>";
  EXPECT_EQ(textOf(allowed + "x"), "x");
}

TEST(Html, WorstMarkupWithinTheLimitsTakesBoundedTime) {
  const std::clock_t start = std::clock();  // processor time: other load does not count
  std::string attributes = "<a";
  for (int i = 0; attributes.size() < 32700; ++i) attributes += " " + std::to_string(i);
  textOf(attributes + ">x");
  std::string fonts;
  for (int i = 0; i < 500; ++i) fonts += "<font size=" + std::to_string(i) + ">";
  for (int i = 0; i < 500; ++i) fonts += "<p>x";
  textOf(fonts);
  EXPECT_LT(std::clock() - start, 20 * CLOCKS_PER_SEC);
}

}  // namespace
}  // namespace vistrelle::platform
