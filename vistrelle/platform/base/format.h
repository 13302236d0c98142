#pragma once

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// A format that is a literal of the program, never data: the constructor runs at compile time only.
class FormatLiteral {
 public:
  consteval FormatLiteral(const char* text) : text_(text) {}  // NOLINT(google-explicit-constructor)
  constexpr std::string_view text() const { return text_; }

 private:
  std::string_view text_;
};

/// One argument of a format: a text, a whole number or a floating-point number. Borrowed for the call.
class FormatArgument {
 public:
  using Stored = std::variant<std::string_view, std::int64_t, std::uint64_t, double>;
  FormatArgument(std::string_view text) : stored_(text) {}                      // NOLINT(google-explicit-constructor)
  FormatArgument(const std::string& text) : stored_(std::string_view(text)) {}  // NOLINT(google-explicit-constructor)
  FormatArgument(const char* text) : stored_(std::string_view(text)) {}         // NOLINT(google-explicit-constructor)
  template <typename Number>
  requires std::is_arithmetic_v<Number> FormatArgument(Number number) {  // NOLINT(google-explicit-constructor)
    if constexpr (std::is_floating_point_v<Number>) {
      // Not a number prints as "nan", whatever its sign bit says.
      stored_ = number != number ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(number);
    } else if constexpr (std::is_unsigned_v<Number>) {
      stored_ = static_cast<std::uint64_t>(number);
    } else {
      stored_ = static_cast<std::int64_t>(number);
    }
  }
  const Stored& stored() const { return stored_; }

 private:
  Stored stored_;
};

/// The text of `format` (fmt's replacement fields: "{}", "{:.3f}", "{:02}") with its arguments. Numbers print the
/// same in every locale; a boolean prints as 1 or 0. A format that does not fit its arguments yields the bare format.
std::string formatText(FormatLiteral format, std::span<const FormatArgument> arguments);

template <typename... Arguments>
std::string format(FormatLiteral literal, const Arguments&... arguments) {
  const std::initializer_list<FormatArgument> list{FormatArgument(arguments)...};
  return formatText(literal, std::span(list.begin(), list.size()));
}

}  // namespace vistrelle::platform

#pragma GCC visibility pop
