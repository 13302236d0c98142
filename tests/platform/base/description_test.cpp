#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "vistrelle/platform/base/value.h"

namespace vistrelle::platform {
namespace {

Date dateAt(std::int64_t seconds) {
  return Date(std::chrono::seconds(seconds));
}

class Thing : public Opaque {
 public:
  std::string description() const override { return "<thing>"; }
};

TEST(Description, AbsentValueIsNull) {
  EXPECT_EQ(description(OptionalValue()), "(null)");
}

TEST(Description, TextOutsideOfContainersIsBare) {
  EXPECT_EQ(description(Value("a \"b\" é\n")), "a \"b\" é\n");
  EXPECT_EQ(description(Value("")), "");
}

TEST(Description, WholeNumbersAndBooleans) {
  EXPECT_EQ(description(Value(0)), "0");
  EXPECT_EQ(description(Value(-7)), "-7");
  EXPECT_EQ(description(Value(std::numeric_limits<std::int64_t>::min())), "-9223372036854775808");
  EXPECT_EQ(description(Value(std::numeric_limits<std::uint64_t>::max())), "18446744073709551615");
  EXPECT_EQ(description(Value(true)), "1");
  EXPECT_EQ(description(Value(false)), "0");
}

TEST(Description, RealNumbersAreShortest) {
  EXPECT_EQ(description(Value(1.0)), "1");
  EXPECT_EQ(description(Value(0.1)), "0.1");
  EXPECT_EQ(description(Value(0.1F)), "0.1");
  EXPECT_EQ(description(Value(23.976F)), "23.976");
  EXPECT_EQ(description(Value(1920.0F)), "1920");
  EXPECT_EQ(description(Value(100000.0)), "100000");
  EXPECT_EQ(description(Value(16777216.0F)), "16777216");
  EXPECT_EQ(description(Value(-0.5)), "-0.5");
  EXPECT_EQ(description(Value(1e30)), "1e+30");
  EXPECT_EQ(description(Value(1e-7)), "1e-07");
  EXPECT_EQ(description(Value(0.0001)), "0.0001");
  EXPECT_EQ(description(Value(0.00001)), "1e-05");
  EXPECT_EQ(description(Value(1.0 / 3)), "0.3333333333333333");
}

TEST(Description, RealNumbersThatAreNone) {
  EXPECT_EQ(description(Value(std::nan(""))), "nan");
  EXPECT_EQ(description(Value(std::numeric_limits<double>::infinity())), "inf");
  EXPECT_EQ(description(Value(-std::numeric_limits<float>::infinity())), "-inf");
}

TEST(Description, DatesPrintInUtc) {
  EXPECT_EQ(description(Value(dateAt(1425213296))), "2015-03-01 12:34:56 +0000");
  EXPECT_EQ(description(Value(dateAt(0))), "1970-01-01 00:00:00 +0000");
  EXPECT_EQ(description(Value(Date(std::chrono::microseconds(-1)))), "1969-12-31 23:59:59 +0000");
}

TEST(Description, DatesAtTheEndsOfTheRangePrint) {
  EXPECT_EQ(description(Value(Date::max())), "294247-01-10 04:00:54 +0000");
  EXPECT_EQ(description(Value(Date::min())), "-290308-12-21 19:59:05 +0000");
}

TEST(Description, DataIsHexadecimalInGroups) {
  EXPECT_EQ(description(Value(Data{std::byte{0x0a}, std::byte{0xff}, std::byte{0}, std::byte{1}, std::byte{0x7f}})),
            "<0aff0001 7f>");
  EXPECT_EQ(description(Value(Data{})), "<>");
}

TEST(Description, UrlAndOpaqueObject) {
  EXPECT_EQ(description(Value(Url{"file:///tmp/a.mov"})), "file:///tmp/a.mov");
  EXPECT_EQ(description(Value(std::shared_ptr<const Opaque>(std::make_shared<Thing>()))), "<thing>");
  EXPECT_EQ(description(Value(List{std::shared_ptr<const Opaque>(std::make_shared<Thing>())})),
            "(\n    \"<thing>\"\n)");
}

TEST(Description, EmptyContainers) {
  EXPECT_EQ(description(Value(List{})), "(\n)");
  EXPECT_EQ(description(Value(Dictionary{})), "{\n}");
}

TEST(Description, ListOneElementALine) {
  EXPECT_EQ(description(Value(List{"a", 1, 2.5, true, "two words"})),
            "(\n"
            "    a,\n"
            "    1,\n"
            "    \"2.5\",\n"
            "    1,\n"
            "    \"two words\"\n"
            ")");
  EXPECT_EQ(description(std::vector<std::string>{"x.mov"}), "(\n    \"x.mov\"\n)");
}

TEST(Description, DictionaryInKeyOrder) {
  EXPECT_EQ(description(Value(Dictionary{{"width", 1920}, {"codec", "avc1"}, {"v0_fps", 23.976F}})),
            "{\n"
            "    codec = avc1;\n"
            "    \"v0_fps\" = \"23.976\";\n"
            "    width = 1920;\n"
            "}");
}

TEST(Description, NestedContainersRepeatTheirLevelsIndentation) {
  const Value nested(Dictionary{{"list", List{"a", List{1, 2}}}, {"map", Dictionary{{"k", "v"}}}, {"none", List{}}});
  EXPECT_EQ(description(nested),
            "{\n"
            "    list =     (\n"
            "        a,\n"
            "                (\n"
            "            1,\n"
            "            2\n"
            "        )\n"
            "    );\n"
            "    map =     {\n"
            "        k = v;\n"
            "    };\n"
            "    none =     (\n"
            "    );\n"
            "}");
}

TEST(Description, QuotesEverythingButAsciiLettersAndDigits) {
  EXPECT_EQ(description(Value(List{"abcXYZ019"})), "(\n    abcXYZ019\n)");
  for (const char* text : {"a_b", "a-b", "a.b", "a/b", "a b", "-1", "$x", "a:b"}) {
    EXPECT_EQ(description(Value(List{text})), std::string("(\n    \"") + text + "\"\n)");
  }
  EXPECT_EQ(description(Value(List{""})), "(\n    \"\"\n)");
  EXPECT_EQ(description(Value(List{dateAt(0)})), "(\n    \"1970-01-01 00:00:00 +0000\"\n)");
  EXPECT_EQ(description(Value(List{Data{std::byte{1}}})), "(\n    <01>\n)");
}

TEST(Description, EscapesInsideQuotes) {
  EXPECT_EQ(description(Value(List{"a\"b\\c"})), "(\n    \"a\\\"b\\\\c\"\n)");
  EXPECT_EQ(description(Value(List{"\a\b\t\n\v\f\r"})), "(\n    \"\\a\\b\\t\\n\\v\\f\\r\"\n)");
  EXPECT_EQ(description(Value(List{std::string("\0\x01\x7f", 3)})), "(\n    \"\\000\\001\\177\"\n)");
  EXPECT_EQ(description(Value(List{"it's"})), "(\n    \"it's\"\n)");
}

TEST(Description, NonAsciiTextIsEscapedAsUtf16) {
  EXPECT_EQ(description(Value(List{"é"})), "(\n    \"\\U00e9\"\n)");
  EXPECT_EQ(description(Value(List{"北京"})), "(\n    \"\\U5317\\U4eac\"\n)");
  EXPECT_EQ(description(Value(List{"🎬"})), "(\n    \"\\Ud83c\\Udfac\"\n)");
  EXPECT_EQ(description(Value(Dictionary{{"clé", "é"}})), "{\n    \"cl\\U00e9\" = \"\\U00e9\";\n}");
}

TEST(Description, StrayBytesAreOctal) {
  EXPECT_EQ(description(Value(List{"a\xC3"})), "(\n    \"a\\303\"\n)");
  EXPECT_EQ(description(Value(List{"\xED\xA0\x80"})), "(\n    \"\\355\\240\\200\"\n)");
}

TEST(Description, DeepNestingPrints) {
  constexpr int kDepth = 1000;
  Value value("x");
  for (int i = 0; i < kDepth; ++i) value = Value(List{std::move(value)});
  const std::string text = description(value);
  EXPECT_EQ(text.substr(0, 20), "(\n        (\n        ");
  EXPECT_TRUE(text.ends_with("\n    )\n)"));
}

TEST(Value, NumbersAreWholeOrReal) {
  EXPECT_TRUE(Value(1).isNumber());
  EXPECT_TRUE(Value(1.5F).isNumber());
  EXPECT_FALSE(Value(true).isNumber());
  EXPECT_FALSE(Value("1").isNumber());
  EXPECT_EQ(Value(1.5F).number(), 1.5);
  EXPECT_EQ(Value("1").number(), std::nullopt);
}

}  // namespace
}  // namespace vistrelle::platform
