#include "vistrelle/platform/preferences/property_list.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <string>

#include "tests/support/scratch_folder.h"

namespace vistrelle::platform {
namespace {

using namespace std::string_literals;
using ::testing::HasSubstr;
using testing::readFile;
using testing::ScratchFolder;

Value roundTrip(const Value& value) {
  const auto written = writeBinaryPropertyList(value);
  EXPECT_TRUE(written.bytes) << written.error;
  auto reading = readPropertyList(written.bytes.value_or(""));
  EXPECT_TRUE(reading.value) << reading.error;
  return reading.value.value_or("(nothing)");
}

std::string errorOf(std::string_view bytes, const PropertyListLimits& limits = {}) {
  const auto reading = readPropertyList(bytes, limits);
  EXPECT_FALSE(reading.value);
  return reading.error;
}

Date dateOf(std::int64_t seconds, std::int64_t microseconds = 0) {
  return Date(std::chrono::seconds(seconds) + std::chrono::microseconds(microseconds));
}

/// Runs a Python program with the argument list; the programs use plistlib, another implementation of the formats.
std::string python(const ScratchFolder& scratch, const std::string& program, const std::string& argument) {
  const auto script = scratch.write("program.py", program);
  const auto output = scratch.file("output.txt");
  const std::string line = "python3 '" + script + "' '" + argument + "' > '" + output + "' 2>&1";
  EXPECT_EQ(std::system(line.c_str()), 0) << readFile(output);
  return readFile(output);
}

TEST(PropertyList, ScalarsComeBackExactly) {
  const std::int64_t numbers[] = {0,
                                  1,
                                  -1,
                                  127,
                                  128,
                                  255,
                                  256,
                                  65535,
                                  65536,
                                  -32769,
                                  4294967295,
                                  4294967296,
                                  std::numeric_limits<std::int64_t>::max(),
                                  std::numeric_limits<std::int64_t>::min()};
  for (const auto number : numbers) EXPECT_EQ(roundTrip(number), Value(number)) << number;
  const std::uint64_t large[] = {std::uint64_t{1} << 63U, std::numeric_limits<std::uint64_t>::max()};
  for (const auto number : large) EXPECT_EQ(roundTrip(number), Value(number)) << number;
  EXPECT_EQ(roundTrip(std::uint64_t{5}), Value(std::int64_t{5}));
  for (const double number : {0.0, -0.5, 1e300, 0.1, std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(roundTrip(number), Value(number));
  }
  EXPECT_EQ(roundTrip(0.1F), Value(0.1F));
  EXPECT_EQ(roundTrip(true), Value(true));
  EXPECT_EQ(roundTrip(false), Value(false));
}

TEST(PropertyList, TextsComeBackExactly) {
  const std::string texts[] = {"",
                               "a",
                               std::string(14, 'x'),
                               std::string(15, 'x'),
                               std::string(70'000, 'x'),
                               "é",
                               "日本",
                               "😀 emoji",
                               "nul\0inside"s,
                               std::string(300, 'x') + "é",
                               "\x7F\x01"};
  for (const auto& text : texts) EXPECT_EQ(roundTrip(text), Value(text));
  EXPECT_EQ(roundTrip("broken \xFF text"), Value("broken \uFFFD text"));
}

TEST(PropertyList, DatesKeepTheirMicroseconds) {
  for (const Date& date : {dateOf(0), dateOf(978'307'200), dateOf(1'763'683'200, 123'456), dateOf(-2'208'988'800, 1),
                           dateOf(4'102'444'800, 999'999), dateOf(9'000'000'000, 250'000)}) {
    EXPECT_EQ(roundTrip(date), Value(date)) << date.time_since_epoch().count();
  }
}

TEST(PropertyList, DataComesBackExactly) {
  Data data;
  for (int i = 0; i < 1000; ++i) data.push_back(static_cast<std::byte>(i));
  EXPECT_EQ(roundTrip(data), Value(data));
  EXPECT_EQ(roundTrip(Data{}), Value(Data{}));
}

TEST(PropertyList, NestedListsAndDictionariesComeBackExactly) {
  List many;
  for (int i = 0; i < 70'000; ++i) many.emplace_back(i);  // more than two bytes can number
  const Dictionary value = {{"", 1},
                            {"clé", List{1, "a", List{}, Dictionary{}}},
                            {"inner", Dictionary{{"inner", Dictionary{{"same", "same"}, {"a", "same"}}}}},
                            {"many", many}};
  EXPECT_EQ(roundTrip(value), Value(value));
}

TEST(PropertyList, NestingHasALimitBothWays) {
  Value deep = 1;
  for (int i = 0; i < 256; ++i) deep = Value(List{deep});
  EXPECT_EQ(roundTrip(deep), deep);
  deep = Value(List{deep});
  const auto written = writeBinaryPropertyList(deep);
  EXPECT_FALSE(written.bytes);
  EXPECT_EQ(written.error, "the property list is nested too deeply");
}

TEST(PropertyList, WhatAPropertyListCannotHoldIsNotWritten) {
  EXPECT_EQ(writeBinaryPropertyList(List{Url{"http://a"}}).error, "property lists cannot contain a URL");
  EXPECT_EQ(writeBinaryPropertyList(Colour{}).error, "property lists cannot contain a colour");
  EXPECT_EQ(writeBinaryPropertyList(std::shared_ptr<const Opaque>()).error,
            "property lists cannot contain an opaque object");
}

TEST(PropertyList, OtherProgramsReadWhatIsWritten) {
  const ScratchFolder scratch;
  const Dictionary value = {{"text", "日本 a"},
                            {"number", std::int64_t{-5}},
                            {"large", std::numeric_limits<std::uint64_t>::max()},
                            {"real", 0.5},
                            {"yes", true},
                            {"date", dateOf(1'000'000'000)},
                            {"data", Data{std::byte{0}, std::byte{255}}},
                            {"list", List{1, 2}}};
  const auto file = scratch.write("a.plist", writeBinaryPropertyList(value).bytes.value());
  EXPECT_EQ(python(scratch,
                   "import plistlib, sys\n"
                   "print(sorted(plistlib.load(open(sys.argv[1], 'rb')).items()))\n",
                   file),
            "[('data', b'\\x00\\xff'), ('date', datetime.datetime(2001, 9, 9, 1, 46, 40)), "
            "('large', 18446744073709551615), ('list', [1, 2]), ('number', -5), ('real', 0.5), ('text', '日本 a'), "
            "('yes', True)]\n");
}

TEST(PropertyList, FilesOfOtherProgramsAreRead) {
  const ScratchFolder scratch;
  const Dictionary expected = {{"text", "日本 <&> \"a\""},
                               {"number", std::int64_t{-5}},
                               {"smallest", std::numeric_limits<std::int64_t>::min()},
                               {"large", std::numeric_limits<std::uint64_t>::max()},
                               {"real", -0.25},
                               {"yes", true},
                               {"no", false},
                               {"date", dateOf(4'200'000'000)},
                               {"old", dateOf(-3'000'000'000)},
                               {"data", Data{std::byte{0}, std::byte{255}}},
                               {"list", List{1, List{}, Dictionary{{"k", "v"}}}}};
  for (const std::string format : {"FMT_BINARY", "FMT_XML"}) {
    const auto file = scratch.file(format + ".plist");
    python(scratch,
           "import plistlib, sys, datetime\n"
           "value = {'text': '日本 <&> \"a\"', 'number': -5, 'smallest': -2**63, 'large': 2**64 - 1, 'real': -0.25,\n"
           "  'yes': True, 'no': False, 'date': datetime.datetime(2103, 2, 4, 2, 40),\n"
           "  'old': datetime.datetime(1874, 12, 7, 18, 40), 'data': b'\\0\\xff', 'list': [1, [], {'k': 'v'}]}\n"
           "plistlib.dump(value, open(sys.argv[1], 'wb'), fmt=plistlib." +
               format + ")\n",
           file);
    const auto reading = readPropertyListFile(file);
    ASSERT_TRUE(reading.value) << format << ": " << reading.error;
    for (const auto& [key, value] : expected) {
      EXPECT_EQ(reading.value->get<Dictionary>()->at(key), value) << format << " " << key;
    }
    EXPECT_EQ(reading.value->get<Dictionary>()->size(), expected.size());
  }
}

TEST(PropertyList, KeyedArchiveReferencesAreDictionaries) {
  const ScratchFolder scratch;
  const auto file = scratch.file("a.plist");
  python(scratch,
         "import plistlib, sys\n"
         "plistlib.dump([plistlib.UID(300)], open(sys.argv[1], 'wb'), fmt=plistlib.FMT_BINARY)\n",
         file);
  EXPECT_EQ(readPropertyListFile(file).value, Value(List{Dictionary{{"CF$UID", std::int64_t{300}}}}));
}

/// A binary property list of given objects; the trailer can be made wrong.
std::string binary(const std::vector<std::string>& objects, std::uint64_t top = 0, std::uint64_t count = 0) {
  std::string bytes = "bplist00";
  std::string table;
  for (const auto& object : objects) {
    table += static_cast<char>(bytes.size());
    bytes += object;
  }
  const std::size_t tableStart = bytes.size();
  bytes += table + "\0\0\0\0\0\0\1\1"s;
  for (const std::uint64_t number : {count ? count : objects.size(), top, std::uint64_t{tableStart}}) {
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 255U);
  }
  return bytes;
}

TEST(PropertyList, HostileBinaryFilesGiveNothing) {
  EXPECT_EQ(readPropertyList(binary({"\xA1\x01"s, "\x10\x05"s})).value, Value(List{5}));  // the helper is right
  EXPECT_THAT(errorOf("bplist00"), HasSubstr("too short"));
  EXPECT_THAT(errorOf(binary({"\xA1\0"s})), HasSubstr("within itself"));
  EXPECT_THAT(errorOf(binary({"\xA1\x01"s, "\xA1\0"s})), HasSubstr("within itself"));
  EXPECT_THAT(errorOf(binary({"\xD1\x01\0"s, "\x51k"s})), HasSubstr("within itself"));
  EXPECT_THAT(errorOf(binary({"\xA1\x07"s})), HasSubstr("a reference to no object"));
  EXPECT_THAT(errorOf(binary({"\x10\x05"s}, 9)), HasSubstr("a reference to no object"));
  EXPECT_THAT(errorOf(binary({"\x10\x05"s}, 0, std::uint64_t{1} << 60U)), HasSubstr("table of offsets is cut short"));
  EXPECT_THAT(errorOf(binary({"\x5E"s + "abc"})), HasSubstr("beyond the end"));
  EXPECT_THAT(errorOf(binary({"\x5F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s})), HasSubstr("beyond the end"));
  EXPECT_THAT(errorOf(binary({"\x6F\x13\x7F\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s})), HasSubstr("beyond the end"));
  EXPECT_THAT(errorOf(binary({"\xAF\x13\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"s})), HasSubstr("beyond the end"));
  EXPECT_THAT(errorOf(binary({"\xDF\x12\xFF\xFF\xFF\xFF"s})), HasSubstr("beyond the end"));
  EXPECT_THAT(errorOf(binary({"\x5F\x33zz"s})), HasSubstr("a length that is no number"));
  EXPECT_THAT(errorOf(binary({"\0"s})), HasSubstr("a null value"));
  EXPECT_THAT(errorOf(binary({"\x70"s})), HasSubstr("unknown kind"));
  EXPECT_THAT(errorOf(binary({"\xC1\x01"s, "\x10\x05"s})), HasSubstr("unknown kind"));
  EXPECT_THAT(errorOf(binary({"\xD1\x01\x01"s, "\x10\x05"s})), HasSubstr("a key that is no text"));
  EXPECT_THAT(errorOf(binary({"\x33\x7F\xF8\0\0\0\0\0\0"s})), HasSubstr("a date out of range"));
  EXPECT_THAT(errorOf(binary({"\x33\x7F\xEF\xFF\xFF\xFF\xFF\xFF\xFF"s})), HasSubstr("a date out of range"));
  EXPECT_THAT(errorOf(binary({"\x14" + std::string(7, 0) + "\1" + std::string(8, 0)})), HasSubstr("more than 64 bits"));
  std::string trailer = binary({"\x10\x05"s});
  trailer[trailer.size() - 26] = 9;
  EXPECT_THAT(errorOf(trailer), HasSubstr("bad trailer"));
  trailer = binary({"\x10\x05"s});
  trailer.back() = '\xFF';
  EXPECT_THAT(errorOf(trailer), HasSubstr("table of offsets lies outside"));
}

TEST(PropertyList, SharedObjectsThatMultiplyGiveNothing) {
  // Each list names the next one twice: 2 to the power 40 values in 130 bytes.
  std::vector<std::string> lists;
  for (int i = 0; i < 40; ++i) lists.push_back("\xA2" + std::string(2, static_cast<char>(i + 1)));
  lists.emplace_back("\x10\x05");
  PropertyListLimits small;
  small.values = 100'000;
  EXPECT_THAT(errorOf(binary(lists), small), HasSubstr("too many values"));
  small.bytes = 300;
  std::vector<std::string> texts = {"\xAF\x10\x64" + std::string(100, 1), "\x5F\x10\x32" + std::string(50, 'x')};
  EXPECT_THAT(errorOf(binary(texts), small), HasSubstr("add up to too much"));
}

TEST(PropertyList, EveryCutAndEveryWrongByteIsSurvived) {
  const Dictionary value = {{"a", List{1, "é", 0.5, Dictionary{{"b", true}}}}, {"d", Data{std::byte{1}}}};
  const std::string good = writeBinaryPropertyList(value).bytes.value();
  for (std::size_t length = 0; length < good.size(); ++length) {
    EXPECT_FALSE(readPropertyList(good.substr(0, length)).value) << length;
  }
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string wrong = good;
      wrong[i] = static_cast<char>(byte);
      readPropertyList(wrong);
    }
  }
}

std::string xml(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//X//DTD PLIST 1.0//EN\" "
         "\"http://localhost/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">" +
         content + "</plist>\n";
}

std::string repeated(const std::string& text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

TEST(PropertyList, XmlIsRead) {
  EXPECT_EQ(readPropertyList(xml("<dict><key>a</key><!-- <array> --><string>b &amp; c</string></dict>")).value,
            Value(Dictionary{{"a", "b & c"}}));
  EXPECT_EQ(readPropertyList("\xEF\xBB\xBF" + xml("<array><integer>1</integer><true/></array>")).value,
            Value(List{1, true}));
  EXPECT_EQ(readPropertyList(xml(repeated("<array>", 256) + repeated("</array>", 256))).value.has_value(), true);
}

TEST(PropertyList, HostileXmlGivesNothing) {
  const std::string bomb =
      "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;\">]>"
      "<plist version=\"1.0\"><string>&b;</string></plist>";
  EXPECT_THAT(errorOf(bomb), HasSubstr("it declares entities"));
  const std::string external =
      "<!DOCTYPE plist [<!ENTITY a SYSTEM \"file:///etc/passwd\">]><plist><string>&a;</string></plist>";
  EXPECT_THAT(errorOf(external), HasSubstr("it declares entities"));
  EXPECT_THAT(errorOf(xml(repeated("<array>", 300) + repeated("</array>", 300))), HasSubstr("nested too deeply"));
  EXPECT_THAT(errorOf(xml(repeated("<array>", 1'000'000))), HasSubstr("nested too deeply"));
  PropertyListLimits few;
  few.values = 100;
  EXPECT_THAT(errorOf(xml("<array>" + repeated("<true/>", 200) + "</array>"), few), HasSubstr("too many values"));
  EXPECT_THAT(errorOf(xml("<string>&unknown;</string>")), HasSubstr("XML property list"));
  EXPECT_THAT(errorOf("<plist><dict><key>a"), HasSubstr("XML property list"));
  EXPECT_THAT(errorOf("<html><body>no</body></html>"), HasSubstr("XML property list"));
  EXPECT_THAT(errorOf("<"), HasSubstr("XML property list"));
}

// The XML library takes what stands between quotation marks for one word, wherever it ends: what the limits are counted
// on must end where it does.
TEST(PropertyList, QuotationMarksInXmlHideNothingFromTheLimits) {
  const std::string deep = repeated("<array>", 300) + repeated("</array>", 300);
  const std::string endless = repeated("<array>", 1'000'000);
  for (const std::string& inner : {deep, endless}) {
    EXPECT_THAT(errorOf("<!DOCTYPE plist \"> <!-- \"><plist>" + inner + "</plist><!-- -->"),
                HasSubstr("quotation mark"));
    EXPECT_THAT(errorOf("<? \" ?><!-- \" ?><plist>" + inner + "</plist><!-- -->"), HasSubstr("quotation mark"));
    EXPECT_THAT(errorOf("<plist a=\"><!-- \">" + inner + "</plist><!-- -->"), HasSubstr("quotation mark"));
  }
  const std::string seemingEmpty = repeated("<array a=\"/>\">", 300) + repeated("</array>", 300);
  EXPECT_THAT(errorOf(xml(seemingEmpty)), HasSubstr("quotation mark"));
  EXPECT_THAT(errorOf(xml(repeated("<array a=\"/>\">", 1'000'000))), HasSubstr("quotation mark"));
  // Complete ones may stand anywhere, odd ones in texts and comments.
  const PropertyListReading reading = readPropertyList(
      "<?xml version=\"1.0\"?><!-- \" --><!DOCTYPE plist PUBLIC \"-//X//DTD 1.0//EN\" \"http://x.invalid/x.dtd\">"
      "<plist version=\"1.0\"><string>a \" b <![CDATA[ \" <c> ]]></string></plist>");
  ASSERT_TRUE(reading.value) << reading.error;
  EXPECT_EQ(*reading.value->get<std::string>(), "a \" b  \" <c> ");
}

TEST(PropertyList, EveryCutOfAnXmlFileIsSurvived) {
  const std::string good = xml("<dict><key>a</key><array><integer>5</integer><data>AAEC</data></array></dict>");
  for (std::size_t length = 0; length < good.size(); ++length) readPropertyList(good.substr(0, length));
  for (std::size_t i = 0; i < good.size(); ++i) {
    for (const char c : {'\0', '<', '>', '&', '\xFF', ' '}) {
      std::string wrong = good;
      wrong[i] = c;
      readPropertyList(wrong);
    }
  }
}

TEST(PropertyList, OtherContentAndFilesGiveNothing) {
  EXPECT_EQ(errorOf(""), "not a property list");
  EXPECT_EQ(errorOf("{ a = b; }"), "not a property list");
  PropertyListLimits small;
  small.bytes = 10;
  EXPECT_EQ(errorOf(binary({"\x10\x05"s}), small), "the property list is too long");
  const ScratchFolder scratch;
  EXPECT_EQ(readPropertyListFile(scratch.file("absent")).error, "open: No such file or directory");
  EXPECT_EQ(readPropertyListFile(scratch.path()).error, "not a regular file");
  EXPECT_EQ(readPropertyListFile(scratch.write("long", std::string(100, 'x')), small).error, "the file is too long");
}

}  // namespace
}  // namespace vistrelle::platform
