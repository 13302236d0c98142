#include "vistrelle/platform/base/number_text.h"

#include <charconv>
#include <cmath>
#include <limits>

namespace vistrelle::platform {
namespace {

template <typename Number>
std::string text(Number number) {
  if (std::isnan(number)) return "nan";
  char digits[64];
  if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
  const auto scientific = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::scientific);
  const std::string exponentForm(digits, scientific.ptr);
  int exponent = 0;
  const std::size_t mark = exponentForm.find('e');
  const std::size_t exponentStart = mark + (exponentForm[mark + 1] == '+' ? 2 : 1);
  std::from_chars(exponentForm.data() + exponentStart, exponentForm.data() + exponentForm.size(), exponent);
  // %g leaves the fixed form below 10^-4 and from as many digits on as the type may need.
  if (exponent < -4 || exponent >= std::numeric_limits<Number>::max_digits10) return exponentForm;
  const auto fixed = std::to_chars(digits, digits + sizeof digits, number, std::chars_format::fixed);
  return std::string(digits, fixed.ptr);
}

}  // namespace

std::string shortestText(double number) {
  return text(number);
}
std::string shortestText(float number) {
  return text(number);
}

}  // namespace vistrelle::platform
