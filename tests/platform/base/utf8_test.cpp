#include "vistrelle/platform/base/utf8.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace vistrelle::platform {
namespace {

struct Sample {
  std::string bytes;
  std::vector<std::size_t> lengths;
  bool valid;
};

TEST(Utf8, SplitsIntoCharactersAndStrayBytes) {
  const std::vector<Sample> samples = {
      {"", {}, true},
      {"aé€🎬", {1, 2, 3, 4}, true},
      {std::string("\0a", 2), {1, 1}, true},
      {"\x80", {1}, false},
      {"\xC3", {1}, false},
      {"\xC3\x41", {1, 1}, false},
      {"\xC0\x80", {1, 1}, false},                // overlong
      {"\xE0\x9F\xBF", {1, 1, 1}, false},         // overlong
      {"\xED\xA0\x80", {1, 1, 1}, false},         // surrogate
      {"\xF0\x8F\xBF\xBF", {1, 1, 1, 1}, false},  // overlong
      {"\xF4\x90\x80\x80", {1, 1, 1, 1}, false},  // above U+10FFFF
      {"\xF4\x8F\xBF\xBF", {4}, true},
      {"\xF0\x9F\x8E", {1, 1, 1}, false},
      {"\xE2\x82\xC3\xA9", {1, 1, 2}, false},
      {"\xFF\xFE", {1, 1}, false},
  };
  for (const Sample& sample : samples) {
    std::vector<std::size_t> lengths;
    for (std::size_t offset = 0; offset < sample.bytes.size(); offset += lengths.back()) {
      lengths.push_back(characterAt(sample.bytes, offset).length);
    }
    EXPECT_EQ(lengths, sample.lengths);
    EXPECT_EQ(isValidUtf8(sample.bytes), sample.valid);
    EXPECT_EQ(characterCount(sample.bytes), sample.lengths.size());
  }
}

TEST(Utf8, EveryCodePointComesBack) {
  for (char32_t code = 0; code <= 0x10FFFF; ++code) {
    if (code == 0xD800) code = 0xE000;
    std::string text;
    appendCharacter(text, code);
    const Character character = characterAt(text, 0);
    ASSERT_TRUE(character.valid) << static_cast<unsigned>(code);
    ASSERT_EQ(character.code, code);
    ASSERT_EQ(character.length, text.size());
  }
}

TEST(Utf8, NumbersThatAreNoCharactersBecomeTheReplacementCharacter) {
  for (const char32_t code : {0xD800, 0xDFFF, 0x110000}) {
    std::string text;
    appendCharacter(text, code);
    EXPECT_EQ(text, "\uFFFD");
  }
}

TEST(Utf8, WalkingBackMeetsTheSameBoundaries) {
  std::mt19937 generator(20261121);
  const std::string alphabet = "a\x80\xA9\xBF\xC3\xE2\x82\xAC\xED\xF0\x9F\x8E\xF4\x90";
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    for (std::size_t i = generator() % 12; i > 0; --i) text += alphabet[generator() % alphabet.size()];
    std::vector<bool> boundary(text.size() + 1, false);
    boundary[text.size()] = true;
    for (std::size_t offset = 0; offset < text.size(); offset += characterAt(text, offset).length) {
      boundary[offset] = true;
    }
    for (std::size_t offset = 0; offset <= text.size(); ++offset) {
      ASSERT_EQ(isCharacterBoundary(text, offset), boundary[offset]);
    }
    for (std::size_t end = text.size(); end > 0;) {
      const std::size_t length = characterBefore(text, end).length;
      ASSERT_GT(length, 0U);
      end -= length;
      ASSERT_TRUE(boundary[end]);
      ASSERT_EQ(characterAt(text, end).length, length);
    }
  }
}

TEST(Utf8, PrefixesNeverSplitACharacter) {
  EXPECT_EQ(prefixOfCharacters("aé🎬b", 3), "aé🎬");
  EXPECT_EQ(prefixOfCharacters("aé", 9), "aé");
  EXPECT_EQ(prefixOfCharacters("aé", 0), "");
}

}  // namespace
}  // namespace vistrelle::platform
