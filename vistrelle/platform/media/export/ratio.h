#pragma once

#include <cstdint>
#include <limits>
#include <numeric>

#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::platform {

/// An exact fraction, in lowest terms, for sums over media times of any scales. Numbers of more than 127 bits do not
/// come up: media times have 63 over 31.
class Ratio {
 public:
  __extension__ using Wide = __int128;

  Ratio() = default;
  Ratio(Wide numerator, Wide denominator = 1) : n_(numerator), d_(denominator) { reduce(); }
  static Ratio of(const MediaTime& time) { return time.isNumeric() ? Ratio(time.value, time.scale) : Ratio(); }

  Wide numerator() const { return n_; }
  Wide denominator() const { return d_; }
  bool isZero() const { return n_ == 0; }

  friend Ratio operator+(const Ratio& a, const Ratio& b) { return {a.n_ * b.d_ + b.n_ * a.d_, a.d_ * b.d_}; }
  friend Ratio operator-(const Ratio& a, const Ratio& b) { return {a.n_ * b.d_ - b.n_ * a.d_, a.d_ * b.d_}; }
  friend Ratio operator*(const Ratio& a, const Ratio& b) {
    const Ratio left(a.n_, b.d_);
    const Ratio right(b.n_, a.d_);
    return {left.n_ * right.n_, left.d_ * right.d_};
  }
  /// `b` is not zero.
  friend Ratio operator/(const Ratio& a, const Ratio& b) {
    return a * (b.n_ < 0 ? Ratio(-b.d_, -b.n_) : Ratio(b.d_, b.n_));
  }
  friend bool operator==(const Ratio& a, const Ratio& b) { return a.n_ == b.n_ && a.d_ == b.d_; }
  friend bool operator<(const Ratio& a, const Ratio& b) { return a.n_ * b.d_ < b.n_ * a.d_; }
  friend bool operator>(const Ratio& a, const Ratio& b) { return b < a; }
  friend bool operator<=(const Ratio& a, const Ratio& b) { return !(b < a); }
  friend bool operator>=(const Ratio& a, const Ratio& b) { return !(a < b); }

  std::int64_t floor() const { return limited(n_ >= 0 ? n_ / d_ : -((-n_ + d_ - 1) / d_)); }
  std::int64_t ceil() const { return limited(n_ >= 0 ? (n_ + d_ - 1) / d_ : -(-n_ / d_)); }
  /// Nearest, halves upwards.
  std::int64_t rounded() const { return Ratio(n_ * 2 + d_, d_ * 2).floor(); }

 private:
  static std::int64_t limited(Wide value) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / 4;
    return static_cast<std::int64_t>(value > kMost ? kMost : value < -kMost ? -kMost : value);
  }
  static Wide magnitude(Wide value) { return value < 0 ? -value : value; }
  void reduce() {
    Wide a = magnitude(n_);
    Wide b = d_;
    while (b != 0) {
      const Wide rest = a % b;
      a = b;
      b = rest;
    }
    if (a > 1) {
      n_ /= a;
      d_ /= a;
    }
  }

  Wide n_ = 0;
  Wide d_ = 1;
};

/// The least common multiple where it is at most `limit`, else 0.
inline std::int64_t commonMultiple(std::int64_t a, Ratio::Wide b, std::int64_t limit) {
  if (b <= 0 || b > limit) return 0;
  const auto other = static_cast<std::int64_t>(b);
  const Ratio::Wide multiple = Ratio::Wide{a} / std::gcd(a, other) * other;
  return multiple > limit ? 0 : static_cast<std::int64_t>(multiple);
}

}  // namespace vistrelle::platform
