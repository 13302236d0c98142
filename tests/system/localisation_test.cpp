#include "vistrelle/system/localisation.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/bundle/folder_bundle.h"
#include "vistrelle/system/strings_lines.h"

namespace vistrelle {
namespace {

using platform::OptionalText;
using testing::RecordingLog;
using testing::ScratchFolder;
using Texts = std::vector<std::string>;

/// The text as UTF-16 with its byte-order mark; basic plane only.
std::string utf16(const std::u16string& text, bool bigEndian) {
  std::string bytes;
  for (const char16_t unit : u"\uFEFF" + text) {
    const char high = static_cast<char>(unit >> 8);
    const char low = static_cast<char>(unit & 0xFF);
    bytes += bigEndian ? high : low;
    bytes += bigEndian ? low : high;
  }
  return bytes;
}

class LocalisationTest : public ::testing::Test {
 protected:
  ScratchFolder folder_;
  platform::Installed<platform::Bundle> bundle_{platform::mainBundle(),
                                                platform::folderBundle({std::nullopt, folder_.path(), {"en"}})};
};

TEST_F(LocalisationTest, IsLocalizedWhenTheTableSaysSomethingElse) {
  folder_.write("Localized.strings", "\"Open\" = \"Ouvrir\";\n\"Same\" = \"Same\";\n");
  EXPECT_TRUE(isLocalized("Open"));
  EXPECT_FALSE(isLocalized("Same"));
  EXPECT_FALSE(isLocalized("Missing"));
  EXPECT_FALSE(isLocalized(""));
  EXPECT_FALSE(isLocalized(std::nullopt));
}

TEST_F(LocalisationTest, FindsTheKeyOfAQuotedValue) {
  RecordingLog log;
  const std::string file =
      folder_.write("Menu.strings", "/* menu */\n\"Close\" = \"Fermer\";\n\"Open\" = \"Ouvrir\";\n");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", file), "Open");
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(localisedTitleFromStrings("Nulle part", file), "Nulle part");
  EXPECT_EQ(log.lines(), Texts{"str2LocalisationTitl:-( from 'Nulle part'"});
}

TEST_F(LocalisationTest, TellsWhereItBegins) {
  RecordingLog log(true);
  EXPECT_EQ(localisedTitleFromStrings("x", "Absent"), "x");
  EXPECT_TRUE(log.has("str2LocalisationTitl- begin, from 'Absent'->'x'"));
  EXPECT_FALSE(log.hasContaining(":-( from"));
}

TEST_F(LocalisationTest, AbsentArguments) {
  RecordingLog log(true);
  EXPECT_EQ(localisedTitleFromStrings(std::nullopt, "f"), std::nullopt);
  EXPECT_EQ(localisedTitleFromStrings("", "f"), std::nullopt);
  EXPECT_EQ(localisedTitleFromStrings("text", std::nullopt), "text");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(LocalisationTest, TheExtensionMayBeLeftOut) {
  RecordingLog log;
  folder_.write("Menu.strings", "\"Open\" = \"Ouvrir\";\n");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", folder_.file("Menu")), "Open");
  // Not a path from here, so the bundle's resource of that name.
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", "Menu"), "Open");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", "Menu.strings"), "Open");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", "Other"), "Ouvrir");
}

TEST_F(LocalisationTest, AnotherExtensionIsKept) {
  RecordingLog log;
  folder_.write("Menu.txt", "\"Open\" = \"Ouvrir\";\n");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", "Menu.txt"), "Open");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", "Menu"), "Ouvrir");
}

TEST_F(LocalisationTest, AnEmptyFileLeavesTheText) {
  RecordingLog log;
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", folder_.write("Empty.strings", "")), "Ouvrir");
}

TEST_F(LocalisationTest, AFileThatCannotBeReadLeavesTheTextAndGivesNoKeys) {
  RecordingLog log;
  folder_.makeFolder("Broken.strings");
  EXPECT_EQ(localisedTitleFromStrings("Ouvrir", folder_.file("Broken.strings")), "Ouvrir");
  EXPECT_EQ(stringsFileKeys("Broken"), std::nullopt);
}

TEST_F(LocalisationTest, ReadsUtf16WithItsMark) {
  RecordingLog log;
  const std::u16string text = u"\"Summer\" = \"Été\";\n\"Winter\" = \"Hiver\";\n";
  EXPECT_EQ(localisedTitleFromStrings("Été", folder_.write("le.strings", utf16(text, false))), "Summer");
  EXPECT_EQ(localisedTitleFromStrings("Été", folder_.write("be.strings", utf16(text, true))), "Summer");
  EXPECT_EQ(localisedTitleFromStrings("Été", folder_.write("u8.strings", "\"Summer\" = \"Été\";\r\n")), "Summer");
  EXPECT_EQ(stringsFileKeys("le"), (Texts{"Summer", "Winter"}));
  EXPECT_EQ(stringsFileKeys("be.strings"), (Texts{"Summer", "Winter"}));
}

