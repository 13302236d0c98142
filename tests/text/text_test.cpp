#include "vistrelle/text/text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <numeric>

#include "tests/support/recording_log.h"

namespace vistrelle {
namespace {

using platform::List;
using testing::RecordingLog;

TEST(ShortDescription, CutsAndMarks) {
  const std::string sixty(60, 'x');
  EXPECT_EQ(shortDescription(sixty, 0), std::string(50, 'x') + " […]");
  EXPECT_EQ(shortDescription(sixty), std::string(50, 'x') + " […]");
  EXPECT_EQ(shortDescription(sixty, 1000), std::string(50, 'x') + " […]");
  EXPECT_EQ(shortDescription(sixty, 999), sixty);
  EXPECT_EQ(shortDescription(sixty, 60), sixty);
  EXPECT_EQ(shortDescription(sixty, 59), std::string(59, 'x') + " […]");
  EXPECT_EQ(shortDescription(sixty, 1), "x […]");
  EXPECT_EQ(shortDescription(std::string(50, 'x')), std::string(50, 'x'));
}

TEST(ShortDescription, CountsCharacters) {
  std::string accents;
  for (int i = 0; i < 50; ++i) accents += "é";
  EXPECT_EQ(shortDescription(accents), accents);
  EXPECT_EQ(shortDescription(accents + "x"), accents + " […]");
  EXPECT_EQ(shortDescription("🎬🎬", 1), "🎬 […]");
}

TEST(ShortDescription, TakesAnyObject) {
  EXPECT_EQ(shortDescription(std::nullopt), "(null)");
  EXPECT_EQ(shortDescription(List{1, 2}, 6), "(\n     […]");
  EXPECT_EQ(shortDescription(12.5), "12.5");
}

TEST(TrimBlanks, BothEnds) {
  EXPECT_EQ(trimBlanks("   ", true, true), std::nullopt);
  EXPECT_EQ(trimBlanks(" ", true, false), std::nullopt);
  EXPECT_EQ(trimBlanks(" ", false, true), std::nullopt);
  EXPECT_EQ(trimBlanks("  a b  ", true, true), "a b");
  EXPECT_EQ(trimBlanks("  a  ", true, false), "a  ");
  EXPECT_EQ(trimBlanks("  a  ", false, true), "  a");
  EXPECT_EQ(trimBlanks("  a  ", false, false), "  a  ");
}

TEST(TrimBlanks, NothingToTrim) {
  EXPECT_EQ(trimBlanks(std::nullopt, true, true), std::nullopt);
  EXPECT_EQ(trimBlanks("", false, false), std::nullopt);
  EXPECT_EQ(trimBlanks("\t a\n", true, true), "\t a\n");
  EXPECT_EQ(trimBlanks("\u00A0a", true, true), "\u00A0a");
}

TEST(SplitLines, EveryLineEndAndNoEmptyLines) {
  EXPECT_EQ(splitLines("a\r\nb\n\nc\rd"), (std::vector<std::string>{"a", "b", "c", "d"}));
  EXPECT_EQ(splitLines("a\vb\fc\u0085d\u2028e\u2029f"), (std::vector<std::string>{"a", "b", "c", "d", "e", "f"}));
  EXPECT_EQ(splitLines("one line"), std::vector<std::string>{"one line"});
  EXPECT_EQ(splitLines("é\nè"), (std::vector<std::string>{"é", "è"}));
}

TEST(SplitLines, Nothing) {
  EXPECT_TRUE(splitLines(std::nullopt).empty());
  EXPECT_TRUE(splitLines("").empty());
  EXPECT_TRUE(splitLines("\r\n\r\n").empty());
}

TEST(SplitLines, StrayBytesAndZeros) {
  EXPECT_EQ(splitLines("a\x85\n\xC2"), (std::vector<std::string>{"a\x85", "\xC2"}));
  EXPECT_EQ(splitLines(std::string("a\0b\nc", 5)), (std::vector<std::string>{std::string("a\0b", 3), "c"}));
}

TEST(SplitLines, MillionsOfLines) {
  EXPECT_EQ(splitLines(std::string(3000000, '\n') + "x").size(), 1U);
}

TEST(ProgressValueAfter, ClockTime) {
  EXPECT_EQ(progressValueAfter("frame= 10 time=00:01:02.50 bitrate", "time="), 62.5F);
  EXPECT_EQ(progressValueAfter("time=01:02:03", "time="), 3723.0F);
  EXPECT_EQ(progressValueAfter("time=100:00:00.25 x", "time="), 360000.25F);
}

TEST(ProgressValueAfter, OtherClockShapesGiveZero) {
  for (const char* text :
       {"time=12.5 ", "time=1:2 ", "time=1:2:3:4 ", "time= 00:00:01", "time=N/A", "time=", "time=1:2:3\ntime=4:5:6"}) {
    EXPECT_EQ(progressValueAfter(text, "time="), 0.0F) << text;
  }
}

TEST(ProgressValueAfter, PlainNumber) {
  EXPECT_EQ(progressValueAfter("steps          : 7", "steps          : "), 7.0F);
  EXPECT_EQ(progressValueAfter("pourcentage    : 12.50\n", "pourcentage    : "), 12.5F);
  EXPECT_EQ(progressValueAfter("x (batch 3/9)", "(batch "), 3.0F);
  EXPECT_EQ(progressValueAfter("| (  -2.5)", "| ("), -2.5F);
  EXPECT_EQ(progressValueAfter("Processing (x", "Processing ("), 0.0F);
}

TEST(ProgressValueAfter, AbsentOrNotFound) {
  EXPECT_EQ(progressValueAfter(std::nullopt, "time="), 0.0F);
  EXPECT_EQ(progressValueAfter("time=1:2:3", std::nullopt), 0.0F);
  EXPECT_EQ(progressValueAfter("nothing here", "steps          : "), 0.0F);
  EXPECT_EQ(progressValueAfter("7", ""), 0.0F);
}

TEST(HtmlEntityDecode, Forms) {
  EXPECT_EQ(htmlEntityDecodeStr("Caf&eacute; &#233; &#xE9; &#x1F3AC;"), "Café é é 🎬");
  EXPECT_EQ(htmlEntityDecodeStr("Tom &amp; Jerry"), "Tom & Jerry");
  EXPECT_EQ(htmlEntityDecodeStr("&amp;eacute;"), "é");
  EXPECT_EQ(htmlEntityDecodeStr("&amp;amp;"), "&");
  EXPECT_EQ(htmlEntityDecodeStr("&amp;amp;amp;"), "&amp;");
  EXPECT_EQ(htmlEntityDecodeStr("&amp;lt;b&amp;gt;"), "<b>");
  EXPECT_EQ(htmlEntityDecodeStr("a & b &unknown; &"), "a & b &unknown; &");
}

TEST(HtmlEntityDecode, WithoutAmpersandTheTextComesBack) {
  EXPECT_EQ(htmlEntityDecodeStr("  <b>a  b</b>\r\n"), "  <b>a  b</b>\r\n");
  EXPECT_EQ(htmlEntityDecodeStr(""), "");
  EXPECT_EQ(htmlEntityDecode("<b>x</b>"), (StyledText{"<b>x</b>", {}}));
}

TEST(HtmlEntityDecode, Absent) {
  EXPECT_EQ(htmlEntityDecodeStr(std::nullopt), " ");
  EXPECT_FALSE(htmlEntityDecode(std::nullopt).has_value());
}

TEST(HtmlEntityDecode, LineEndsAreKept) {
  EXPECT_EQ(htmlEntityDecodeStr("a&lt;\nb\n\nc&gt;\n"), "a<\nb\n\nc>\n");
  EXPECT_EQ(htmlEntityDecodeStr("a&lt;\r\nb\rc"), "a<\nb\nc");
}

TEST(HtmlEntityDecode, Styles) {
  const auto styled = htmlEntityDecode("x\n&eacute;<b>bold</b> <i>it</i>");
  ASSERT_TRUE(styled);
  EXPECT_EQ(styled->text, "x\nébold it");
  EXPECT_EQ(styled->runs, (std::vector<StyledText::Run>{{4, 4, true, false, false}, {9, 2, false, true, false}}));
}

TEST(HtmlEntityDecode, LargeTextsTakeLinearTime) {
  const std::clock_t start = std::clock();  // processor time: other load does not count
  std::string entities;
  for (int i = 0; i < 300000; ++i) entities += "&#233;";
  EXPECT_EQ(htmlEntityDecodeStr(entities).size(), 600000U);
  std::string lines = "&lt;";
  for (int i = 0; i < 300000; ++i) lines += "\nplain line";
  EXPECT_EQ(htmlEntityDecodeStr(lines).size(), lines.size() - 3);
  EXPECT_EQ(htmlEntityDecodeStr(std::string(1000000, '&')), std::string(1000000, '&'));
  EXPECT_EQ(htmlEntityDecodeStr("&" + std::string(1000000, '<')), "&" + std::string(1000000, '<'));
  EXPECT_LT(std::clock() - start, 30 * CLOCKS_PER_SEC);
}

TEST(DigitSum, DownToOneDigit) {
  EXPECT_EQ(digitSum(0), 0);
  EXPECT_EQ(digitSum(9), 9);
  EXPECT_EQ(digitSum(10), 1);
  EXPECT_EQ(digitSum(999), 9);
  EXPECT_EQ(digitSum(38), 2);
  EXPECT_EQ(digitSum(-38), -38);
  EXPECT_EQ(digitSum(std::numeric_limits<std::int64_t>::max()), 1 + (std::numeric_limits<std::int64_t>::max() - 1) % 9);
}

TEST(TextOf, Descriptions) {
  EXPECT_EQ(textOf("a"), "a");
  EXPECT_EQ(textOf(1.0F), "1");
  EXPECT_EQ(textOf(std::nullopt), "(null)");
}

TEST(JoinWords, ByOneBlank) {
  EXPECT_EQ(joinWords(std::vector<std::string>{}), "");
  EXPECT_EQ(joinWords(std::vector<std::string>{"a"}), "a");
  EXPECT_EQ(joinWords(std::vector<std::string>{"a", "", "b c"}), "a  b c");
  EXPECT_EQ(joinWords(std::optional<List>()), "");
  EXPECT_EQ(joinWords(std::optional<List>(List{"a", 2, true})), "a 2 1");
}

TEST(PrefixOfText, NoMark) {
  EXPECT_EQ(prefixOfText("été", 2), "ét");
  EXPECT_EQ(prefixOfText("été", 9), "été");
  EXPECT_EQ(prefixOfText("été", 0), "");
  EXPECT_EQ(prefixOfText("été", -1), "");
  EXPECT_EQ(prefixOfText(1234, 3), "123");
  EXPECT_EQ(prefixOfText(std::nullopt, 3), "(nu");
}

TEST(ContainsAnyOf, Strings) {
  const std::vector<std::string> words = {"PAL", "É"};
  EXPECT_TRUE(containsAnyOf("a-PAL", words, false));
  EXPECT_FALSE(containsAnyOf("a-pal", words, false));
  EXPECT_TRUE(containsAnyOf("a-pal", words, true));
  EXPECT_TRUE(containsAnyOf("été", words, true));
  EXPECT_FALSE(containsAnyOf("ete", words, true));
  EXPECT_FALSE(containsAnyOf("a", std::vector<std::string>{""}, false));
  EXPECT_FALSE(containsAnyOf("a", std::vector<std::string>{}, false));
  EXPECT_FALSE(containsAnyOf(std::nullopt, words, false));
  EXPECT_FALSE(containsAnyOf("a", std::nullopt, false));
}

TEST(HexColorSwap, PairsInReverseOrder) {
  EXPECT_EQ(hexColorSwap("#112233"), "332211");
  EXPECT_EQ(hexColorSwap("aabbcc"), "ccbbaa");
  EXPECT_EQ(hexColorSwap("#aabbcc#"), "ccbbaa");
  EXPECT_EQ(hexColorSwap("##aabbc"), "bcab#a");  // one leading "#" only
  EXPECT_EQ(hexColorSwap("#abc"), std::nullopt);
  EXPECT_EQ(hexColorSwap("aabbccd"), std::nullopt);
  EXPECT_EQ(hexColorSwap("#"), std::nullopt);
  EXPECT_EQ(hexColorSwap(""), std::nullopt);
  EXPECT_EQ(hexColorSwap(std::nullopt), std::nullopt);
}

class UserNameFromHome : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* home = std::getenv("HOME");
    if (home) former_ = home;
  }
  void TearDown() override { former_ ? ::setenv("HOME", former_->c_str(), 1) : ::unsetenv("HOME"); }
  OptionalText in(const char* home) {
    ::setenv("HOME", home, 1);
    return userNameFromHome();
  }

