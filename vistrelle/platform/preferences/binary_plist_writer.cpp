#include <bit>
#include <cstring>
#include <map>
#include <stdexcept>
#include <vector>

#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/preferences/binary_plist.h"

namespace vistrelle::platform {
namespace {

using namespace binary_plist;

struct Unwritable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

void appendNumber(std::string& bytes, std::uint64_t number, std::size_t size) {
  for (std::size_t i = size; i-- > 0;) bytes.push_back(static_cast<char>(number >> (8 * i) & 0xFF));
}

std::size_t bytesFor(std::uint64_t number) {
  if (number <= 0xFF) return 1;
  if (number <= 0xFFFF) return 2;
  return number <= 0xFFFFFFFF ? 4 : 8;
}

bool isAscii(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

std::string utf16Units(std::string_view text) {
  std::string units;
  for (std::size_t position = 0; position < text.size();) {
    const Character character = characterAt(text, position);
    const std::uint32_t point = character.valid ? character.code : 0xFFFD;
    position += character.length;
    if (point < 0x10000) {
      appendNumber(units, point, 2);
    } else {
      appendNumber(units, 0xD800 + ((point - 0x10000) >> 10U), 2);
      appendNumber(units, 0xDC00 + ((point - 0x10000) & 0x3FFU), 2);
    }
  }
  return units;
}

/// Numbers the values first, since a list names its elements by number, in numbers of the smallest size that fits.
class Writer {
 public:
  std::string file(const Value& top) {
    number(top, 0);
    referenceSize_ = bytesFor(objects_.size());
    std::string bytes(kMagic);
    std::vector<std::size_t> offsets;
    for (const Object& object : objects_) {
      offsets.push_back(bytes.size());
      write(bytes, object);
    }
    const std::size_t table = bytes.size();
    const std::size_t offsetSize = bytesFor(table);
    for (const std::size_t offset : offsets) appendNumber(bytes, offset, offsetSize);
    appendNumber(bytes, 0, 6);
    appendNumber(bytes, offsetSize, 1);
    appendNumber(bytes, referenceSize_, 1);
    appendNumber(bytes, objects_.size(), 8);
    appendNumber(bytes, 0, 8);
    appendNumber(bytes, table, 8);
    return bytes;
  }

 private:
  /// A value, or the text of a key, with the numbers of what it holds: a dictionary's keys first, then its values.
  struct Object {
    const Value* value;
    const std::string* text;
    std::vector<std::size_t> parts;
  };

  std::size_t add(const Value* value, const std::string* text) {
    objects_.push_back({value, text, {}});
    return objects_.size() - 1;
  }

  std::size_t numberText(const std::string& text) {
    const auto [known, isNew] = texts_.try_emplace(text, objects_.size());
    if (isNew) add(nullptr, &text);
    return known->second;
  }

  std::size_t number(const Value& value, std::size_t depth) {
    if (const auto* text = value.get<std::string>()) return numberText(*text);
    const std::size_t index = add(&value, nullptr);
    std::vector<std::size_t> parts;
    const PropertyListLimits limits;
    if ((value.get<List>() || value.get<Dictionary>()) && depth >= limits.depth) {
      throw Unwritable("the property list is nested too deeply");
    }
    if (const auto* list = value.get<List>()) {
      for (const Value& element : *list) parts.push_back(number(element, depth + 1));
    } else if (const auto* dictionary = value.get<Dictionary>()) {
      for (const auto& entry : *dictionary) parts.push_back(numberText(entry.first));
      for (const auto& entry : *dictionary) parts.push_back(number(entry.second, depth + 1));
    }
    objects_[index].parts = std::move(parts);
    return index;
  }

  static void writeMarker(std::string& bytes, Kind kind, std::size_t length) {
    const bool isLong = length >= kLongLength;
    bytes.push_back(static_cast<char>(kind << 4U | (isLong ? kLongLength : length)));
    if (isLong) writeUnsigned(bytes, length);
  }

  static void writeUnsigned(std::string& bytes, std::uint64_t number) {
    const std::size_t size = bytesFor(number);
    bytes.push_back(static_cast<char>(kInteger << 4U | static_cast<unsigned>(std::countr_zero(size))));
    appendNumber(bytes, number, size);
  }

  static void writeText(std::string& bytes, std::string_view text) {
    if (isAscii(text)) {
      writeMarker(bytes, kAscii, text.size());
      bytes.append(text);
    } else {
      const std::string units = utf16Units(text);
      writeMarker(bytes, kUtf16, units.size() / 2);
      bytes.append(units);
    }
  }

  void writeParts(std::string& bytes, const Object& object) const {
    for (const std::size_t part : object.parts) appendNumber(bytes, part, referenceSize_);
  }

  void write(std::string& bytes, const Object& object) const {
    if (object.text) {
      writeText(bytes, *object.text);
      return;
    }
    std::visit([&](const auto& stored) { writeStored(bytes, object, stored); }, object.value->stored());
  }

  void writeStored(std::string& bytes, const Object&, const std::string& text) const { writeText(bytes, text); }
  void writeStored(std::string& bytes, const Object&, bool flag) const {
    bytes.push_back(static_cast<char>(flag ? kTrue : kFalse));
  }
  void writeStored(std::string& bytes, const Object&, std::int64_t number) const {
    writeUnsigned(bytes, static_cast<std::uint64_t>(number));
  }
  void writeStored(std::string& bytes, const Object&, std::uint64_t number) const {
    // Eight bytes are signed, so the upper half takes sixteen.
    if (number >> 63U) {
      bytes.push_back(static_cast<char>(kInteger << 4U | 4U));
      appendNumber(bytes, 0, 8);
      appendNumber(bytes, number, 8);
    } else {
      writeUnsigned(bytes, number);
    }
  }
  void writeStored(std::string& bytes, const Object&, double number) const {
    bytes.push_back(static_cast<char>(kReal << 4U | 3U));
    appendNumber(bytes, std::bit_cast<std::uint64_t>(number), 8);
  }
  void writeStored(std::string& bytes, const Object&, float number) const {
    bytes.push_back(static_cast<char>(kReal << 4U | 2U));
    appendNumber(bytes, std::bit_cast<std::uint32_t>(number), 4);
  }
  void writeStored(std::string& bytes, const Object&, const Date& date) const {
    const auto since1970 = date.time_since_epoch();
    const auto whole = std::chrono::floor<std::chrono::seconds>(since1970);
    const double seconds =
        static_cast<double>(whole.count() - kEpochAfter1970) + static_cast<double>((since1970 - whole).count()) / 1e6;
    bytes.push_back(static_cast<char>(kDate << 4U | 3U));
    appendNumber(bytes, std::bit_cast<std::uint64_t>(seconds), 8);
  }
  void writeStored(std::string& bytes, const Object&, const Data& data) const {
    writeMarker(bytes, kData, data.size());
    bytes.append(reinterpret_cast<const char*>(data.data()), data.size());
  }
  void writeStored(std::string& bytes, const Object& object, const List& list) const {
    writeMarker(bytes, kList, list.size());
    writeParts(bytes, object);
  }
  void writeStored(std::string& bytes, const Object& object, const Dictionary& dictionary) const {
    writeMarker(bytes, kDictionary, dictionary.size());
    writeParts(bytes, object);
  }
  [[noreturn]] void writeStored(std::string&, const Object&, const Url&) const {
    throw Unwritable("property lists cannot contain a URL");
  }
  [[noreturn]] void writeStored(std::string&, const Object&, const Colour&) const {
    throw Unwritable("property lists cannot contain a colour");
  }
  [[noreturn]] void writeStored(std::string&, const Object&, const std::shared_ptr<const Opaque>&) const {
    throw Unwritable("property lists cannot contain an opaque object");
  }

  std::vector<Object> objects_;
  std::map<std::string_view, std::size_t> texts_;
  std::size_t referenceSize_ = 1;
};

}  // namespace

PropertyListWriting writeBinaryPropertyList(const Value& value) {
  try {
    return {Writer().file(value), {}};
  } catch (const Unwritable& reason) {
    return {std::nullopt, reason.what()};
  }
}

}  // namespace vistrelle::platform
