#pragma once

#include <cstdint>
#include <limits>

/// Whole-number arithmetic that is defined for every pair of numbers.
namespace vistrelle {

constexpr std::int64_t saturatingSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return b < 0 ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
}

constexpr std::int64_t saturatingProduct(std::int64_t a, std::int64_t b) {
  std::int64_t product = 0;
  if (!__builtin_mul_overflow(a, b, &product)) return product;
  return (a < 0) != (b < 0) ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
}

/// The remainder of a division that truncates toward zero; 0 for the divisors 0 and -1, where the processor's
/// division fails or overflows.
constexpr std::int64_t remainderOf(std::int64_t a, std::int64_t b) {
  return b == 0 || b == -1 ? 0 : a % b;
}

}  // namespace vistrelle
