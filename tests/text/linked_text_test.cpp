#include "vistrelle/text/linked_text.h"

#include <gtest/gtest.h>

#include <random>

#include "vistrelle/text/replacing.h"

namespace vistrelle {
namespace {

std::string word(std::mt19937& generator, std::size_t longest, const std::string& letters) {
  std::string text;
  for (std::size_t i = generator() % (longest + 1); i > 0; --i) text += letters[generator() % letters.size()];
  return text;
}

/// Every pass of the linked text against a pass over the whole text.
void comparePasses(const std::string& letters, unsigned seed) {
  std::mt19937 generator(seed);
  for (int round = 0; round < 30000; ++round) {
    std::string expected = word(generator, 60, letters);
    std::string search = word(generator, 4, letters);
    if (search.empty()) search = letters.substr(0, 1);
    const std::string replacement = word(generator, search.size() + 1, letters);
    LinkedText linked(expected, search, replacement);
    const TextSearch wanted(search);
    for (int pass = 0; pass < 6; ++pass) {
      const std::size_t first = wanted.find(expected, 0);
      std::size_t count = 0;
      if (first != std::string::npos) expected = wanted.replacedIn(expected, replacement, first, &count);
      ASSERT_EQ(linked.pass(), count);
      ASSERT_EQ(linked.text(), expected);
      ASSERT_EQ(linked.size(), expected.size());
      if (count == 0) break;
    }
  }
}

TEST(LinkedText, PassesEqualThoseOverTheWholeText) {
  comparePasses("ab", 1);
}
TEST(LinkedText, PassesEqualWithThreeLetters) {
  comparePasses("abc", 2);
}
TEST(LinkedText, PassesEqualWithStrayBytes) {
  comparePasses("\xC3\xA9\xF0\x9F\x8E", 3);
}

TEST(LinkedText, EmptyText) {
  LinkedText linked("", "a", "b");
  EXPECT_EQ(linked.pass(), 0U);
  EXPECT_EQ(linked.text(), "");
}

}  // namespace
}  // namespace vistrelle
