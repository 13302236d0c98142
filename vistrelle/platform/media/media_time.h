#pragma once

#include <compare>
#include <cstdint>
#include <string>

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// Exact media time: value / scale seconds. All arithmetic and comparison is done in integers.
/// The default-constructed time is invalid.
class MediaTime {
 public:
  enum Flags : std::uint32_t {
    kValid = 1,
    kHasBeenRounded = 2,
    kPositiveInfinity = 4,
    kNegativeInfinity = 8,
    kIndefinite = 16
  };

  std::int64_t value = 0;
  std::int32_t scale = 0;
  std::uint32_t flags = 0;
  std::int64_t epoch = 0;

  static MediaTime make(std::int64_t value, std::int32_t scale);
  static MediaTime zero() { return make(0, 1); }
  static MediaTime invalid() { return {}; }
  static MediaTime indefinite();
  static MediaTime positiveInfinity();
  static MediaTime negativeInfinity();
  /// The whole number of 1/scale units nearest to zero from `seconds` (truncated); rounding is flagged.
  /// Not a number gives the indefinite time, infinities and values beyond 64 bits the infinities.
  static MediaTime makeWithSeconds(double seconds, std::int32_t scale);

  bool isValid() const { return (flags & kValid) != 0; }
  bool isNumeric() const {
    return (flags & (kValid | kPositiveInfinity | kNegativeInfinity | kIndefinite)) == kValid && scale > 0;
  }

  /// Not a number for an invalid or indefinite time, +-infinity for the infinities.
  double seconds() const;
  /// The same time in 1/newScale units, rounded to nearest with halves away from zero; flagged when inexact.
  /// A result beyond 64 bits is an infinity.
  MediaTime convertedTo(std::int32_t newScale) const;
  /// "{3/2 = 1.500}", "{INVALID}", "{INDEFINITE}", "{+INFINITY}", "{-INFINITY}".
  std::string description() const;
};

/// Order: negative infinity, numbers (exactly), positive infinity, indefinite, invalid; then by epoch first.
std::strong_ordering compare(const MediaTime& a, const MediaTime& b);
inline bool operator==(const MediaTime& a, const MediaTime& b) {
  return compare(a, b) == 0;
}
inline std::strong_ordering operator<=>(const MediaTime& a, const MediaTime& b) {
  return compare(a, b);
}

/// Exact sums over the least common scale. Where that exceeds 32 bits: over the larger of the two scales when it holds
/// the sum, else over the least scale that does, else over the larger one, rounded and flagged.
/// Invalid in, invalid out; indefinite and infinities follow the usual rules (infinity - infinity is invalid).
MediaTime operator+(const MediaTime& a, const MediaTime& b);
MediaTime operator-(const MediaTime& a, const MediaTime& b);

/// `time` x `to` / `from`: over the scale of `time` where that holds it, else over the least scale that does. Where
/// that exceeds 32 bits it is rounded to nearest over the greatest multiple of the scale of `time` that fits, and
/// flagged. Invalid unless all are numbers and `from` is not zero. Exact while the terms together stay below 127 bits.
MediaTime scaled(const MediaTime& time, const MediaTime& to, const MediaTime& from);

/// A stretch of time [start, start + duration).
struct TimeRange {
  MediaTime start;
  MediaTime duration;

  static TimeRange invalid() { return {}; }
  /// Both times valid, the duration's epoch 0 and its value not negative.
  bool isValid() const { return start.isValid() && duration.isValid() && duration.epoch == 0 && duration.value >= 0; }
  MediaTime end() const { return start + duration; }
  bool contains(const MediaTime& time) const { return isValid() && start <= time && time < end(); }
  bool operator==(const TimeRange&) const = default;
  /// "{{0/3 = 0.000}, {32/3 = 10.667}}".
  std::string description() const;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
