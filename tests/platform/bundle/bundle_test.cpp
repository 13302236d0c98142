#include "vistrelle/platform/bundle/bundle.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/child.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/bundle/folder_bundle.h"
#include "vistrelle/platform/bundle/strings_table.h"

namespace vistrelle::platform {
namespace {

using namespace std::string_literals;
using testing::RecordingLog;
using testing::ScratchFolder;
using Languages = std::vector<std::string>;

TEST(BareTool, HasNoNameAndNoTablesAndItsOwnFolder) {
  const auto bundle = mainBundle().get();
  EXPECT_FALSE(bundle->name());
  EXPECT_EQ(bundle->resourcePath(), std::filesystem::canonical("/proc/self/exe").parent_path().string());
  EXPECT_EQ(bundle->localizedString("key", "", "Localized"), "key");
  EXPECT_EQ(bundle->localizedString("key", "other", "Localized"), "other");
  const auto own = std::filesystem::canonical("/proc/self/exe");
  EXPECT_EQ(bundle->pathForResource(own.filename().string(), ""), own.string());
  EXPECT_FALSE(bundle->pathForResource("absent", "txt"));
}

TEST(FolderBundle, AnswersForItsFolder) {
  const ScratchFolder scratch;
  const auto file = scratch.write("tools/spumux", "");
  scratch.write("help.txt", "");
  const auto french = scratch.write("fr.lproj/about.html", "");
  const auto bundle = folderBundle({"Studio", scratch.path(), {"fr"}});
  EXPECT_EQ(bundle->name(), "Studio");
  EXPECT_EQ(bundle->resourcePath(), scratch.path());
  EXPECT_EQ(bundle->pathForResource("tools/spumux", ""), file);
  EXPECT_EQ(bundle->pathForResource("help", "txt"), scratch.file("help.txt"));
  EXPECT_EQ(bundle->pathForResource("about", "html"), french);
  EXPECT_FALSE(bundle->pathForResource("", ""));
  EXPECT_FALSE(folderBundle({"", scratch.path(), {}})->name());
}

TEST(FolderBundle, TableOfTheMostWantedLanguageAnswers) {
  const ScratchFolder scratch;
  scratch.write("Localized.strings", "\"a\" = \"plain\";");
  EXPECT_EQ(folderBundle({"S", scratch.path(), {"fr"}})->localizedString("a", "", "Localized"), "plain");
  scratch.write("en.lproj/Localized.strings", "\"a\" = \"english\";");
  EXPECT_EQ(folderBundle({"S", scratch.path(), {"fr"}})->localizedString("a", "", "Localized"), "english");
  scratch.write("fr.lproj/Localized.strings", "\"a\" = \"français\";");
  scratch.write("pt_BR.lproj/Localized.strings", "\"a\" = \"português\";");
  EXPECT_EQ(folderBundle({"S", scratch.path(), {"fr"}})->localizedString("a", "", "Localized"), "français");
  EXPECT_EQ(folderBundle({"S", scratch.path(), {"pt-BR", "fr"}})->localizedString("a", "", "Localized"), "português");
  EXPECT_EQ(folderBundle({"S", scratch.path(), {"de", "fr"}})->localizedString("a", "", "Localized"), "français");
}

TEST(FolderBundle, MissingEntryAnswersTheFallbackOrTheKey) {
  const ScratchFolder scratch;
  scratch.write("Localized.strings", "\"empty\" = \"\";");
  const auto bundle = folderBundle({"S", scratch.path(), {"fr"}});
  EXPECT_EQ(bundle->localizedString("b", "", "Localized"), "b");
  EXPECT_EQ(bundle->localizedString("b", "fallback", "Localized"), "fallback");
  EXPECT_EQ(bundle->localizedString("b", "", "Other"), "b");
  EXPECT_EQ(bundle->localizedString("empty", "fallback", "Localized"), "");
}

TEST(FolderBundle, DamagedTableIsSaidOnce) {
  const ScratchFolder scratch;
  const auto table = scratch.write("Localized.strings", "\"a\" = \"b\"");
  const RecordingLog log;
  const auto bundle = folderBundle({"S", scratch.path(), {"fr"}});
  EXPECT_EQ(bundle->localizedString("a", "", "Localized"), "a");
  EXPECT_EQ(bundle->localizedString("a", "", "Localized"), "a");
  EXPECT_EQ(log.count("bundle              :-( strings table cannot be read '" + table + "'"), 1);
}

Languages languagesOf(const char* language, const char* all, const char* lang) {
  ::setenv("LANGUAGE", language, 1);
  ::setenv("LC_ALL", all, 1);
  ::unsetenv("LC_MESSAGES");
  ::setenv("LANG", lang, 1);
  return preferredLanguages();
}

TEST(PreferredLanguages, ComeFromTheEnvironment) {
  EXPECT_TRUE(testing::inChild([] {
    EXPECT_EQ(languagesOf("", "", "fr_CH.UTF-8@euro"), (Languages{"fr-CH", "fr"}));
    EXPECT_EQ(languagesOf("de:pt_BR", "", "fr_FR.UTF-8"), (Languages{"de", "pt-BR", "pt", "fr-FR", "fr"}));
    EXPECT_EQ(languagesOf("de", "C", "fr_FR"), Languages{});
    EXPECT_EQ(languagesOf("", "C.UTF-8", "fr_FR"), Languages{});
    EXPECT_EQ(languagesOf("", "", ""), Languages{});
  }));
}

TEST(StringsTable, StatementsCommentsAndEscapes) {
  const auto table = parseStringsTable(
      "/* a comment */ \"a\" = \"b\"; // more \"x\" = \"y\";\n"
      "bare-word/1 = $other_2;\n\"alone\";\"first\"=\"1\";\"first\"=\"2\";\n"
      "\"e\" = \"\\n\\t\\\"\\\\\\q\\U00e9\\Ud83d\\Ude00\\U20AC\\101\";\n'single' = 'it\"s';\n"
      "\"line\\\nend\" = \"two\nlines\";");
  ASSERT_TRUE(table);
  EXPECT_EQ(*table, (StringsTable{{"a", "b"},
                                  {"bare-word/1", "$other_2"},
                                  {"alone", "alone"},
                                  {"first", "1"},
                                  {"e", "\n\t\"\\qé😀€A"},
                                  {"single", "it\"s"},
                                  {"line\nend", "two\nlines"}}));
}

TEST(StringsTable, EncodingsOfTheFile) {
  const StringsTable expected = {{"a", "é"}};
  EXPECT_EQ(parseStringsTable("\xEF\xBB\xBF\"a\"=\"é\";"), expected);
  EXPECT_EQ(parseStringsTable("\xFF\xFE\"\0a\0\"\0=\0\"\0\xE9\0\"\0;\0"s), expected);
  EXPECT_EQ(parseStringsTable("\xFE\xFF\0\"\0a\0\"\0=\0\"\0\xE9\0\"\0;"s), expected);
  EXPECT_EQ(parseStringsTable(""), StringsTable{});
}

TEST(StringsTable, OtherContentIsNone) {
  for (const char* text : {"\"a\" = \"b\"", "\"a\" = ;", "\"a\"", "\"a", "/* open", "= \"b\";", "\"a\" \"b\";",
                           "<?xml version=\"1.0\"?>", "\"a\" = \"b\\", "bplist00"}) {
    EXPECT_FALSE(parseStringsTable(text)) << text;
  }
}

}  // namespace
}  // namespace vistrelle::platform
