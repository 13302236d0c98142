#include "vistrelle/platform/text/encoding.h"

#include <algorithm>

#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/text/encoding_icu.h"
#include "vistrelle/platform/text/encoding_tables.h"

namespace vistrelle::platform {
namespace {

constexpr char32_t kByteOrderMark = 0xFEFF;
constexpr char32_t kReplacement = 0xFFFD;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

bool isAscii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}
bool isAllAscii(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), isAscii);
}

/// Units of two or four bytes, in one of the two orders.
struct UnitForm {
  std::size_t size;
  bool bigEndian;
};

char32_t unitAt(std::string_view bytes, std::size_t position, UnitForm form) {
  char32_t value = 0;
  for (std::size_t i = 0; i < form.size; ++i) {
    const std::size_t place = form.bigEndian ? i : form.size - 1 - i;
    value = value << 8U | static_cast<unsigned char>(bytes[position + place]);
  }
  return value;
}

void appendUnit(std::string& bytes, char32_t value, UnitForm form) {
  for (std::size_t i = 0; i < form.size; ++i) {
    const std::size_t place = form.bigEndian ? form.size - 1 - i : i;
    bytes.push_back(static_cast<char>(value >> (8 * place) & 0xFFU));
  }
}

OptionalText decodeUnits(std::string_view bytes, UnitForm form) {
  if (bytes.size() % form.size != 0) return std::nullopt;
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); i += form.size) {
    char32_t code = unitAt(bytes, i, form);
    if (form.size == 2 && code >= 0xD800 && code < 0xDC00 && i + 4 <= bytes.size()) {
      const char32_t low = unitAt(bytes, i + 2, form);
      if (low >= 0xDC00 && low < 0xE000) {
        code = 0x10000 + ((code - 0xD800) << 10U) + (low - 0xDC00);
        i += 2;
      }
    }
    if ((code >= 0xD800 && code < 0xE000) || code > 0x10FFFF) return std::nullopt;
    if (i != 0 || code != kByteOrderMark) appendCharacter(text, code);
  }
  return text;
}

std::string encodeUnits(std::string_view text, UnitForm form, bool withMark) {
  std::string bytes;
  if (withMark) appendUnit(bytes, kByteOrderMark, form);
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    position += character.length;
    const char32_t code = character.valid ? character.code : kReplacement;
    if (form.size == 2 && code >= 0x10000) {
      appendUnit(bytes, 0xD800 + ((code - 0x10000) >> 10U), form);
      appendUnit(bytes, 0xDC00 + ((code - 0x10000) & 0x3FFU), form);
    } else {
      appendUnit(bytes, code, form);
    }
  }
  return bytes;
}

std::optional<UnitForm> unitForm(EncodingNumber encoding) {
  switch (encoding) {
    case kUtf16Encoding:
    case kUtf16LeEncoding:
      return UnitForm{2, false};
    case kUtf16BeEncoding:
      return UnitForm{2, true};
    case kUtf32LeEncoding:
      return UnitForm{4, false};
    case kUtf32BeEncoding:
      return UnitForm{4, true};
    default:
      return std::nullopt;
  }
}

OptionalText decodeLatin1(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) appendCharacter(text, static_cast<unsigned char>(c));
  return text;
}

/// The characters below `limit`, one byte each.
std::optional<std::string> encodeBelow(std::string_view text, char32_t limit) {
  std::string bytes;
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    position += character.length;
    if (!character.valid || character.code >= limit) return std::nullopt;
    bytes.push_back(static_cast<char>(character.code));
  }
  return bytes;
}

int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return 16;
}

/// The number of exactly `digits` digits at `position`.
std::optional<char32_t> numberAt(std::string_view bytes, std::size_t position, std::size_t digits, int base) {
  if (position + digits > bytes.size()) return std::nullopt;
  char32_t value = 0;
  for (std::size_t i = 0; i < digits; ++i) {
    const int digit = digitValue(bytes[position + i]);
    if (digit >= base) return std::nullopt;
    value = value * static_cast<char32_t>(base) + static_cast<char32_t>(digit);
  }
  return value;
}

// Non-lossy ASCII: "\\" is a backslash, "\351" a character of Latin 1 above ASCII, "\u20ac" a UTF-16 unit.
OptionalText decodeNonLossyAscii(std::string_view bytes) {
  std::string units;
  constexpr UnitForm kForm{2, false};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (!isAscii(bytes[i])) return std::nullopt;
    if (bytes[i] != '\\') {
      appendUnit(units, static_cast<unsigned char>(bytes[i]), kForm);
      continue;
    }
    const char next = i + 1 < bytes.size() ? bytes[i + 1] : '\0';
    if (next == '\\') {
      appendUnit(units, '\\', kForm);
      i += 1;
    } else if (const auto hex = next == 'u' ? numberAt(bytes, i + 2, 4, 16) : std::nullopt) {
      appendUnit(units, *hex, kForm);
      i += 5;
    } else if (const auto octal = numberAt(bytes, i + 1, 3, 8); octal && *octal < 0x100) {
      appendUnit(units, *octal, kForm);
      i += 3;
    } else {
      return std::nullopt;
    }
  }
  return decodeUnits(units, kForm);
}