 private:
  OptionalText former_;
};

TEST_F(UserNameFromHome, TheComponentAfterUsersOrHome) {
  EXPECT_EQ(in("/Users/anne"), "anne");
  EXPECT_EQ(in("/home/bob"), "bob");
  EXPECT_EQ(in("/home/Users/carl"), "carl");
  EXPECT_EQ(in("/net/home/dora/x"), "dora");
  EXPECT_EQ(in("/root"), std::nullopt);
  EXPECT_EQ(in("/home"), std::nullopt);
}

TEST(InvertCase, Titles) {
  EXPECT_EQ(invertCase("L'Été à Paris"), "l'éTÉ À pARIS");
  EXPECT_EQ(invertCase(""), "");
  EXPECT_EQ(invertCase(std::nullopt), std::nullopt);
}

TEST(ReverseText, Characters) {
  EXPECT_EQ(reverseText("abc"), "cba");
  EXPECT_EQ(reverseText("é🎬x"), "x🎬é");
  EXPECT_EQ(reverseText(""), "");
  EXPECT_EQ(reverseText("a\xC3"),
            "\xC3"
            "a");
  EXPECT_EQ(reverseText(std::nullopt), std::nullopt);
}

TEST(PercentFreeName, LastComponent) {
  EXPECT_EQ(percentFreeName("/tmp/100%%/a%20b.mov"), "a_20b.mov");
  EXPECT_EQ(percentFreeName("%%"), "__");
  EXPECT_EQ(percentFreeName(std::nullopt), "");
}

}  // namespace
}  // namespace vistrelle
