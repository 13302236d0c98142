#include <gtest/gtest.h>

#include <ctime>
#include <random>

#include "tests/support/recording_log.h"
#include "vistrelle/platform/base/random.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using testing::RecordingLog;

class FixedRandom : public platform::Random {
 public:
  explicit FixedRandom(std::int64_t number) : number_(number) {}
  std::int64_t next() override {
    ++draws;
    return number_;
  }
  int draws = 0;

 private:
  std::int64_t number_;
};

/// The stated passes over plain texts, as simple as they can be written.
std::string onePass(const std::string& text, const std::string& search, const std::string& replacement) {
  std::string result;
  for (std::size_t i = 0; i < text.size();) {
    if (text.compare(i, search.size(), search) == 0) {
      result += replacement;
      i += search.size();
    } else {
      result += text[i++];
    }
  }
  return result;
}

TEST(FindAndReplace, AbsentArgumentsGiveNothing) {
  EXPECT_EQ(findAndReplace(std::nullopt, "a", "b", false), std::nullopt);
  EXPECT_EQ(findAndReplace("a", std::nullopt, "b", false), std::nullopt);
  EXPECT_EQ(findAndReplace("a", "a", std::nullopt, true), std::nullopt);
}

TEST(FindAndReplace, FourBlanks) {
  EXPECT_EQ(findAndReplace("one    two", "  ", " ", true), "one two");
  EXPECT_EQ(findAndReplace("one    two", "  ", " ", false), "one  two");
}

TEST(FindAndReplace, TextWithoutTheSearchComesBack) {
  RecordingLog log(true);
  EXPECT_EQ(findAndReplace("abc", "x", "y", true), "abc");
  EXPECT_EQ(findAndReplace("", "x", "y", true), "");
  EXPECT_TRUE(log.lines().empty());
}

TEST(FindAndReplace, EmptySearchOccursNowhere) {
  EXPECT_EQ(findAndReplace("abc", "", "x", true), "abc");
  EXPECT_EQ(findAndReplace("", "", "x", false), "");
}

TEST(FindAndReplace, EmptyReplacementRemoves) {
  EXPECT_EQ(findAndReplace("a-b-c", "-", "", false), "abc");
  EXPECT_EQ(findAndReplace("((()))", "()", "", true), "");
}

TEST(FindAndReplace, SearchIsLiteralAndMindsCase) {
  EXPECT_EQ(findAndReplace("a.b*c", ".", "x", false), "axb*c");
  EXPECT_EQ(findAndReplace("Aa", "a", "b", false), "Ab");
  EXPECT_EQ(findAndReplace("e\u0301é", "é", "x", false), "e\u0301x");
}

TEST(FindAndReplace, SafeRepetitionLogsEachPass) {
  RecordingLog log(true);
  EXPECT_EQ(findAndReplace("a    b", "  ", " ", true), "a b");
  EXPECT_EQ(log.lines(), (std::vector<std::string>{
                             "findAndReplace #def : isRecursive, returnStr('a  b'), searchStr('  '), replaceStr(' ')",
                             "findAndReplace #def : isRecursive, returnStr('a b'), searchStr('  '), replaceStr(' ')"}));
}

TEST(FindAndReplace, OnePassLogsNothing) {
  RecordingLog log(true);
  findAndReplace("aaa", "a", "ab", false);
  EXPECT_TRUE(log.lines().empty());
}

TEST(FindAndReplace, ReplacementThatHoldsTheSearchGoesThroughTheMarker) {
  RecordingLog log(true);
  EXPECT_EQ(findAndReplace("aaa", "a", "ab", true), "ababab");
  EXPECT_EQ(log.lines(),
            (std::vector<std::string>{
                "findAndReplace      : oops, isRecursive != safe (returnStr:'ababab')",
                "findAndReplace #1   : replaceTmpStr : ZyW",
                "findAndReplace #3   : returnStr(ZyWZyWZyW), replaceTmpStr('ZyW')->searchStr('ZyW'), replaceStr('ab')",
                "findAndReplace #def : isRecursive, returnStr('ZyWZyWZyW'), searchStr('ZyW'), replaceStr('ab')",
                "findAndReplace #def : isRecursive, returnStr('ababab'), searchStr('ZyW'), replaceStr('ab')"}));
}

TEST(FindAndReplace, QuietWhenNotVerbose) {
  RecordingLog log(false);
  EXPECT_EQ(findAndReplace("aaa", "a", "ab", true), "ababab");
  EXPECT_TRUE(log.lines().empty());
}