TEST_F(LocalisationTest, KeysComeInFileOrder) {
  folder_.write(
      "Keys.strings",
      "/* a comment */\n// another\n\"Zoo\" = \"z\";\n\nno sign here\n\"Ant\" = \"a\";\n\"Zoo\" = \"again\";\n");
  EXPECT_EQ(stringsFileKeys("Keys"), (Texts{"Zoo", "Ant", "Zoo"}));
  EXPECT_EQ(stringsFileKeys("Keys.anything"), (Texts{"Zoo", "Ant", "Zoo"}));
}

TEST_F(LocalisationTest, NoKeysGiveNothing) {
  folder_.write("None.strings", "/* comment */\nplain = text;\n");
  EXPECT_EQ(stringsFileKeys("None"), std::nullopt);
  EXPECT_EQ(stringsFileKeys("Missing"), std::nullopt);
  EXPECT_EQ(stringsFileKeys(""), std::nullopt);
  EXPECT_EQ(stringsFileKeys(std::nullopt), std::nullopt);
}

TEST_F(LocalisationTest, ManyKeys) {
  RecordingLog log;
  std::string content;
  for (int i = 0; i < 10000; ++i) content += platform::format("\"Key {}\" = \"Valeur numéro {}\";\n", i, i);
  const std::string file = folder_.write("Many.strings", content);
  EXPECT_EQ(localisedTitleFromStrings("Valeur numéro 9999", file), "Key 9999");
  EXPECT_EQ(stringsFileKeys("Many")->size(), 10000U);
}

TEST(StringsLines, TheFirstMatchingLineCounts) {
  EXPECT_EQ(keyOfValue({"\"A\" = \"x\";", "\"B\" = \"y\";", "\"C\" = \"y\";"}, "y"), "B");
  EXPECT_EQ(keyOfValue({}, "y"), std::nullopt);
}

TEST(StringsLines, LinesAreCutAtTheFirstTwoMarks) {
  // Comments are lines like others.
  EXPECT_EQ(keyOfValue({"// \"A\" = \"x\";"}, "x"), "A");
  // Without a quote on the right, all of it is the value, semicolon and blank included.
  EXPECT_EQ(keyOfValue({"\"A\" = x;"}, " x;"), "A");
  EXPECT_EQ(keyOfValue({"\"A\" = x;"}, "x"), std::nullopt);
  // The right part ends at a second equals sign.
  EXPECT_EQ(keyOfValue({"\"A\" = \"x=y\";"}, "x"), "A");
  EXPECT_EQ(keyOfValue({"\"A\" = \"x=y\";"}, "x=y"), std::nullopt);
  // An equals sign within the key takes the rest of the key for the right part.
  EXPECT_EQ(keyOfValue({"\"A=B\" = \"x\";"}, " "), "A=B");
  // A quote that is never closed reaches to the end of the line.
  EXPECT_EQ(keyOfValue({"x = \"A"}, "A"), "A");
  EXPECT_EQ(keyOfValue({"no quote = x", "\"no sign\" x"}, "x"), std::nullopt);
}

TEST(StringsLines, EscapedQuotes) {
  const Texts lines{R"("Say \"hi\"" = "Dire \"salut\"";)", R"("Back\\slash" = "Barre\\oblique";)"};
  EXPECT_EQ(keyOfValue(lines, R"(Dire "salut")"), R"(Say "hi")");
  // As they stand, the first quote after the backslash ends both.
  EXPECT_EQ(keyOfValue(lines, "Dire \\"), "Say \\");
  // An escaped quote that is never closed is no value.
  EXPECT_EQ(keyOfValue({R"("A" = "x \"y)"}, R"(x "y)"), std::nullopt);
  // Five pieces before the equals sign: no key.
  EXPECT_EQ(keysOfLines(lines), Texts{R"(Back\\slash)"});
}

TEST(StringsLines, KeysNeedOneOrTwoQuotes) {
  EXPECT_EQ(keysOfLines({"Key\" = x", "\"A\" = x", "\"a\" \"b\" = x", "plain = \"x\"", "\"no sign\"", "\"\" = x"}),
            (Texts{"Key", "A", ""}));
}

}  // namespace
}  // namespace vistrelle
