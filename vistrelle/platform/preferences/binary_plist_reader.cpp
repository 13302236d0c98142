#include <bit>
#include <cmath>
#include <stdexcept>

#include "vistrelle/platform/base/utf8.h"
#include "vistrelle/platform/preferences/binary_plist.h"

namespace vistrelle::platform::binary_plist {
namespace {

/// Ends the reading; never leaves this file.
struct Malformed : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Reader {
 public:
  Reader(std::string_view bytes, const PropertyListLimits& limits, ShortReal shortReal)
      : bytes_(bytes), limits_(limits), shortReal_(shortReal) {
    if (bytes.size() < kMagic.size() + kTrailerSize) throw Malformed("too short");
    const std::size_t trailer = bytes.size() - kTrailerSize;
    offsetSize_ = static_cast<std::uint8_t>(bytes[trailer + 6]);
    referenceSize_ = static_cast<std::uint8_t>(bytes[trailer + 7]);
    count_ = number(trailer + 8, 8);
    top_ = number(trailer + 16, 8);
    const std::uint64_t table = number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) throw Malformed("bad trailer");
    if (table < kMagic.size() || table > trailer) throw Malformed("table of offsets lies outside");
    table_ = static_cast<std::size_t>(table);
    if (count_ > (trailer - table_) / offsetSize_) throw Malformed("table of offsets is cut short");
  }

  Value top() { return object(top_, 0); }

 private:
  /// A span of the objects' part of the file.
  struct Span {
    std::size_t start;
    std::size_t length;
  };

  std::uint64_t number(std::size_t position, std::size_t size) const {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < size; ++i) value = value << 8U | static_cast<unsigned char>(bytes_[position + i]);
    return value;
  }

  Span within(std::size_t start, std::uint64_t count, std::uint64_t unit) const {
    if (start > table_ || count > (table_ - start) / unit) throw Malformed("an object reaches beyond the end");
    return {start, static_cast<std::size_t>(count * unit)};
  }

  Value object(std::uint64_t index, std::size_t depth) {
    if (index >= count_) throw Malformed("a reference to no object");
    if (depth > limits_.depth) throw Malformed("nested too deeply or within itself");
    if (++values_ > limits_.values) throw Malformed("too many values");
    const std::uint64_t offset = number(table_ + static_cast<std::size_t>(index) * offsetSize_, offsetSize_);
    if (offset < kMagic.size() || offset >= table_) throw Malformed("an object lies outside");
    const auto position = static_cast<std::size_t>(offset);
    const auto marker = static_cast<std::uint8_t>(bytes_[position]);
    const auto low = static_cast<std::uint8_t>(marker & 0xF);
    switch (marker >> 4U) {
      case kSimple:
        return simple(marker);
      case kInteger:
        return integer(position, low);
      case kReal:
        return real(position, low);
      case kDate:
        return date(position, low);
      case kData:
        return data(contents(position, low, 1));
      case kAscii:
        return ascii(contents(position, low, 1));
      case kUtf16:
        return utf16(contents(position, low, 2));
      case kUid:
        return uid(position, low);
      case kList:
        return list(contents(position, low, referenceSize_), depth);
      case kDictionary:
        return dictionary(position, low, depth);
      default:
        throw Malformed("an object of unknown kind");
    }
  }

  static Value simple(std::uint8_t marker) {
    if (marker == kFalse || marker == kTrue) return {marker == kTrue};
    throw Malformed("a null value");
  }

  Value integer(std::size_t position, std::uint8_t power) const {
    if (power > 4) throw Malformed("a whole number of more than 128 bits");
    const Span span = within(position + 1, 1, std::size_t{1} << power);
    // One, two and four bytes are unsigned, eight are signed; sixteen hold what eight cannot.
    if (power == 4) {
      const std::uint64_t high = number(span.start, 8);
      const std::uint64_t low = number(span.start + 8, 8);
      const bool negative = low >> 63U;
      if (high == 0) return negative ? Value(low) : Value(static_cast<std::int64_t>(low));
      if (high == ~std::uint64_t{0} && negative) return {static_cast<std::int64_t>(low)};
      throw Malformed("a whole number of more than 64 bits");
    }
    return {static_cast<std::int64_t>(number(span.start, span.length))};
  }

  Value real(std::size_t position, std::uint8_t power) const {
    if (power != 2 && power != 3) throw Malformed("a real of unknown size");
    const Span span = within(position + 1, 1, std::size_t{1} << power);
    if (power == 2) {
      const auto value = std::bit_cast<float>(static_cast<std::uint32_t>(number(span.start, 4)));
      return shortReal_ == ShortReal::kFloat ? Value(value) : Value(static_cast<double>(value));
    }
    return {std::bit_cast<double>(number(span.start, 8))};
  }