std::string encodeNonLossyAscii(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  constexpr UnitForm kForm{2, false};
  const std::string units = encodeUnits(text, kForm, false);
  std::string bytes;
  for (std::size_t i = 0; i < units.size(); i += 2) {
    const char32_t unit = unitAt(units, i, kForm);
    if (unit == '\\') {
      bytes += "\\\\";
    } else if (unit < 0x80) {
      bytes.push_back(static_cast<char>(unit));
    } else if (unit < 0x100) {
      bytes.push_back('\\');
      for (const unsigned shift : {6U, 3U, 0U}) bytes.push_back(kDigits[unit >> shift & 7U]);
    } else {
      bytes += "\\u";
      for (const unsigned shift : {12U, 8U, 4U, 0U}) bytes.push_back(kDigits[unit >> shift & 15U]);
    }
  }
  return bytes;
}

std::optional<std::string> encodeStrictly(std::string_view text, EncodingNumber encoding) {
  if (encoding == kAsciiEncoding) return encodeBelow(text, 0x80);
  if (encoding == kLatin1Encoding) return encodeBelow(text, 0x100);
  if (const ByteTable* table = byteTable(encoding)) return encodeWithTable(text, *table);
  if (const char* name = icuName(encoding)) return encodeWithIcu(text, name);
  return std::nullopt;
}

IsEncodable encodableIn(EncodingNumber encoding) {
  if (encoding == kAsciiEncoding) return [](char32_t code) { return code < 0x80; };
  if (encoding == kLatin1Encoding) return [](char32_t code) { return code < 0x100; };
  if (const ByteTable* table = byteTable(encoding)) return [table](char32_t code) { return isInTable(code, *table); };
  return encodableByIcu(icuName(encoding));
}

bool looksLikeIso2022Jp(std::string_view bytes) {
  if (!isAllAscii(bytes)) return false;
  for (const std::string_view escape : {"\x1B$@", "\x1B$B", "\x1B$(D", "\x1B(J", "\x1B(I"}) {
    if (bytes.find(escape) != std::string_view::npos) return true;
  }
  return false;
}

EncodingNumber seemingEncoding(std::string_view bytes) {
  using namespace std::string_view_literals;
  if (bytes.starts_with(kUtf8Mark)) return kUtf8Encoding;
  // The little-endian mark of UTF-32 begins with that of UTF-16.
  if (bytes.starts_with("\xFF\xFE\0\0"sv)) return kUtf32LeEncoding;
  if (bytes.starts_with("\0\0\xFE\xFF"sv)) return kUtf32BeEncoding;
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) return kUtf16Encoding;
  if (looksLikeIso2022Jp(bytes)) return kIso2022JpEncoding;
  return isValidUtf8(bytes) ? kUtf8Encoding : detectWithIcu(bytes);
}

}  // namespace

OptionalText decodeText(std::string_view bytes, EncodingNumber encoding) {
  if (encoding == kAsciiEncoding) return isAllAscii(bytes) ? OptionalText(bytes) : std::nullopt;
  if (encoding == kUtf8Encoding) {
    if (bytes.starts_with(kUtf8Mark)) bytes.remove_prefix(kUtf8Mark.size());
    return isValidUtf8(bytes) ? OptionalText(bytes) : std::nullopt;
  }
  if (encoding == kLatin1Encoding) return decodeLatin1(bytes);
  if (encoding == kNonLossyAsciiEncoding) return decodeNonLossyAscii(bytes);
  if (auto form = unitForm(encoding)) {
    if (encoding == kUtf16Encoding && bytes.starts_with("\xFE\xFF")) form->bigEndian = true;
    return decodeUnits(bytes, *form);
  }
  if (const ByteTable* table = byteTable(encoding)) return decodeWithTable(bytes, *table);
  if (const char* name = icuName(encoding)) return decodeWithIcu(bytes, name);
  return std::nullopt;
}

std::optional<std::string> encodeText(std::string_view text, EncodingNumber encoding, bool lossy) {
  if (encoding == kUtf8Encoding) {
    return lossy || isValidUtf8(text) ? std::optional<std::string>(text) : std::nullopt;
  }
  const auto form = unitForm(encoding);
  if (form || encoding == kNonLossyAsciiEncoding) {
    if (!lossy && !isValidUtf8(text)) return std::nullopt;
    return form ? encodeUnits(text, *form, encoding == kUtf16Encoding) : encodeNonLossyAscii(text);
  }
  auto bytes = encodeStrictly(text, encoding);
  if (bytes || !lossy ||
      (!icuName(encoding) && !byteTable(encoding) && encoding != kAsciiEncoding && encoding != kLatin1Encoding)) {
    return bytes;
  }
  return encodeStrictly(replaceUnencodable(text, encodableIn(encoding)), encoding);
}

EncodingNumber detectEncoding(std::string_view bytes) {
  const EncodingNumber encoding = seemingEncoding(bytes);
  return encoding != kNoEncoding && decodeText(bytes, encoding) ? encoding : kNoEncoding;
}

}  // namespace vistrelle::platform
