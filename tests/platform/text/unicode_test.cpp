#include "vistrelle/platform/text/unicode.h"

#include <gtest/gtest.h>

#include <clocale>

namespace vistrelle::platform {
namespace {

TEST(Unicode, CaseMappings) {
  EXPECT_EQ(lowercased("ÉTÉ À PARIS"), "été à paris");
  EXPECT_EQ(uppercased("l'été straße"), "L'ÉTÉ STRASSE");
  EXPECT_EQ(caseFolded("Straße ΣΑΣ"), "strasse σασ");
  EXPECT_EQ(lowercased("ΣΑΣ"), "σας");
  EXPECT_EQ(uppercased("I i"), "I I");
  EXPECT_EQ(lowercased("𐐀"), "𐐨");
  EXPECT_EQ(lowercased(""), "");
}

TEST(Unicode, CaseDoesNotDependOnTheLocale) {
  const char* former = std::setlocale(LC_ALL, nullptr);
  const std::string saved = former ? former : "C";
  std::setlocale(LC_ALL, "tr_TR.UTF-8");
  EXPECT_EQ(uppercased("i"), "I");
  EXPECT_EQ(lowercased("I"), "i");
  EXPECT_EQ(uppercased("ié"), "IÉ");
  std::setlocale(LC_ALL, saved.c_str());
}

TEST(Unicode, StrayBytesPassThrough) {
  EXPECT_EQ(lowercased("É\xFF"
                       "É\xC3"),
            "é\xFF"
            "é\xC3");
  EXPECT_EQ(uppercased("\x80é"), "\x80É");
  EXPECT_EQ(caseFolded(std::string("A\0É", 4)), std::string("a\0é", 4));
  EXPECT_EQ(invertedCase("aÉ\xC3"), "Aé\xC3");
}

TEST(Unicode, InvertedCase) {
  EXPECT_EQ(invertedCase("Été à Paris 2"), "éTÉ À pARIS 2");
  EXPECT_EQ(invertedCase("ß"), "SS");
  EXPECT_EQ(invertedCase("中ǅ"), "中ǅ");
}

TEST(Unicode, LongTextsGrowInPlace) {
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "ß";
  EXPECT_EQ(uppercased(text), std::string(200000, 'S'));
  std::string growing;
  for (int i = 0; i < 100000; ++i) growing += "ΐ";  // two bytes that fold to six
  EXPECT_EQ(caseFolded(growing).size(), 600000U);
}

TEST(Unicode, Comparing) {
  EXPECT_TRUE(equalsIgnoringCase("MOV", "mov"));
  EXPECT_TRUE(equalsIgnoringCase("É", "é"));
  EXPECT_FALSE(equalsIgnoringCase("é", "e"));
  EXPECT_LT(compareIgnoringCase("a", "B"), 0);
  EXPECT_LT(compareIgnoringCase("Z", "é"), 0);
  EXPECT_LT(compareIgnoringCase("A", "a"), 0);
  EXPECT_GT(compareIgnoringCase("a", "A"), 0);
  EXPECT_EQ(compareIgnoringCase("a", "a"), 0);
  EXPECT_LT(compareIgnoringCase("\uFFFD", "🎬"), 0);  // by code points, not by UTF-16 units
}

TEST(Unicode, LettersOfEveryScript) {
  for (const char32_t letter : {U'a', U'Z', U'é', U'β', U'ж', U'ع', U'中', U'の', U'한', U'\u0301', U'\U00010428'}) {
    EXPECT_TRUE(isLetter(letter)) << static_cast<unsigned>(letter);
  }
  for (const char32_t other : {U'0', U'_', U'-', U' ', U'€', U'٣', U'🎬', U'×'}) {
    EXPECT_FALSE(isLetter(other)) << static_cast<unsigned>(other);
  }
}

TEST(Unicode, Newlines) {
  for (const char32_t code : {0x0A, 0x0B, 0x0C, 0x0D, 0x85, 0x2028, 0x2029}) EXPECT_TRUE(isNewline(code));
  for (const char32_t code : {0x09, 0x20, 0x0E, 0x84, 0x2027}) EXPECT_FALSE(isNewline(code));
}

TEST(Unicode, WhiteSpace) {
  for (const char32_t code : {U' ', U'\t', U'\n', U'\u00A0', U'\u3000'}) EXPECT_TRUE(isWhiteSpace(code));
  EXPECT_FALSE(isWhiteSpace(U'a'));
}

}  // namespace
}  // namespace vistrelle::platform
