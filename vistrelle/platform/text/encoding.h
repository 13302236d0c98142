#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// Text encodings by number: 1 ASCII, 2 NEXTSTEP, 3 Japanese EUC, 4 UTF-8, 5 ISO Latin 1, 6 Mac Symbol, 7 non-lossy
/// ASCII, 8 Shift JIS, 9 ISO Latin 2, 10 UTF-16, 11 Windows Cyrillic, 12 Windows Latin 1, 13 Windows Greek, 14 Windows
/// Latin 5, 15 Windows Latin 2, 21 ISO-2022-JP, 30 Mac Roman, and the UTF forms below.
namespace vistrelle::platform {

using EncodingNumber = std::uint64_t;

constexpr EncodingNumber kAsciiEncoding = 1;
constexpr EncodingNumber kNextstepEncoding = 2;
constexpr EncodingNumber kEucJpEncoding = 3;
constexpr EncodingNumber kUtf8Encoding = 4;
constexpr EncodingNumber kLatin1Encoding = 5;
constexpr EncodingNumber kMacSymbolEncoding = 6;
constexpr EncodingNumber kNonLossyAsciiEncoding = 7;
constexpr EncodingNumber kShiftJisEncoding = 8;
constexpr EncodingNumber kLatin2Encoding = 9;
constexpr EncodingNumber kUtf16Encoding = 10;
constexpr EncodingNumber kWindowsCyrillicEncoding = 11;
constexpr EncodingNumber kWindowsLatin1Encoding = 12;
constexpr EncodingNumber kWindowsGreekEncoding = 13;
constexpr EncodingNumber kWindowsLatin5Encoding = 14;
constexpr EncodingNumber kWindowsLatin2Encoding = 15;
constexpr EncodingNumber kIso2022JpEncoding = 21;
constexpr EncodingNumber kMacRomanEncoding = 30;
constexpr EncodingNumber kUtf32LeEncoding = 65536;
constexpr EncodingNumber kWindowsArabicEncoding = 0x80000506;
constexpr EncodingNumber kUtf16BeEncoding = 0x90000100;
constexpr EncodingNumber kUtf16LeEncoding = 0x94000100;
constexpr EncodingNumber kUtf32BeEncoding = 0x98000100;
/// What stands for "not detected".
constexpr EncodingNumber kNoEncoding = 0x7FFFFFFFFFFFFFFF;

/// The text of `bytes`; nothing when a byte has no meaning in the encoding (ASCII is strict), or for an unknown number.
/// A byte-order mark at the start of UTF-8, UTF-16 and UTF-32 is not part of the text; number 10 without a mark is
/// little-endian.
OptionalText decodeText(std::string_view bytes, EncodingNumber encoding);

/// The bytes of a text. Without `lossy`, nothing when the encoding lacks a character. With it such a character is
/// written as what it is made of ("Á" as "A", "ﬁ" as "fi", a curly quotation mark as a straight one), else as "?".
/// Number 10 begins with a mark and is little-endian; no other encoding gets a mark. Bytes of the text that are not
/// UTF-8 are kept for number 4 and count as U+FFFD elsewhere. Nothing for an unknown number.
std::optional<std::string> encodeText(std::string_view text, EncodingNumber encoding, bool lossy);

/// The encoding that a text file's bytes seem to be in, tried in this order: a byte-order mark (UTF-8 4, UTF-16 10,
/// UTF-32 65536 or its big-endian form); the escapes of ISO-2022-JP; valid UTF-8, plain ASCII included; the detector
/// of ICU where its answer is Shift JIS, Japanese EUC or ISO Latin 1 with a confidence of 50 and more. The bytes must
/// have a meaning throughout, else, and for everything else, kNoEncoding.
EncodingNumber detectEncoding(std::string_view bytes);

}  // namespace vistrelle::platform

#pragma GCC visibility pop