  Value date(std::size_t position, std::uint8_t power) const {
    if (power != 3) throw Malformed("a date of unknown size");
    const Span span = within(position + 1, 1, 8);
    const auto seconds = std::bit_cast<double>(number(span.start, 8));
    // What a Date can count, with a margin for the epoch.
    if (!(std::abs(seconds) < 9e12)) throw Malformed("a date out of range");
    const double whole = std::floor(seconds);
    const auto microseconds = static_cast<std::int64_t>(std::llround((seconds - whole) * 1e6));
    return {Date(std::chrono::seconds(static_cast<std::int64_t>(whole) + kEpochAfter1970) +
                 std::chrono::microseconds(microseconds))};
  }

  Value uid(std::size_t position, std::uint8_t low) const {
    const Span span = within(position + 1, 1, low + 1U);
    if (span.length > 8) throw Malformed("a reference number of more than 64 bits");
    return {Dictionary{{kUidKey, static_cast<std::int64_t>(number(span.start, span.length))}}};
  }

  /// Where the elements of an object begin, and how many bytes of them there are.
  Span contents(std::size_t position, std::uint8_t low, std::size_t unit) {
    if (low != kLongLength) return within(position + 1, low, unit);
    const Span marker = within(position + 1, 1, 1);
    const auto byte = static_cast<std::uint8_t>(bytes_[marker.start]);
    const std::size_t power = byte & 0xFU;
    if (byte >> 4U != kInteger || power > 3) throw Malformed("a length that is no number");
    const Span length = within(marker.start + 1, 1, std::size_t{1} << power);
    return within(length.start + length.length, number(length.start, length.length), unit);
  }

  /// Shared texts and data are copied at each reference, so what they add up to is bounded too.
  void charge(std::size_t length) {
    copied_ += length;
    if (copied_ > limits_.bytes * 4) throw Malformed("shared objects add up to too much");
  }

  Value data(Span span) {
    charge(span.length);
    const auto* start = reinterpret_cast<const std::byte*>(bytes_.data() + span.start);
    return {Data(start, start + span.length)};
  }

  std::string ascii(Span span) {
    charge(span.length);
    return std::string(bytes_.substr(span.start, span.length));
  }

  std::string utf16(Span span) {
    charge(span.length);
    std::string text;
    for (std::size_t i = 0; i < span.length; i += 2) {
      auto unit = static_cast<std::uint32_t>(number(span.start + i, 2));
      if (unit >= 0xD800 && unit < 0xE000) {
        const auto next = i + 3 < span.length ? static_cast<std::uint32_t>(number(span.start + i + 2, 2)) : 0;
        if (unit < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
          unit = 0x10000 + ((unit - 0xD800) << 10U) + (next - 0xDC00);
          i += 2;
        }
      }
      appendCharacter(text, unit);
    }
    return text;
  }

  Value list(Span span, std::size_t depth) {
    List elements;
    for (std::size_t i = 0; i < span.length; i += referenceSize_) {
      elements.push_back(object(number(span.start + i, referenceSize_), depth + 1));
    }
    return {std::move(elements)};
  }

  Value dictionary(std::size_t position, std::uint8_t low, std::size_t depth) {
    const Span span = contents(position, low, std::size_t{2} * referenceSize_);
    const std::size_t half = span.length / 2;
    Dictionary entries;
    for (std::size_t i = 0; i < half; i += referenceSize_) {
      Value key = object(number(span.start + i, referenceSize_), depth + 1);
      auto* text = key.get<std::string>();
      if (!text) throw Malformed("a key that is no text");
      entries.insert_or_assign(std::move(*text), object(number(span.start + half + i, referenceSize_), depth + 1));
    }
    return {std::move(entries)};
  }

  std::string_view bytes_;
  const PropertyListLimits& limits_;
  ShortReal shortReal_;
  std::size_t offsetSize_ = 0;
  std::size_t referenceSize_ = 0;
  std::uint64_t count_ = 0;
  std::uint64_t top_ = 0;
  std::size_t table_ = 0;
  std::size_t values_ = 0;
  std::size_t copied_ = 0;
};

}  // namespace

PropertyListReading read(std::string_view bytes, const PropertyListLimits& limits, ShortReal shortReal) {
  try {
    return {Reader(bytes, limits, shortReal).top(), {}};
  } catch (const Malformed& reason) {
    return {std::nullopt, std::string("binary property list: ") + reason.what()};
  }
}

}  // namespace vistrelle::platform::binary_plist
