#include "vistrelle/platform/text/encoding.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <string>

#include "tests/support/scratch_folder.h"
#include "vistrelle/platform/base/utf8.h"

namespace vistrelle::platform {
namespace {

using namespace std::string_literals;
using testing::readFile;
using testing::ScratchFolder;

constexpr const char* kJapanese = "日本語のテキスト、ひらがなとカタカナ。これは文字コードの検出の試験です。";
constexpr const char* kFrench =
    "L'été dernier, nous avons été à la plage où les élèves étaient déjà arrivés; ça a été une très belle journée, "
    "même si la météo n'était pas à la hauteur de nos espérances.";

/// What Python's codec says of every byte: 256 lines, each the code point in decimal, or -1.
std::vector<long> pythonTable(const std::string& codec) {
  const ScratchFolder scratch;
  const auto script = scratch.write("table.py",
                                    "import sys\n"
                                    "for b in range(256):\n"
                                    "  try: print(ord(bytes([b]).decode(sys.argv[1])))\n"
                                    "  except UnicodeDecodeError: print(-1)\n");
  const auto output = scratch.file("table.txt");
  EXPECT_EQ(std::system(("python3 '" + script + "' " + codec + " > '" + output + "'").c_str()), 0);
  std::vector<long> table;
  std::string text = readFile(output);
  for (std::size_t start = 0; start < text.size(); start = text.find('\n', start) + 1) {
    table.push_back(std::stol(text.substr(start)));
  }
  return table;
}

class SingleByteEncoding : public ::testing::TestWithParam<std::pair<EncodingNumber, const char*>> {};

TEST_P(SingleByteEncoding, EveryByteIsThatOfThePublishedMappingBothWays) {
  const auto [encoding, codec] = GetParam();
  const auto table = pythonTable(codec);
  ASSERT_EQ(table.size(), 256U);
  for (int byte = 0; byte < 256; ++byte) {
    const std::string bytes(1, static_cast<char>(byte));
    const auto text = decodeText(bytes, encoding);
    const long expected = table[static_cast<std::size_t>(byte)];
    // Windows tables leave a few bytes open; some libraries fill them with control characters.
    if (expected < 0) continue;
    ASSERT_TRUE(text) << byte;
    EXPECT_EQ(static_cast<long>(characterAt(*text, 0).code), expected) << byte;
    EXPECT_EQ(encodeText(*text, encoding, false), bytes) << byte;
  }
}

INSTANTIATE_TEST_SUITE_P(
    All, SingleByteEncoding,
    ::testing::Values(std::pair{kAsciiEncoding, "ascii"}, std::pair{kLatin1Encoding, "latin_1"},
                      std::pair{kLatin2Encoding, "iso8859_2"}, std::pair{kWindowsCyrillicEncoding, "cp1251"},
                      std::pair{kWindowsLatin1Encoding, "cp1252"}, std::pair{kWindowsGreekEncoding, "cp1253"},
                      std::pair{kWindowsLatin5Encoding, "cp1254"}, std::pair{kWindowsLatin2Encoding, "cp1250"},
                      std::pair{kWindowsArabicEncoding, "cp1256"}, std::pair{kMacRomanEncoding, "mac_roman"}),
    [](const auto& test) { return std::string(test.param.second); });

TEST(Encoding, BytesWithoutMeaningHaveNone) {
  EXPECT_FALSE(decodeText("caf\xE9", kAsciiEncoding));
  EXPECT_FALSE(decodeText("a\xFF", kUtf8Encoding));
  EXPECT_FALSE(decodeText("\x81\x20", kShiftJisEncoding));
  EXPECT_FALSE(decodeText("\xA4", kEucJpEncoding));
  EXPECT_FALSE(decodeText("\xFF", kNextstepEncoding));
  EXPECT_FALSE(decodeText("\xFF", kMacSymbolEncoding));
  EXPECT_FALSE(decodeText("a", 12345));
  EXPECT_FALSE(encodeText("a", 12345, true));
  EXPECT_FALSE(decodeText("abc", kUtf32LeEncoding));
  EXPECT_FALSE(decodeText("\xD8\0"s, kUtf16BeEncoding));
  EXPECT_FALSE(decodeText("\0\0\x11\0"s, kUtf32LeEncoding));
}

/// The bytes from `first` to `last`.
std::string bytesBetween(int first, int last) {
  std::string bytes;
  for (int byte = first; byte <= last; ++byte) bytes.push_back(static_cast<char>(byte));
  return bytes;
}

TEST(Encoding, NextstepMeansWhatThePublishedMappingSays) {
  EXPECT_EQ(decodeText(bytesBetween(0, 0x7F), kNextstepEncoding), bytesBetween(0, 0x7F));
  EXPECT_EQ(decodeText(bytesBetween(0x80, 0xFD), kNextstepEncoding),
            "\u00A0ÀÁÂÃÄÅÇÈÉÊËÌÍÎÏÐÑÒÓÔÕÖÙÚÛÜÝÞµ×÷©¡¢£⁄¥ƒ§¤’“«‹›ﬁﬂ®–†‡·¦¶•‚„”»…‰¬¿¹ˋ´ˆ˜¯˘˙¨²˚¸³˝˛ˇ—±¼½¾"
            "àáâãäåçèéêëìÆíªîïðñŁØŒºòóôõöæùúûıüýłøœßþÿ");
}

TEST(Encoding, MacSymbolMeansWhatThePublishedMappingSays) {
  EXPECT_EQ(decodeText(bytesBetween(0x20, 0x7E), kMacSymbolEncoding),
            " !∀#∃%&∍()∗+,−./0123456789:;<=>?≅ΑΒΧΔΕΦΓΗΙϑΚΛΜΝΟΠΘΡΣΤΥςΩΞΨΖ[∴]⊥_\uF8E5αβχδεφγηιϕκλμνοπθρστυϖωξψζ{|}∼");
  EXPECT_EQ(decodeText(bytesBetween(0xA0, 0xFE), kMacSymbolEncoding),
            "€ϒ′≤⁄∞ƒ♣♦♥♠↔←↑→↓°±″≥×∝∂•÷≠≡≈…⏐⎯↵ℵℑℜ℘⊗⊕∅∩∪⊃⊇⊄⊂⊆∈∉∠∇®©™∏√⋅¬∧∨⇔⇐⇑⇒⇓◊\u3008®\uF87F©\uF87F™\uF87F∑"
            "⎛⎜⎝⎡⎢⎣⎧⎨⎩⎪\uF8FF\u3009∫⌠⎮⌡⎞⎟⎠⎤⎥⎦⎫⎬⎭");
}

TEST(Encoding, NextstepBothWays) {
  EXPECT_EQ(decodeText("\x80\x81\xA9\xAE\xE8\xF5\xFD", kNextstepEncoding), "\u00A0À\u2019ﬁŁıÿ");
  for (int byte = 0; byte < 0xFE; ++byte) {
    const std::string bytes(1, static_cast<char>(byte));
    const auto text = decodeText(bytes, kNextstepEncoding);
    ASSERT_TRUE(text) << byte;
    EXPECT_EQ(encodeText(*text, kNextstepEncoding, false), bytes) << byte;
  }
  EXPECT_FALSE(encodeText("日", kNextstepEncoding, false));
  EXPECT_EQ(encodeText("日本a", kNextstepEncoding, true), "??a");
}

TEST(Encoding, MacSymbolBothWays) {
  EXPECT_EQ(decodeText("abg\xA0\xF0\xE6", kMacSymbolEncoding), "αβγ€\uF8FF\u239B");
  EXPECT_EQ(decodeText("\xD2\xE2", kMacSymbolEncoding), "®®\uF87F");
  for (int byte = 0; byte < 0xFF; ++byte) {
    if (byte >= 0x80 && byte < 0xA0) continue;
    const std::string bytes(1, static_cast<char>(byte));
    const auto text = decodeText(bytes, kMacSymbolEncoding);
    ASSERT_TRUE(text) << byte;
    EXPECT_EQ(encodeText(*text, kMacSymbolEncoding, false), bytes) << byte;
  }
  EXPECT_FALSE(encodeText("a", kMacSymbolEncoding, false));
}

TEST(Encoding, NonLossyAsciiBothWays) {
  const std::string text = "a\\b é € 😀\n";
  const std::string bytes = "a\\\\b \\351 \\u20ac \\ud83d\\ude00\n";
  EXPECT_EQ(encodeText(text, kNonLossyAsciiEncoding, false), bytes);
  EXPECT_EQ(decodeText(bytes, kNonLossyAsciiEncoding), text);
  for (const char* wrong : {"\\x", "\\", "\\u12", "\\9", "\\777", "\xE9", "\\ud83d"}) {
    EXPECT_FALSE(decodeText(wrong, kNonLossyAsciiEncoding)) << wrong;
  }
}

TEST(Encoding, UtfFormsBothWays) {
  const std::map<EncodingNumber, std::string> forms = {{kUtf8Encoding, "é😀"},
                                                       {kUtf16Encoding, "\xFF\xFE\xE9\0\x3D\xD8\0\xDE"s},
                                                       {kUtf16LeEncoding, "\xE9\0\x3D\xD8\0\xDE"s},
                                                       {kUtf16BeEncoding, "\0\xE9\xD8\x3D\xDE\0"s},
                                                       {kUtf32LeEncoding, "\xE9\0\0\0\0\xF6\1\0"s},
                                                       {kUtf32BeEncoding, "\0\0\0\xE9\0\1\xF6\0"s}};
  for (const auto& [encoding, bytes] : forms) {
    EXPECT_EQ(encodeText("é😀", encoding, false), bytes) << encoding;
    EXPECT_EQ(decodeText(bytes, encoding), "é😀") << encoding;
  }
  EXPECT_EQ(decodeText("\xFE\xFF\0\xE9"s, kUtf16Encoding), "é");
  EXPECT_EQ(decodeText("\xE9\0"s, kUtf16Encoding), "é");
  EXPECT_EQ(decodeText("\xEF\xBB\xBF"
                       "a",
                       kUtf8Encoding),
            "a");
}

TEST(Encoding, JapaneseBothWays) {
  const std::string euc = "\xC6\xFC\xCB\xDC";
  const std::string shiftJis = "\x93\xFA\x96{";
  const std::string iso2022 = "\x1B$BF|K\\\x1B(B";
  EXPECT_EQ(decodeText(euc, kEucJpEncoding), "日本");
  EXPECT_EQ(decodeText(shiftJis, kShiftJisEncoding), "日本");
  EXPECT_EQ(decodeText(iso2022, kIso2022JpEncoding), "日本");
  EXPECT_EQ(encodeText("日本", kEucJpEncoding, false), euc);
  EXPECT_EQ(encodeText("日本", kShiftJisEncoding, false), shiftJis);
  EXPECT_EQ(encodeText("日本", kIso2022JpEncoding, false), iso2022);
  EXPECT_EQ(encodeText("日😀本", kShiftJisEncoding, true), "\x93\xFA?\x96{");
  EXPECT_EQ(encodeText("日😀本", kIso2022JpEncoding, true), "\x1B$BF|\x1B(B?\x1B$BK\\\x1B(B");
}

TEST(Encoding, LossyConversionKeepsWhatACharacterIsMadeOf) {
  EXPECT_EQ(encodeText("Át été, ﬁn… “a” ‘b’ – Œuvre ½ 日 ß e\u0301", kAsciiEncoding, true),
            "At ete, fin... \"a\" 'b' - OEuvre 1/2 ? ss e");
  EXPECT_FALSE(encodeText("é", kAsciiEncoding, false));
  EXPECT_EQ(encodeText("“é”", kLatin1Encoding, true), "\"\xE9\"");
  EXPECT_EQ(encodeText("é日", kMacRomanEncoding, true),
            "\x8E"
            "?");
  EXPECT_EQ(encodeText("a\xFF", kAsciiEncoding, true), "a?");
  EXPECT_EQ(encodeText("a\xFF", kUtf8Encoding, true), "a\xFF");
  EXPECT_FALSE(encodeText("a\xFF", kUtf8Encoding, false));
}

TEST(DetectEncoding, ByteOrderMarks) {
  EXPECT_EQ(detectEncoding("\xEF\xBB\xBFtext"), kUtf8Encoding);
  EXPECT_EQ(detectEncoding("\xFF\xFEt\0"s), kUtf16Encoding);
  EXPECT_EQ(detectEncoding("\xFE\xFF\0t"s), kUtf16Encoding);
  EXPECT_EQ(detectEncoding("\xFF\xFE\0\0t\0\0\0"s), kUtf32LeEncoding);
  EXPECT_EQ(detectEncoding("\0\0\xFE\xFF\0\0\0t"s), kUtf32BeEncoding);
}

TEST(DetectEncoding, MarkBeforeWhatIsNoTextCountsForNothing) {
  EXPECT_EQ(detectEncoding("\xFF\xFE\0"s), kNoEncoding);
  EXPECT_EQ(detectEncoding("\xEF\xBB\xBF\xFF"), kNoEncoding);
}

TEST(DetectEncoding, Utf8AndAscii) {
  EXPECT_EQ(detectEncoding(""), kUtf8Encoding);
  EXPECT_EQ(detectEncoding("plain"), kUtf8Encoding);
  EXPECT_EQ(detectEncoding("été 日本"), kUtf8Encoding);
  // UTF-16 of plain words, without a mark, is valid UTF-8 with NULs.
  EXPECT_EQ(detectEncoding("t\0e\0"s), kUtf8Encoding);
}

TEST(DetectEncoding, RealTextsOfEachKind) {
  for (const EncodingNumber encoding : {kShiftJisEncoding, kEucJpEncoding, kIso2022JpEncoding}) {
    EXPECT_EQ(detectEncoding(encodeText(kJapanese, encoding, false).value()), encoding);
  }
  EXPECT_EQ(detectEncoding(encodeText(kFrench, kLatin1Encoding, false).value()), kLatin1Encoding);
}

TEST(DetectEncoding, WhatIsNotSureIsUnknown) {
  EXPECT_EQ(detectEncoding(encodeText(kFrench, kMacRomanEncoding, false).value()), kNoEncoding);
  EXPECT_EQ(
      detectEncoding(
          encodeText("Привет, это проверка определения кодировки текста.", kWindowsCyrillicEncoding, false).value()),
      kNoEncoding);
  EXPECT_EQ(detectEncoding("\xFF\xFD\x81\x8D"), kNoEncoding);
}

}  // namespace
}  // namespace vistrelle::platform
