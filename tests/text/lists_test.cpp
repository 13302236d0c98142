#include "vistrelle/text/lists.h"

#include <gtest/gtest.h>

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::List;
using platform::Value;

TEST(SortedTexts, IgnoreCase) {
  EXPECT_EQ(sortedTexts(List{"b", "A", "É", "a", "Z", 10, 9}),
            (std::vector<std::string>{"10", "9", "A", "a", "b", "Z", "É"}));
  EXPECT_EQ(sortedTexts(std::nullopt), std::nullopt);
  EXPECT_EQ(sortedTexts(List{}), std::vector<std::string>{});
}

TEST(IsFirstInOrder, BeforeOrEqual) {
  EXPECT_TRUE(isFirstInOrder("a", "B"));
  EXPECT_FALSE(isFirstInOrder("B", "a"));
  EXPECT_TRUE(isFirstInOrder("a", "a"));
  EXPECT_TRUE(isFirstInOrder("a", "A"));
  EXPECT_TRUE(isFirstInOrder("A", "a"));
  EXPECT_TRUE(isFirstInOrder("É", "é"));
  EXPECT_TRUE(isFirstInOrder(std::nullopt, "a"));
  EXPECT_TRUE(isFirstInOrder("a", std::nullopt));
}

TEST(ReversedList, Order) {
  EXPECT_EQ(reversedList(List{1, "b", 3}), (List{3, "b", 1}));
  EXPECT_EQ(reversedList(List{}), List{});
  EXPECT_EQ(reversedList(std::nullopt), std::nullopt);
}

TEST(UniqueList, DistinctThenReversed) {
  EXPECT_EQ(uniqueList(List{"a", "b", "a", "c", "b"}), (List{"c", "b", "a"}));
  EXPECT_EQ(uniqueList(List{1, 1.0, true, 1.0F, "1"}), (List{"1", 1}));
  EXPECT_EQ(uniqueList(List{0.1, 0.1F}), (List{0.1F, 0.1}));
  EXPECT_EQ(uniqueList(List{List{1}, List{1}, "(\n    1\n)"}), (List{"(\n    1\n)", List{1}}));
  EXPECT_EQ(uniqueList(std::nullopt), std::nullopt);
}

TEST(UniqueList, ManyElements) {
  List list;
  for (int i = 0; i < 200000; ++i) list.emplace_back(i % 1000);
  EXPECT_EQ(uniqueList(list)->size(), 1000U);
}

TEST(Copies, AbsentForNothing) {
  EXPECT_EQ(copyList(List{1}), List{1});
  EXPECT_EQ(copyList(List{}), std::nullopt);
  EXPECT_EQ(copyList(std::nullopt), std::nullopt);
  EXPECT_EQ(copyDictionary(Dictionary{{"a", 1}}), (Dictionary{{"a", 1}}));
  EXPECT_EQ(copyDictionary(Dictionary{}), std::nullopt);
  EXPECT_EQ(copyDictionary(std::nullopt), std::nullopt);
}

TEST(InsertList, InOrderFromTheIndexOn) {
  const std::vector<platform::OptionalValue> inserted = {Value("x"), std::nullopt, Value("y")};
  EXPECT_EQ(insertList(inserted, List{1, 2}, 1), (List{1, "x", "y", 2}));
  EXPECT_EQ(insertList(inserted, List{1, 2}, 0), (List{"x", "y", 1, 2}));
  EXPECT_EQ(insertList(inserted, List{1, 2}, 2), (List{1, 2, "x", "y"}));
  EXPECT_EQ(insertList(inserted, List{1, 2}, 99), (List{1, 2, "x", "y"}));
  EXPECT_EQ(insertList(inserted, List{1, 2}, -1), (List{"x", "y", 1, 2}));
  EXPECT_EQ(insertList(std::nullopt, List{1}, 0), List{1});
  EXPECT_EQ(insertList(inserted, std::nullopt, 0), std::nullopt);
}

}  // namespace
}  // namespace vistrelle
