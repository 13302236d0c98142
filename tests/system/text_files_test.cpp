#include "vistrelle/system/text_files.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/child.h"
#include "tests/support/scripted_dialogs.h"
#include "tests/system/system_fixture.h"

namespace vistrelle {
namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using platform::Dictionary;
using platform::OptionalText;
using platform::OptionalValue;
using platform::Value;
using testing::readFile;

const std::vector<std::pair<std::int64_t, std::string>> kTable = {{1, "Western (ASCII)"},
                                                                  {2, "Western (NEXTSTEP)"},
                                                                  {3, "Japanese (EUC)"},
                                                                  {4, "UTF- 8"},
                                                                  {5, "Western (ISO Latin 1)"},
                                                                  {6, "Symbol (Mac OS)"},
                                                                  {7, "ASCII (Non Lossy)"},
                                                                  {8, "Japanese (Shift JIS)"},
                                                                  {9, "Central European (ISO Latin 2)"},
                                                                  {10, "UTF-16"},
                                                                  {11, "Cyrillic (Windows)"},
                                                                  {12, "Western (Windows Latin 1)"},
                                                                  {13, "Greek (Windows)"},
                                                                  {14, "Turkish (Windows Latin 5)"},
                                                                  {15, "Central European (Windows Latin 2)"},
                                                                  {21, "Japanese (ISO-2022)"},
                                                                  {30, "Western (Mac OS Roman)"},
                                                                  {65536, "UTF-32LE"}};

using TextFilesTest = SystemTest;
using TextFilesVerboseTest = VerboseSystemTest;

/// Alerts that are clicked at once and remembered.
class EncodingAlertTest : public SystemTest {
 protected:
  std::shared_ptr<testing::ScriptedDialogs> dialogs_ = std::make_shared<testing::ScriptedDialogs>();
  platform::Installed<platform::Dialogs> installed_{platform::dialogs(), dialogs_};
};

// ---- encodingCharsetTable -------------------------------------------------------------------------------------------

TEST_F(TextFilesTest, TableAnswersBothWaysForEveryNumber) {
  for (const auto& [number, name] : kTable) {
    EXPECT_EQ(encodingCharsetTable(static_cast<platform::EncodingNumber>(number), std::nullopt), Value(name));
    EXPECT_EQ(encodingCharsetTable(0, name), Value(number));
  }
  const auto whole = encodingCharsetTable(0, std::nullopt);
  ASSERT_TRUE(whole && whole->get<Dictionary>());
  EXPECT_EQ(whole->get<Dictionary>()->size(), kTable.size());
  EXPECT_EQ(whole->get<Dictionary>()->at("65536"), Value("UTF-32LE"));
}

TEST_F(TextFilesTest, NumberOutsideTheTableIsNotAvailable) {
  EXPECT_FALSE(encodingCharsetTable(16, std::nullopt));
  EXPECT_TRUE(log_.has("encodingCharsetInt… :-( not available (-> nil)"));
}

TEST_F(TextFilesTest, NameOutsideTheTableCountsOnlyWithoutANumber) {
  EXPECT_FALSE(encodingCharsetTable(0, "UTF-8"));
  EXPECT_EQ(encodingCharsetTable(4, "UTF-8"), Value("UTF- 8"));
  EXPECT_EQ(encodingCharsetTable(4, "UTF-16"), Value(10));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(TextFilesVerboseTest, SearchForANameShowsTheKeys) {
  encodingCharsetTable(0, "Western (ASCII)");
  EXPECT_TRUE(log_.has("found? Western (ASCII)->Western (ASCII)"));
}

// ---- encodingOfTextFile, convertFromEncoding ------------------------------------------------------------------------

TEST_F(TextFilesTest, EncodingAndTextOfAFile) {
  const auto path = write("a.txt", "été");
  EXPECT_EQ(encodingOfTextFile(path, false), "UTF- 8");
  EXPECT_EQ(encodingOfTextFile(path, true), "été");
  EXPECT_EQ(log_.count("encodingCharsetI… Id: UTF- 8"), 2);
  EXPECT_EQ(log_.count("encodingCh… encoding: UTF- 8"), 2);
  const auto utf16 = write("b.txt", "\xFE\xFF\0\xE9"s);
  EXPECT_EQ(encodingOfTextFile(utf16, false), "UTF-16");
  EXPECT_EQ(encodingOfTextFile(utf16, true), "é");
  EXPECT_EQ(encodingOfTextFile(write("c.txt", "\xFF\xFE\0\0a\0\0\0"s), false), "UTF-32LE");
}

TEST_F(TextFilesTest, AbsentFileHasNoEncoding) {
  EXPECT_FALSE(encodingOfTextFile(std::nullopt, true));
  EXPECT_FALSE(encodingOfTextFile(file("absent"), true));
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(TextFilesTest, UnknownEncodingIsReadAsAscii) {
  const auto path = write("a.txt", "\xFF\xFD\x81\x8D");
  EXPECT_FALSE(encodingOfTextFile(path, false));
  EXPECT_EQ(log_.lines(),
            (std::vector<std::string>{"encodingCharsetInt… :-( not available (-> nil)", "encodingCharsetI… Id: (null)",
                                      "encodingCh… encoding: nil", "myStr : (null)", "aData : (null)",
                                      "encodingCharsetIdenti:-( the text encoding is unknown: '" + path + "'"}));
  EXPECT_FALSE(encodingOfTextFile(path, true));
}

TEST_F(TextFilesTest, EncodingOutsideTheTableIsUnknownWithoutAnError) {
  const auto path = write("a.txt", "\0\0\xFE\xFF\0\0\0a"s);
  EXPECT_FALSE(encodingOfTextFile(path, true));
  EXPECT_TRUE(log_.has("encodingCh… encoding: nil"));
  EXPECT_FALSE(log_.hasContaining("encodingCharsetIdenti:-("));
}

TEST_F(TextFilesVerboseTest, DetectedNumberIsShown) {
  encodingOfTextFile(write("a.txt", "a"), false);
  EXPECT_TRUE(log_.has("encodingCh… encoding: 4"));
}

TEST_F(TextFilesTest, ConversionFromAGivenEncoding) {
  const auto path = write("a.txt", "caf\xE9 \x80");
  EXPECT_EQ(convertFromEncoding(path, 12), "café €");
  EXPECT_EQ(log_.lines(), std::vector<std::string>{"convertFromEncoding  :-)"});
  EXPECT_EQ(convertFromEncoding(path, 30), "cafÈ Ä");
  log_.clear();
  EXPECT_FALSE(convertFromEncoding(path, 4));
  EXPECT_EQ(log_.lines(),
            std::vector<std::string>{"convertFromEncoding  :-( not a text in encoding 4: '" + path + "'"});
  EXPECT_FALSE(convertFromEncoding(path, 0));
  EXPECT_FALSE(convertFromEncoding(std::nullopt, 4));
  EXPECT_FALSE(convertFromEncoding(file("absent"), 4));
  EXPECT_EQ(log_.lines().size(), 1U);
}

TEST_F(TextFilesTest, ConversionOfAFolderFails) {
  EXPECT_FALSE(convertFromEncoding(scratch_.path(), 4));
  EXPECT_TRUE(log_.hasContaining("convertFromEncoding  :-( the file cannot be read"));
}

// ---- readContentsTxtFirst -------------------------------------------------------------------------------------------

TEST_F(TextFilesTest, FewerThanThreeBytesBecomeTen) {
  const auto path = write("a.txt", "0123456789abcdef");
  for (const int count : {0, 1, 2}) EXPECT_EQ(readContentsTxtFirst(path, count), "0123456789") << count;
  EXPECT_EQ(readContentsTxtFirst(path, 3), "012");
  EXPECT_EQ(readContentsTxtFirst(path, 16), "0123456789abcdef");
}

TEST_F(TextFilesTest, LastByteOfAShortFileIsLeftOut) {
  EXPECT_EQ(readContentsTxtFirst(write("a.txt", "abcd"), 100), "abc");
  EXPECT_EQ(readContentsTxtFirst(write("b.txt", ""), 100), "");
  EXPECT_EQ(readContentsTxtFirst(write("c.txt", "x"), 100), "");
}

TEST_F(TextFilesTest, FirstLinesThatAreNotEmpty) {
  const auto path = write("a.txt", "one\n\ntwo\nthree\nfour\n");
  EXPECT_EQ(readContentsTxtFirst(path, -3), "one\ntwo\nthree");
  EXPECT_EQ(readContentsTxtFirst(path, -9), "one\ntwo\nthree\nfour");
  EXPECT_EQ(readContentsTxtFirst(path, INT64_MIN), "one\ntwo\nthree\nfour");
  const auto longLines = write("b.txt", std::string(3000, 'x') + "\nsecond\n");
  EXPECT_EQ(readContentsTxtFirst(longLines, -2), std::string(2048, 'x'));
}

TEST_F(TextFilesTest, StartOfAFileThatIsNotAsciiOrAbsent) {
  EXPECT_FALSE(readContentsTxtFirst(write("a.txt", "été été été"), 5));
  EXPECT_FALSE(readContentsTxtFirst(write("b.txt", "été été été"), -1));
  EXPECT_FALSE(readContentsTxtFirst(file("absent"), 5));
  EXPECT_FALSE(readContentsTxtFirst(std::nullopt, 5));
  EXPECT_FALSE(readContentsTxtFirst(scratch_.path(), 5));
}

TEST_F(TextFilesVerboseTest, LinesOfReadingTheStart) {
  const auto path = write("a.txt", "one\ntwo\nthree\n");
  readContentsTxtFirst(path, -2);
  EXPECT_TRUE(log_.has("readContentsTxtFirst: read…"));
  EXPECT_TRUE(log_.has("readContentsTxtFirst: 2 line(s) pre : 'one\ntwo\nthree'"));
  EXPECT_TRUE(log_.has("readContentsTxtFirst: 2 line(s): 'one\ntwo'"));
  readContentsTxtFirst(path, 2);
  EXPECT_TRUE(log_.has("readContentsTxtFirst: 10 chars: 'one\ntwo\nth'"));
}

// ---- ecrit ----------------------------------------------------------------------------------------------------------

TEST_F(TextFilesTest, SecondTextIsAppended) {
  EXPECT_TRUE(ecrit(file("a.txt"), "été", false));
  EXPECT_TRUE(ecrit(file("a.txt"), " two", true));
  EXPECT_EQ(readFile(file("a.txt")), "été two");
}

TEST_F(TextFilesTest, NewFileWithAMarkBeginsWithIt) {
  EXPECT_TRUE(ecritWithBom(file("a.txt"), "a"));
  EXPECT_TRUE(ecritWithBom(file("a.txt"), "b"));
  EXPECT_EQ(readFile(file("a.txt")),
            "\xEF\xBB\xBF"
            "ab");
  EXPECT_TRUE(ecritNoBom(file("b.txt"), "a"));
  EXPECT_EQ(readFile(file("b.txt")), "a");
}

TEST_F(TextFilesTest, NothingToWriteOrNowhereIsRefused) {
  const auto path = file("a.txt");
  for (const bool mark : {false, true}) {
    EXPECT_FALSE(ecrit(std::nullopt, "a", mark));
    EXPECT_FALSE(ecrit("", "a", mark));
    EXPECT_FALSE(ecrit(path, std::nullopt, mark));
    EXPECT_FALSE(ecrit(path, "", mark));
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_EQ(log_.plain(), "");
}

TEST_F(TextFilesTest, FileThatCannotBeMadeIsSaidPlainly) {
  EXPECT_FALSE(ecrit(file("absent/a.txt"), "a", false));
  EXPECT_EQ(log_.plain(), "Impossible to create destination file !\n");
  EXPECT_FALSE(ecrit(scratch_.path(), "a", false));
}

TEST_F(TextFilesTest, HomeFolderIsExpanded) {
  const char* former = std::getenv("HOME");
  const std::string kept = former ? former : "/root";
  ::setenv("HOME", scratch_.path().c_str(), 1);
  EXPECT_TRUE(ecrit("~/a.txt", "a", false));
  EXPECT_TRUE(ecritureFichier("~/b.txt", "b", 0));
  EXPECT_TRUE(prependToFile("~/b.txt", "a"));
  EXPECT_EQ(encodingOfTextFile("~/b.txt", true), "ab");
  EXPECT_EQ(convertFromEncoding("~/b.txt", 1), "ab");
  EXPECT_EQ(readContentsTxtFirst("~/b.txt", -1), "a");
  ::setenv("HOME", kept.c_str(), 1);
  EXPECT_EQ(readFile(file("a.txt")), "a");
  EXPECT_EQ(readFile(file("b.txt")), "ab");
}

TEST_F(TextFilesTest, DanglingLinksTargetIsMade) {
  fs::create_symlink(file("target.txt"), file("link.txt"));
  EXPECT_TRUE(ecrit(file("link.txt"), "a", false));
  EXPECT_EQ(readFile(file("target.txt")), "a");
  EXPECT_TRUE(fs::is_symlink(file("link.txt")));
}

TEST_F(TextFilesTest, FileThatTheUserMayNotReadIsAppendedToNotEmptied) {
  EXPECT_TRUE(testing::inChild([] {
    testing::becomeNobody();
    const testing::ScratchFolder scratch;
    const auto path = scratch.write("a.txt", "kept");
    ::chmod(path.c_str(), 0200);
    EXPECT_FALSE(ecrit(path, "more", false));  // it cannot be opened for updating
    ::chmod(path.c_str(), 0600);
    EXPECT_EQ(readFile(path), "kept");
  }));
}

TEST_F(TextFilesTest, FullDiskLosesNothing) {
  if (!testing::isAdministrator()) GTEST_SKIP() << "mounting a small disk needs the administrator";
  EXPECT_TRUE(testing::inChild([] {
    const testing::ScratchFolder scratch;
    ASSERT_TRUE(testing::mountScratch(scratch.path().c_str(), "size=64k"));
    const auto path = scratch.write("a.txt", "kept");
    const std::string large(200'000, 'x');
    const testing::RecordingLog log;
    EXPECT_FALSE(ecrit(path, large, false));
    EXPECT_EQ(readFile(path), "kept");
    EXPECT_TRUE(log.hasContaining("ecrit               :-( '" + path + "' (No space left on device)"));
    EXPECT_FALSE(prependToFile(path, large));
    EXPECT_EQ(readFile(path), "kept");
    EXPECT_FALSE(ecritureFichier(path, large, 0));
    EXPECT_EQ(readFile(path), "kept");
    EXPECT_TRUE(log.hasContaining("Error writing file at " + path + "\nNo space left on device"));
    EXPECT_FALSE(ecritWithEncoding(path, large, "ascii"));
    EXPECT_EQ(readFile(path), "");  // the former file is removed first
  }));
}

TEST_F(TextFilesVerboseTest, LinesOfAppending) {
  ecrit(file("a.txt"), "a", true);
  EXPECT_TRUE(log_.has("a creer…"));
  EXPECT_TRUE(log_.has("Fixed BOM           :-) " + file("a.txt")));
  EXPECT_TRUE(log_.has("ecrit               :-) " + file("a.txt")));
  log_.clear();
  ecrit(file("a.txt"), "a", true);
  EXPECT_FALSE(log_.has("a creer…"));
}

// ---- ecritWithEncoding ----------------------------------------------------------------------------------------------

TEST_F(EncodingAlertTest, EachNameChoosesItsEncodingAndAlert) {
  struct Case {
    OptionalText name;
    std::string bytes;
    std::string constant;
  };
  const Case cases[] = {{"Western (Mac OS Roman)", "\x8E", ""},
                        {"Roman UTF-16", "\x8E", ""},
                        {"UTF-16BE", "\0\xE9"s, "NSUTF16BigEndianStringEncoding"},
                        {"utf-16 le", "\xE9\0"s, "NSUTF16LittleEndianStringEncoding"},
                        {"UTF-16", "\xFF\xFE\xE9\0"s, "NSUnicodeStringEncoding"},
                        {"UTF-8", "é", "NSUTF8StringEncoding"},
                        {"UTF- 8", "é", "NSUTF8StringEncoding"},
                        {"Latin", "e", ""},
                        {"8", "e", ""},
                        {std::nullopt, "e", ""}};
  for (const auto& each : cases) {
    dialogs_->contents.clear();
    EXPECT_TRUE(ecritWithEncoding(file("a.txt"), "é", each.name));
    EXPECT_EQ(readFile(file("a.txt")), each.bytes) << each.name.value_or("-");
    ASSERT_EQ(dialogs_->contents.size(), each.constant.empty() ? 0U : 1U) << each.name.value_or("-");
    if (each.constant.empty()) continue;
    EXPECT_EQ(dialogs_->contents[0].message, "encoding");
    EXPECT_EQ(dialogs_->contents[0].informative, each.constant);
  }
}

TEST_F(EncodingAlertTest, FormerFileIsReplaced) {
  write("a.txt", "a much longer former content");
  EXPECT_TRUE(ecritWithEncoding(file("a.txt"), "new", "ascii"));
  EXPECT_EQ(readFile(file("a.txt")), "new");
}

TEST_F(EncodingAlertTest, NothingToWriteIsRefusedAndTheFileStays) {
  const auto path = write("a.txt", "kept");
  EXPECT_FALSE(ecritWithEncoding(path, "", "UTF-8"));
  EXPECT_FALSE(ecritWithEncoding(path, std::nullopt, "UTF-8"));
  EXPECT_FALSE(ecritWithEncoding("", "a", "UTF-8"));
  EXPECT_FALSE(ecritWithEncoding(std::nullopt, "a", "UTF-8"));
  EXPECT_FALSE(ecritWithEncoding(file("absent/a.txt"), "a", "UTF-8"));
  EXPECT_EQ(readFile(path), "kept");
  EXPECT_TRUE(dialogs_->contents.empty());
}

// ---- ecritureFichier, prependToFile, writeUtf8Bom -------------------------------------------------------------------

TEST_F(TextFilesTest, LineEndsBecomeUniform) {
  EXPECT_TRUE(ecritureFichier(file("a.txt"), "a\r\nb\rc\nd\r\n\r\ne\r", 7));
  EXPECT_EQ(readFile(file("a.txt")), "a\nb\nc\nd\n\ne\n");
  EXPECT_TRUE(log_.has("7"));
  EXPECT_TRUE(ecritureFichier(file("a.txt"), "x", -1));
  EXPECT_EQ(readFile(file("a.txt")), "x");
  EXPECT_TRUE(log_.has("-1"));
  EXPECT_TRUE(ecritureFichier(file("a.txt"), "", 0));
  EXPECT_EQ(readFile(file("a.txt")), "");
}

TEST_F(TextFilesTest, FailedReplacementIsSaid) {
  EXPECT_FALSE(ecritureFichier(file("absent/a.txt"), "x", 0));
  EXPECT_TRUE(log_.hasContaining("Error writing file at " + file("absent/a.txt") + "\n"));
  EXPECT_FALSE(ecritureFichier(std::nullopt, "x", 0));
  EXPECT_FALSE(ecritureFichier(file("a.txt"), std::nullopt, 0));
}

TEST_F(TextFilesVerboseTest, LinesOfReplacing) {
  ecritureFichier(file("a.txt"), "x", 0);
  EXPECT_TRUE(log_.has("utils > ecritureFichier > pathStr : " + file("a.txt")));
  EXPECT_TRUE(log_.has("nomFichier : a.txt"));
  EXPECT_TRUE(log_.has("ecritureFichier     :-)"));
}

TEST_F(TextFilesTest, TextIsPutBeforeTheContent) {
  const auto path = write("a.txt", "old \xFF");
  EXPECT_TRUE(prependToFile(path, "été "));
  EXPECT_EQ(readFile(path), "été old \xFF");
  EXPECT_TRUE(prependToFile(path, ""));
  EXPECT_EQ(readFile(path), "été old \xFF");
}

TEST_F(TextFilesTest, NothingIsPutBeforeWhatCannotBeRead) {
  EXPECT_FALSE(prependToFile(file("absent"), "a"));
  EXPECT_FALSE(prependToFile(scratch_.path(), "a"));
  EXPECT_EQ(log_.count("Failed to open fileRead"), 2);
  EXPECT_FALSE(prependToFile(std::nullopt, "a"));
  EXPECT_FALSE(prependToFile(write("a.txt", "a"), std::nullopt));
  EXPECT_FALSE(fs::exists(file("absent")));
}

TEST_F(TextFilesVerboseTest, DataThatIsPutBeforeIsShown) {
  prependToFile(write("a.txt", "old"), "new");
  const platform::Data data = {std::byte{'n'}, std::byte{'e'}, std::byte{'w'}};
  EXPECT_TRUE(log_.has("dataAdd = " + platform::description(Value(data))));
}

TEST_F(TextFilesTest, MarkIsWrittenOverTheFirstBytes) {
  const auto empty = write("a.txt", "");
  EXPECT_TRUE(writeUtf8Bom(empty));
  EXPECT_EQ(readFile(empty), "\xEF\xBB\xBF");
  const auto full = write("b.txt", "abcdef");
  EXPECT_TRUE(writeUtf8Bom(full));
  EXPECT_EQ(readFile(full),
            "\xEF\xBB\xBF"
            "def");
  EXPECT_TRUE(writeUtf8Bom(file("absent")));
  EXPECT_FALSE(fs::exists(file("absent")));
  EXPECT_FALSE(writeUtf8Bom(std::nullopt));
}

}  // namespace
}  // namespace vistrelle
