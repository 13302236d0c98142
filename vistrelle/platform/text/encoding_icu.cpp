#include "vistrelle/platform/text/encoding_icu.h"

#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/ucnv_err.h>
#include <unicode/unorm2.h>
#include <unicode/uset.h>

#include <algorithm>
#include <limits>
#include <memory>
#include <vector>

#include "vistrelle/platform/base/utf8.h"

namespace vistrelle::platform {
namespace {

struct Close {
  void operator()(UConverter* converter) const { ::ucnv_close(converter); }
  void operator()(USet* set) const { ::uset_close(set); }
};
using Converter = std::unique_ptr<UConverter, Close>;
using CharacterSet = std::unique_ptr<USet, Close>;

constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max() / 8;

Converter openConverter(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  Converter converter(::ucnv_open(name, &status));
  if (U_FAILURE(status)) return nullptr;
  ::ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  ::ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &status);
  return U_SUCCESS(status) ? std::move(converter) : nullptr;
}

std::u16string utf16Of(std::string_view text) {
  std::u16string units;
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    position += character.length;
    const char32_t code = character.valid ? character.code : 0xFFFD;
    if (code < 0x10000) {
      units.push_back(static_cast<char16_t>(code));
    } else {
      units.push_back(static_cast<char16_t>(U16_LEAD(code)));
      units.push_back(static_cast<char16_t>(U16_TRAIL(code)));
    }
  }
  return units;
}

std::string utf8Of(std::u16string_view units) {
  std::string text;
  for (std::size_t i = 0; i < units.size();) {
    char32_t code = 0;
    U16_NEXT(units.data(), i, units.size(), code);
    appendCharacter(text, code);
  }
  return text;
}

/// Spellings of characters that have no decomposition.
struct Spelling {
  char32_t first;
  char32_t last;
  const char* text;
};
constexpr Spelling kSpellings[] = {
    {0x2018, 0x201B, "'"},   {0x201C, 0x201F, "\""}, {0x2010, 0x2015, "-"},   {0x2212, 0x2212, "-"},
    {0x2039, 0x2039, "<"},   {0x203A, 0x203A, ">"},  {0x00AB, 0x00AB, "<<"},  {0x00BB, 0x00BB, ">>"},
    {0x2044, 0x2044, "/"},   {0x2022, 0x2022, "*"},  {0x00C6, 0x00C6, "AE"},  {0x00E6, 0x00E6, "ae"},
    {0x0152, 0x0152, "OE"},  {0x0153, 0x0153, "oe"}, {0x00DF, 0x00DF, "ss"},  {0x00D8, 0x00D8, "O"},
    {0x00F8, 0x00F8, "o"},   {0x0141, 0x0141, "L"},  {0x0142, 0x0142, "l"},   {0x0110, 0x0110, "D"},
    {0x0111, 0x0111, "d"},   {0x0131, 0x0131, "i"},  {0x00A9, 0x00A9, "(c)"}, {0x00AE, 0x00AE, "(R)"},
    {0x2122, 0x2122, "(TM)"}};

bool isMark(char32_t code) {
  return (U_GET_GC_MASK(static_cast<UChar32>(code)) & U_GC_M_MASK) != 0;
}

std::u32string piecesOf(char32_t code) {
  for (const Spelling& spelling : kSpellings) {
    if (code < spelling.first || code > spelling.last) continue;
    std::u32string pieces;
    for (const char* c = spelling.text; *c; ++c) pieces.push_back(static_cast<char32_t>(*c));
    return pieces;
  }
  UErrorCode status = U_ZERO_ERROR;
  const UNormalizer2* normalizer = ::unorm2_getNFKDInstance(&status);
  char16_t units[32];
  const int length = U_FAILURE(status) ? -1
                                       : ::unorm2_getDecomposition(normalizer, static_cast<UChar32>(code), units,
                                                                   static_cast<int>(std::size(units)), &status);
  std::u32string pieces;
  for (int i = 0; i < length && U_SUCCESS(status);) {
    UChar32 piece = 0;
    U16_NEXT(units, i, length, piece);
    pieces.push_back(static_cast<char32_t>(piece));
  }
  return pieces;
}

