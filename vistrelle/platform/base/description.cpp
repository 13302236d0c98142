#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/number_text.h"
#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/base/value.h"

// The old-style property-list form: ( ... ) lists and { ... } dictionaries, texts bare when they are made of
// ASCII letters and digits only, quoted otherwise.

namespace vistrelle::platform {
namespace {

constexpr std::size_t kBlanksALevel = 4;

std::string describeDate(const Date& date) {
  const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
  std::tm utc{};
  ::gmtime_r(&seconds, &utc);
  return format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", std::int64_t{utc.tm_year} + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
}

std::string describeData(const Data& data) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text = "<";
  for (std::size_t i = 0; i < data.size(); ++i) {
    if (i > 0 && i % 4 == 0) text += ' ';
    const auto byte = std::to_integer<unsigned>(data[i]);
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text + '>';
}

std::string describeColour(const Colour& colour) {
  return "sRGB " + shortestText(colour.red) + ' ' + shortestText(colour.green) + ' ' + shortestText(colour.blue) + ' ' +
         shortestText(colour.alpha);
}

bool isBare(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
  });
}

/// The letter of a control character's escape; 0 for one that has none.
char escapeLetter(char32_t code) {
  switch (code) {
    case '\a':
      return 'a';
    case '\b':
      return 'b';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\v':
      return 'v';
    case '\f':
      return 'f';
    case '\r':
      return 'r';
    case '"':
      return '"';
    case '\\':
      return '\\';
    default:
      return 0;
  }
}

/// One UTF-16 unit as \Uxxxx.
void appendUnit(std::string& text, char32_t unit) {
  text += format("\\U{:04x}", static_cast<std::uint32_t>(unit));
}

void appendEscaped(std::string& text, const Character& character) {
  const char32_t code = character.code;
  if (const char letter = escapeLetter(code)) {
    text += '\\';
    text += letter;
  } else if (!character.valid || code < 0x20 || code == 0x7F) {
    text += format("\\{:03o}", static_cast<std::uint32_t>(code));
  } else if (code < 0x7F) {
    text += static_cast<char>(code);
  } else if (code < 0x10000) {
    appendUnit(text, code);
  } else {
    appendUnit(text, 0xD800 + ((code - 0x10000) >> 10));
    appendUnit(text, 0xDC00 + ((code - 0x10000) & 0x3FF));
  }
}

void appendText(std::string& text, std::string_view content) {
  if (isBare(content)) {
    text += content;
    return;
  }
  text += '"';
  for (std::size_t offset = 0; offset < content.size();) {
    const Character character = characterAt(content, offset);
    appendEscaped(text, character);
    offset += character.length;
  }
  text += '"';
}

/// The text of anything but a list or a dictionary, as it stands outside of them.
std::string plainText(const Value& value) {
  return std::visit(
      [](const auto& stored) -> std::string {
        using T = std::decay_t<decltype(stored)>;
        if constexpr (std::is_same_v<T, std::string>) {
          return stored;
        } else if constexpr (std::is_same_v<T, bool>) {
          return stored ? "1" : "0";
        } else if constexpr (std::is_floating_point_v<T>) {
          return shortestText(stored);
        } else if constexpr (std::is_integral_v<T>) {
          return std::to_string(stored);
        } else if constexpr (std::is_same_v<T, Date>) {
          return describeDate(stored);
        } else if constexpr (std::is_same_v<T, Data>) {
          return describeData(stored);
        } else if constexpr (std::is_same_v<T, Url>) {
          return stored.text;
        } else if constexpr (std::is_same_v<T, Colour>) {
          return describeColour(stored);
        } else if constexpr (std::is_same_v<T, std::shared_ptr<const Opaque>>) {
          return stored ? stored->description() : "(null)";
        } else {
          return "";
        }
      },
      value.stored());
}

/// Walks a list or a dictionary with a stack of its own: nesting is bounded by memory only.
class Printer {
 public:
  std::string print(const Value& value) {
    open(value);
    while (!levels_.empty()) {
      if (!next()) close();
    }
    return std::move(text_);
  }

 private:
  struct Level {
    const List* list = nullptr;
    const Dictionary* dictionary = nullptr;
    std::size_t index = 0;
    Dictionary::const_iterator entry{};
  };

  void indent() { text_.append(kBlanksALevel * levels_.size(), ' '); }

  /// A container inside another one is preceded by its level's indentation a second time, as this form has it.
  void open(const Value& value) {
    indent();
    Level level;
    if ((level.list = value.get<List>())) {
      text_ += "(\n";
    } else {
      level.dictionary = value.get<Dictionary>();
      level.entry = level.dictionary->begin();
      text_ += "{\n";
    }
    levels_.push_back(level);
  }

  bool next() {
    Level& level = levels_.back();
    if (level.list) {
      if (level.index == level.list->size()) return false;
      if (level.index > 0) text_ += ",\n";
      indent();
      return element((*level.list)[level.index++]);
    }
    if (level.index++ > 0) text_ += ";\n";
    if (level.entry == level.dictionary->end()) return false;
    indent();
    appendText(text_, level.entry->first);
    text_ += " = ";
    return element((level.entry++)->second);
  }

  bool element(const Value& value) {
    if (value.get<List>() || value.get<Dictionary>()) {
      open(value);
    } else if (value.get<Data>()) {
      text_ += plainText(value);
    } else {
      appendText(text_, plainText(value));
    }
    return true;
  }

  void close() {
    const Level level = levels_.back();
    levels_.pop_back();
    if (level.list && level.index > 0) text_ += '\n';
    indent();
    text_ += level.list ? ')' : '}';
  }

  std::string text_;
  std::vector<Level> levels_;
};

}  // namespace

std::string description(const Value& value) {
  if (value.get<List>() || value.get<Dictionary>()) return Printer().print(value);
  return plainText(value);
}

std::string description(const OptionalValue& value) {
  return value ? description(*value) : "(null)";
}

std::string description(const std::vector<std::string>& list) {
  return description(Value(List(list.begin(), list.end())));
}

}  // namespace vistrelle::platform
