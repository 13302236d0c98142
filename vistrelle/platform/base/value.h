#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// A text that may be absent. Text is UTF-8; bytes that are not valid UTF-8 survive unchanged.
using OptionalText = std::optional<std::string>;

/// A point in time, counted from 1970-01-01 00:00:00 UTC.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

using Data = std::vector<std::byte>;

/// A URL by its text ("file:///tmp/a.mov").
struct Url {
  std::string text;
  bool operator==(const Url&) const = default;
};

/// Colour in sRGB, components and alpha from 0 to 1, alpha not multiplied in.
struct Colour {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;
  bool operator==(const Colour&) const = default;
};

/// Something that a value can carry without looking inside: a picture, a movie, a track.
class Opaque {
 public:
  virtual ~Opaque() = default;
  /// The text that stands for it in logs.
  virtual std::string description() const = 0;
};

class Value;
using List = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;

/// One object of the system: what a property list can hold, and a few more. Never empty: an absent value is an
/// empty std::optional<Value>.
class Value {
 public:
  using Stored = std::variant<std::string, std::int64_t, std::uint64_t, double, float, bool, Date, Data, Url, Colour,
                              List, Dictionary, std::shared_ptr<const Opaque>>;

  Value(std::string text) : stored_(std::move(text)) {}                        // NOLINT(google-explicit-constructor)
  Value(std::string_view text) : stored_(std::string(text)) {}                 // NOLINT(google-explicit-constructor)
  Value(const char* text) : stored_(std::string(text)) {}                      // NOLINT(google-explicit-constructor)
  Value(bool flag) : stored_(flag) {}                                          // NOLINT(google-explicit-constructor)
  Value(int number) : stored_(std::int64_t{number}) {}                         // NOLINT(google-explicit-constructor)
  Value(std::int64_t number) : stored_(number) {}                              // NOLINT(google-explicit-constructor)
  Value(long long number) : stored_(std::int64_t{number}) {}                   // NOLINT(google-explicit-constructor)
  Value(std::uint64_t number) : stored_(number) {}                             // NOLINT(google-explicit-constructor)
  Value(double number) : stored_(number) {}                                    // NOLINT(google-explicit-constructor)
  Value(float number) : stored_(number) {}                                     // NOLINT(google-explicit-constructor)
  Value(Date date) : stored_(date) {}                                          // NOLINT(google-explicit-constructor)
  Value(Data data) : stored_(std::move(data)) {}                               // NOLINT(google-explicit-constructor)
  Value(Url url) : stored_(std::move(url)) {}                                  // NOLINT(google-explicit-constructor)
  Value(Colour colour) : stored_(colour) {}                                    // NOLINT(google-explicit-constructor)
  Value(List list) : stored_(std::move(list)) {}                               // NOLINT(google-explicit-constructor)
  Value(Dictionary dictionary) : stored_(std::move(dictionary)) {}             // NOLINT(google-explicit-constructor)
  Value(std::shared_ptr<const Opaque> object) : stored_(std::move(object)) {}  // NOLINT(google-explicit-constructor)

  const Stored& stored() const { return stored_; }

  template <typename T>
  const T* get() const {
    return std::get_if<T>(&stored_);
  }
  template <typename T>
  T* get() {
    return std::get_if<T>(&stored_);
  }

  /// Whether it is a whole or floating-point number (a boolean is not one).
  bool isNumber() const;
  /// The number as a double; nothing for anything that is not a number.
  std::optional<double> number() const;

  bool operator==(const Value& other) const { return stored_ == other.stored_; }

 private:
  Stored stored_;
};

using OptionalValue = std::optional<Value>;

/// The text of a value as the system prints it ("%@"): a text as it is, a number in its shortest form, a list in
/// round brackets and a dictionary in braces, one element a line, four blanks a level, quoted and escaped where the
/// old property-list form asks for it. Dictionaries print in ascending key order.
std::string description(const Value& value);
/// The same for a value that may be absent: "(null)".
std::string description(const OptionalValue& value);
std::string description(const std::vector<std::string>& list);

}  // namespace vistrelle::platform

#pragma GCC visibility pop