TEST(FindAndReplace, SearchInsideTheMarkerDrawsANumber) {
  const auto random = std::make_shared<FixedRandom>(1804289383);
  platform::Installed<platform::Random> installed(platform::randomSource(), random);
  RecordingLog log(true);
  EXPECT_EQ(findAndReplace("xyx", "y", "yy", true), "xyyx");
  EXPECT_EQ(random->draws, 1);
  EXPECT_TRUE(log.has("findAndReplace #1bis: replaceTmpStr : 1804289383"));
  EXPECT_TRUE(
      log.has("findAndReplace #3   : returnStr(x1804289383x), replaceTmpStr('1804289383')->searchStr('1804289383'), "
              "replaceStr('yy')"));
}

TEST(FindAndReplace, ADigitTakesTheFirstMarkerAndALetterOfItTheNumber) {
  const auto random = std::make_shared<FixedRandom>(12345);
  platform::Installed<platform::Random> installed(platform::randomSource(), random);
  EXPECT_EQ(findAndReplace("a1a", "1", "11", true), "a11a");
  EXPECT_EQ(random->draws, 0);
  EXPECT_EQ(findAndReplace("aWa", "W", "WW", true), "aWWa");
  EXPECT_EQ(random->draws, 1);
}

TEST(FindAndReplace, MarkerInTheTextIsReplacedToo) {
  // The marker is looked for in the whole text, so that one that stood there before goes the same way.
  EXPECT_EQ(findAndReplace("aZyW", "a", "ab", true), "abab");
}

TEST(FindAndReplace, ReplacementThatHoldsTheMarkerEnds) {
  EXPECT_EQ(findAndReplace("xax", "a", "aZyW", true), "xaZyWx");
  EXPECT_EQ(findAndReplace("Z", "Z", "ZZyW", true), "ZZyW");
}

TEST(FindAndReplace, ReplacementThatOverlapsItselfEnds) {
  EXPECT_EQ(findAndReplace("xyyxx", "yx", "xyxy", true), "xyxyxyx");
}

TEST(FindAndReplace, UnsafePairsEqualOnePassOverGeneratedTexts) {
  std::mt19937 generator(7);
  const auto word = [&generator](std::size_t longest) {
    std::string text;
    for (std::size_t i = generator() % (longest + 1); i > 0; --i) text += "abc"[generator() % 3];
    return text;
  };
  int unsafe = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::string text = word(12);
    const std::string search = word(2) + "a";
    const std::string replacement = word(3) + search + word(3);
    if (text.find(search) == std::string::npos) continue;
    ++unsafe;
    ASSERT_EQ(findAndReplace(text, search, replacement, true), onePass(text, search, replacement))
        << text << " " << search << " " << replacement;
  }
  EXPECT_GT(unsafe, 10000);
}

TEST(FindAndReplace, UnsafePairsAmongTheMarkersLettersEqualTheStatedPasses) {
  std::mt19937 generator(13);
  const auto word = [&generator](std::size_t longest) {
    std::string text;
    for (std::size_t i = generator() % (longest + 1); i > 0; --i) text += "ZyWb"[generator() % 4];
    return text;
  };
  const std::string marker = "ZyW";
  const auto holds = [](const std::string& text, const std::string& piece) {
    return text.find(piece) != std::string::npos;
  };
  int compared = 0;
  for (int round = 0; round < 50000; ++round) {
    const std::string text = word(16);
    const std::string search = word(1) + "W" + word(2);
    const std::string replacement = word(1) + search + word(1);
    if (!holds(text, search) || holds(marker, search) || holds(replacement, marker)) continue;
    std::string expected = onePass(text, search, replacement);
    while (holds(expected, search) && holds(expected, replacement)) expected = onePass(expected, replacement, marker);
    while (holds(expected, marker)) expected = onePass(expected, marker, replacement);
    ++compared;
    ASSERT_EQ(findAndReplace(text, search, replacement, true), expected) << text << " " << search << " " << replacement;
  }
  EXPECT_GT(compared, 1000);
}

