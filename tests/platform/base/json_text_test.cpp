#include "vistrelle/platform/base/json_text.h"

#include <gtest/gtest.h>

#include <limits>

namespace vistrelle::platform {
namespace {

TEST(JsonText, TextsAreEscapedAndInvalidBytesReplaced) {
  EXPECT_EQ(jsonText("a\"b\\c\n\x01"), "\"a\\\"b\\\\c\\n\\u0001\"");
  EXPECT_EQ(jsonText("é"), "\"é\"");
  EXPECT_EQ(jsonText("a\xff"), "\"a\xef\xbf\xbd\"");
}

TEST(JsonText, NumbersInTheFewestDigits) {
  EXPECT_EQ(jsonText(29.97F), "29.97");
  EXPECT_EQ(jsonText(0.1), "0.1");
  EXPECT_EQ(jsonText(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
  EXPECT_EQ(jsonText(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(jsonText(true), "true");
}

TEST(JsonText, WhatIsNoNumberIsNull) {
  EXPECT_EQ(jsonText(std::numeric_limits<double>::infinity()), "null");
  EXPECT_EQ(jsonText(std::numeric_limits<float>::quiet_NaN()), "null");
  EXPECT_EQ(jsonText(jsonNull()), "null");
  EXPECT_EQ(jsonText(jsonOrNull(OptionalText())), "null");
  EXPECT_EQ(jsonText(jsonOrNull(OptionalText("x"))), "\"x\"");
}

TEST(JsonText, ListsAndDictionariesInKeyOrder) {
  EXPECT_EQ(jsonText(List{}), "[]");
  EXPECT_EQ(jsonText(Dictionary{}), "{}");
  EXPECT_EQ(jsonText(Dictionary{{"b", 1}, {"a", List{"x", 2}}}),
            "{\n  \"a\": [\n    \"x\",\n    2\n  ],\n  \"b\": 1\n}");
}

TEST(JsonText, DataIsItsSize) {
  EXPECT_EQ(jsonText(Data(3)), "{\n  \"bytes\": 3\n}");
}

}  // namespace
}  // namespace vistrelle::platform