// "½" is made of "1", "⁄" and "2", and "⁄" is spelled "/": two steps.
constexpr int kMostSteps = 2;

/// The encodable characters that a character is made of, its marks dropped; empty when it is made of anything else.
std::string madeOf(char32_t code, const IsEncodable& isEncodable, int steps) {
  std::string text;
  for (const char32_t piece : piecesOf(code)) {
    if (isEncodable(piece)) {
      appendCharacter(text, piece);
    } else if (!isMark(piece)) {
      const std::string inner = steps > 1 ? madeOf(piece, isEncodable, steps - 1) : std::string();
      if (inner.empty()) return {};
      text += inner;
    }
  }
  return text;
}

}  // namespace

const char* icuName(EncodingNumber encoding) {
  switch (encoding) {
    case kEucJpEncoding:
      return "EUC-JP";
    case kShiftJisEncoding:
      return "ibm-943_P15A-2003";
    case kLatin2Encoding:
      return "ISO-8859-2";
    case kWindowsCyrillicEncoding:
      return "windows-1251";
    case kWindowsLatin1Encoding:
      return "windows-1252";
    case kWindowsGreekEncoding:
      return "windows-1253";
    case kWindowsLatin5Encoding:
      return "windows-1254";
    case kWindowsLatin2Encoding:
      return "windows-1250";
    case kWindowsArabicEncoding:
      return "windows-1256";
    case kIso2022JpEncoding:
      return "ISO-2022-JP";
    case kMacRomanEncoding:
      return "macintosh";
    default:
      return nullptr;
  }
}

OptionalText decodeWithIcu(std::string_view bytes, const char* name) {
  const Converter converter = openConverter(name);
  if (!converter || bytes.size() > kLongest) return std::nullopt;
  // No encoding here makes more than one unit of a byte.
  std::u16string units(bytes.size() + 1, 0);
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t length = ::ucnv_toUChars(converter.get(), units.data(), static_cast<std::int32_t>(units.size()),
                                              bytes.data(), static_cast<std::int32_t>(bytes.size()), &status);
  if (U_FAILURE(status)) return std::nullopt;
  return utf8Of(std::u16string_view(units).substr(0, static_cast<std::size_t>(length)));
}

std::optional<std::string> encodeWithIcu(std::string_view text, const char* name) {
  const Converter converter = openConverter(name);
  if (!converter || text.size() > kLongest) return std::nullopt;
  const std::u16string units = utf16Of(text);
  const auto capacity =
      static_cast<std::int32_t>(UCNV_GET_MAX_BYTES_FOR_STRING(units.size(), ::ucnv_getMaxCharSize(converter.get())));
  std::string bytes(static_cast<std::size_t>(capacity), '\0');
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t length = ::ucnv_fromUChars(converter.get(), bytes.data(), capacity, units.data(),
                                                static_cast<std::int32_t>(units.size()), &status);
  if (U_FAILURE(status)) return std::nullopt;
  bytes.resize(static_cast<std::size_t>(length));
  return bytes;
}

IsEncodable encodableByIcu(const char* name) {
  UErrorCode status = U_ZERO_ERROR;
  const Converter converter = openConverter(name);
  const std::shared_ptr<USet> set(::uset_openEmpty(), Close());
  if (converter) ::ucnv_getUnicodeSet(converter.get(), set.get(), UCNV_ROUNDTRIP_SET, &status);
  return [set](char32_t code) { return ::uset_contains(set.get(), static_cast<UChar32>(code)) != 0; };
}

std::string replaceUnencodable(std::string_view text, const IsEncodable& isEncodable) {
  std::string result;
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    if (character.valid && isEncodable(character.code)) {
      result.append(text.substr(position, character.length));
    } else if (character.valid && isMark(character.code) && !result.empty()) {
      // A mark that stood on its own letter is dropped; everything else leaves a trace.
    } else {
      const std::string made = character.valid ? madeOf(character.code, isEncodable, kMostSteps) : std::string();
      result.append(made.empty() ? "?" : made);
    }
    position += character.length;
  }
  return result;
}

}  // namespace vistrelle::platform