TEST(FindAndReplace, SafePairsEqualThePassesOverGeneratedTexts) {
  std::mt19937 generator(11);
  const auto word = [&generator](std::size_t longest, const char* letters) {
    std::string text;
    for (std::size_t i = generator() % (longest + 1); i > 0; --i) text += letters[generator() % 2];
    return text;
  };
  for (int round = 0; round < 100000; ++round) {
    const std::string text = word(40, "ab");
    const std::string search = word(3, "ab") + "a";
    const std::string replacement = word(search.size(), "ab");
    if (replacement.find(search) != std::string::npos) continue;
    std::string expected = text;
    while (expected.find(search) != std::string::npos) expected = onePass(expected, search, replacement);
    ASSERT_EQ(findAndReplace(text, search, replacement, true), expected) << text << " " << search << " " << replacement;
    ASSERT_EQ(findAndReplace(text, search, replacement, false), onePass(text, search, replacement));
  }
}

TEST(FindAndReplace, VerboseAndQuietGiveTheSame) {
  for (const auto* text : {"aaaaab", "aabbaabb", "((()))()", "babababa"}) {
    for (const auto& [search, replacement] : {std::pair("ab", "b"), {"ab", "ba"}, {"()", ""}, {"ba", "aab"}}) {
      RecordingLog quiet(false);
      const OptionalText first = findAndReplace(text, search, replacement, true);
      RecordingLog verbose(true);
      EXPECT_EQ(findAndReplace(text, search, replacement, true), first);
    }
  }
}

TEST(FindAndReplace, NeverSplitsACharacter) {
  EXPECT_EQ(findAndReplace("é", "\xA9", "x", false), "é");
  EXPECT_EQ(findAndReplace("é", "\xC3", "x", true), "é");
  EXPECT_EQ(findAndReplace("\xA9é\xA9", "\xA9", "x", false), "xéx");
  EXPECT_EQ(findAndReplace("é\xC3", "\xC3", "", true), "é");
  EXPECT_EQ(findAndReplace("é\xA9", "\xA9\xA9", "x", false), "é\xA9");
  EXPECT_EQ(findAndReplace("é\xA9\xA9", "\xA9\xA9", "x", false), "éx");
}

TEST(FindAndReplace, ZeroBytesAreCharacters) {
  const std::string zero(1, '\0');
  EXPECT_EQ(findAndReplace("a" + zero + "b", zero, "-", true), "a-b");
  EXPECT_EQ(findAndReplace("a-b", "-", zero, true), "a" + zero + "b");
}

class FindAndReplaceTime : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_LT(std::clock() - start_, 20 * CLOCKS_PER_SEC); }

 private:
  std::clock_t start_ = std::clock();
};

TEST_F(FindAndReplaceTime, MillionsOfSeparators) {
  const std::string separators(3000000, ',');
  EXPECT_EQ(findAndReplace(separators, ",", "; ", false)->size(), 6000000U);
  EXPECT_EQ(findAndReplace(separators, ",,", ",", true), ",");
}

TEST_F(FindAndReplaceTime, SearchThatNearlyMatchesEverywhere) {
  const std::string text(4000000, 'a');
  const std::string search = std::string(100000, 'a') + "b";
  EXPECT_EQ(findAndReplace(text, search, "x", true), text);
}

TEST_F(FindAndReplaceTime, StraySearchThatNearlyMatchesEverywhere) {
  std::string text;
  for (int i = 0; i < 500000; ++i) text += "é";
  std::string search = "\xA9";
  for (int i = 0; i < 50000; ++i) search += "é";
  EXPECT_EQ(findAndReplace(text, search, "x", true), text);
}

TEST_F(FindAndReplaceTime, AMillionPassesOfOneReplacement) {
  EXPECT_EQ(findAndReplace(std::string(1000000, 'a') + "b", "ab", "b", true), "b");
  EXPECT_EQ(findAndReplace(std::string(500000, '(') + std::string(500000, ')'), "()", "", true), "");
}

TEST_F(FindAndReplaceTime, AMarkerThatMeetsTheSearchAgainAndAgain) {
  // "Wbb" becomes "ZyWb" before it is "ZyZyW": a pass for each "b".
  const std::string text = "W" + std::string(500000, 'b');
  EXPECT_EQ(findAndReplace(text, "Wb", "Wb", true), text);
}

TEST_F(FindAndReplaceTime, GrowthWithoutEndStops) {
  RecordingLog log;
  const OptionalText endless = findAndReplace("aab", "ab", "bbaa", true);
  EXPECT_GT(endless->size(), std::size_t{1} << 20);
  const OptionalText explosion = findAndReplace(std::string(60, 'a') + "b", "ab", "bba", true);
  EXPECT_GT(explosion->size(), std::size_t{1} << 20);
  EXPECT_EQ(log.count("findAndReplace      :-( repetition without end stopped"), 2);
}

}  // namespace
}  // namespace vistrelle
