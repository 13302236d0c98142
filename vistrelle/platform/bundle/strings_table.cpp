#include "vistrelle/platform/bundle/strings_table.h"

#include <algorithm>
#include <cstdint>

#include "vistrelle/platform/base/utf8.h"

namespace vistrelle::platform {
namespace {

constexpr bool isHighSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit < 0xDC00;
}
constexpr bool isLowSurrogate(std::uint32_t unit) {
  return unit >= 0xDC00 && unit < 0xE000;
}

/// Joins UTF-16 units into code points; a lone half becomes U+FFFD.
class Utf16Joiner {
 public:
  explicit Utf16Joiner(std::string& text) : text_(text) {}
  void add(std::uint32_t unit) {
    if (high_ && isLowSurrogate(unit)) {
      appendCharacter(text_, 0x10000 + ((high_ - 0xD800) << 10) + (unit - 0xDC00));
      high_ = 0;
      return;
    }
    flush();
    if (isHighSurrogate(unit)) {
      high_ = unit;
    } else {
      appendCharacter(text_, unit);
    }
  }
  void flush() {
    if (high_) appendCharacter(text_, 0xFFFD);
    high_ = 0;
  }

 private:
  std::string& text_;
  std::uint32_t high_ = 0;
};

std::string asUtf8(std::string_view content) {
  if (content.starts_with("\xEF\xBB\xBF")) return std::string(content.substr(3));
  const bool bigEndian = content.starts_with("\xFE\xFF");
  if (!bigEndian && !content.starts_with("\xFF\xFE")) return std::string(content);
  std::string text;
  Utf16Joiner joiner(text);
  for (std::size_t i = 2; i + 1 < content.size(); i += 2) {
    const auto first = static_cast<unsigned char>(content[i]);
    const auto second = static_cast<unsigned char>(content[i + 1]);
    joiner.add(bigEndian ? first * 256U + second : second * 256U + first);
  }
  joiner.flush();
  return text;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isBare(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

class Parser {
 public:
  explicit Parser(std::string_view text) : text_(text) {}

  std::optional<StringsTable> table() {
    StringsTable entries;
    while (skipBlanks()) {
      if (atEnd()) return entries;
      auto key = word();
      if (!key || !skipBlanks()) return std::nullopt;
      std::optional<std::string> value = *key;
      if (accept('=')) {
        if (!skipBlanks()) return std::nullopt;
        value = word();
        if (!value || !skipBlanks()) return std::nullopt;
      }
      if (!accept(';')) return std::nullopt;
      entries.emplace(std::move(*key), std::move(*value));
    }
    return std::nullopt;
  }

 private:
  bool atEnd() const { return position_ >= text_.size(); }
  bool looksAt(std::string_view piece) const { return text_.substr(position_).starts_with(piece); }
  bool accept(char c) {
    if (atEnd() || text_[position_] != c) return false;
    ++position_;
    return true;
  }

  /// Skips blanks and comments; false when a comment is not closed.
  bool skipBlanks() {
    while (!atEnd()) {
      if (looksAt("/*")) {
        const auto close = text_.find("*/", position_ + 2);
        if (close == std::string_view::npos) return false;
        position_ = close + 2;
      } else if (looksAt("//")) {
        position_ = std::min(text_.find_first_of("\r\n", position_), text_.size());
      } else if (std::string_view(" \t\r\n\v\f").find(text_[position_]) != std::string_view::npos) {
        ++position_;
      } else {
        break;
      }
    }
    return true;
  }

  std::optional<std::string> word() {
    if (atEnd()) return std::nullopt;
    if (const char quote = text_[position_]; quote == '"' || quote == '\'') {
      ++position_;
      return quoted(quote);
    }
    const auto start = position_;
    // A comment may follow a bare word at once.
    while (!atEnd() && isBare(text_[position_]) && !looksAt("/*") && !looksAt("//")) ++position_;
    if (position_ == start) return std::nullopt;
    return std::string(text_.substr(start, position_ - start));
  }

  std::optional<std::string> quoted(char quote) {
    std::string result;
    Utf16Joiner joiner(result);
    while (!atEnd()) {
      const char c = text_[position_++];
      if (c == '\\' && looksAt("U")) {
        ++position_;
        joiner.add(hexNumber());
        continue;
      }
      joiner.flush();
      if (c == quote) return result;
      if (c == '\\') {
        escape(result);
      } else {
        result.push_back(c);
      }
    }
    return std::nullopt;
  }

  std::uint32_t hexNumber() {
    std::uint32_t value = 0;
    for (int digits = 0; digits < 4 && !atEnd() && hexDigit(text_[position_]) >= 0; ++digits) {
      value = value * 16 + static_cast<std::uint32_t>(hexDigit(text_[position_++]));
    }
    return value;
  }

  void escape(std::string& result) {
    if (atEnd()) return;
    const char c = text_[position_++];
    if (c >= '0' && c <= '7') {
      auto value = static_cast<std::uint32_t>(c - '0');
      for (int digits = 1; digits < 3 && !atEnd() && text_[position_] >= '0' && text_[position_] <= '7'; ++digits) {
        value = value * 8 + static_cast<std::uint32_t>(text_[position_++] - '0');
      }
      appendCharacter(result, value);
      return;
    }
    constexpr std::string_view kLetters = "ntrabfv";
    constexpr std::string_view kMeaning = "\n\t\r\a\b\f\v";
    const auto index = kLetters.find(c);
    result.push_back(index == std::string_view::npos ? c : kMeaning[index]);
  }

  std::string_view text_;
  std::size_t position_ = 0;
};

}  // namespace

std::optional<StringsTable> parseStringsTable(std::string_view content) {
  const std::string text = asUtf8(content);
  return Parser(text).table();
}

}  // namespace vistrelle::platform
