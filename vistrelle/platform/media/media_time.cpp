#include "vistrelle/platform/media/media_time.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <optional>
#include <utility>

#include "vistrelle/platform/base/format.h"

namespace vistrelle::platform {
namespace {

__extension__ using Wide = __int128;

constexpr std::int32_t kScaleOfSpecialTimes = 1;

MediaTime special(std::uint32_t flags) {
  MediaTime time;
  time.scale = kScaleOfSpecialTimes;
  time.flags = MediaTime::kValid | flags;
  return time;
}

/// Nearest whole quotient, halves away from zero. `divisor` is positive.
Wide roundedQuotient(Wide dividend, Wide divisor) {
  const Wide half = divisor / 2;
  return dividend >= 0 ? (dividend + half) / divisor : -((-dividend + half) / divisor);
}

bool fits(Wide value) {
  return value >= std::numeric_limits<std::int64_t>::min() && value <= std::numeric_limits<std::int64_t>::max();
}

/// `value` in 1/scale seconds, or the infinity of its sign where 64 bits do not hold it.
MediaTime numeric(Wide value, std::int32_t scale, std::int64_t epoch, bool rounded) {
  if (!fits(value)) return value > 0 ? MediaTime::positiveInfinity() : MediaTime::negativeInfinity();
  MediaTime time = MediaTime::make(static_cast<std::int64_t>(value), scale);
  time.epoch = epoch;
  if (rounded) time.flags |= MediaTime::kHasBeenRounded;
  return time;
}

/// The order of the kinds of time.
enum Rank { kRankNegativeInfinity, kRankNumeric, kRankPositiveInfinity, kRankIndefinite, kRankInvalid };

Rank rank(const MediaTime& time) {
  if (!time.isValid()) return kRankInvalid;
  if (time.flags & MediaTime::kIndefinite) return kRankIndefinite;
  if (time.flags & MediaTime::kPositiveInfinity) return kRankPositiveInfinity;
  if (time.flags & MediaTime::kNegativeInfinity) return kRankNegativeInfinity;
  return time.scale > 0 ? kRankNumeric : kRankInvalid;
}

MediaTime negated(const MediaTime& time) {
  switch (rank(time)) {
    case kRankNegativeInfinity:
      return MediaTime::positiveInfinity();
    case kRankPositiveInfinity:
      return MediaTime::negativeInfinity();
    default:
      return time;
  }
}

Wide magnitude(Wide value) {
  return value < 0 ? -value : value;
}

Wide greatestCommonDivisor(Wide a, Wide b) {
  a = magnitude(a);
  b = magnitude(b);
  while (b != 0) a = std::exchange(b, a % b);
  return a;
}

/// dividend / divisor seconds without rounding; nothing where the least scale exceeds 32 bits. `divisor` is positive.
std::optional<MediaTime> inLeastScale(Wide dividend, Wide divisor, std::int64_t epoch, bool rounded) {
  const Wide common = greatestCommonDivisor(divisor, dividend);
  if (divisor / common > std::numeric_limits<std::int32_t>::max()) return std::nullopt;
  return numeric(dividend / common, static_cast<std::int32_t>(divisor / common), epoch, rounded);
}

/// a + sign * b. The epochs add up like the values do, so that a difference within one epoch has none.
MediaTime combined(const MediaTime& a, const MediaTime& b, int sign) {
  const MediaTime second = sign < 0 ? negated(b) : b;
  const Rank rankA = rank(a);
  const Rank rankB = rank(second);
  if (rankA == kRankInvalid || rankB == kRankInvalid) return MediaTime::invalid();
  if (rankA == kRankIndefinite || rankB == kRankIndefinite) return MediaTime::indefinite();
  if (rankA != kRankNumeric || rankB != kRankNumeric) {
    if (rankA != kRankNumeric && rankB != kRankNumeric && rankA != rankB) return MediaTime::invalid();
    return rankA != kRankNumeric ? a : second;
  }
  const bool wasRounded = ((a.flags | b.flags) & MediaTime::kHasBeenRounded) != 0;
  const Wide epoch = Wide{a.epoch} + Wide{sign} * b.epoch;
  if (!fits(epoch)) return MediaTime::invalid();
  const auto sumEpoch = static_cast<std::int64_t>(epoch);
  const std::int64_t common = std::lcm(std::int64_t{a.scale}, std::int64_t{b.scale});
  // At most 2^63 x 2^31 a term: no overflow of 127 bits.
  const Wide sum = Wide{a.value} * (common / a.scale) + Wide{sign} * b.value * (common / b.scale);
  if (common <= std::numeric_limits<std::int32_t>::max()) {
    return numeric(sum, static_cast<std::int32_t>(common), sumEpoch, wasRounded);
  }
  const std::int32_t scale = std::max(a.scale, b.scale);
  const Wide divisor = common / scale;
  const bool isInexact = sum % divisor != 0;
  if (isInexact) {
    if (const std::optional<MediaTime> least = inLeastScale(sum, common, sumEpoch, wasRounded)) return *least;
  }
  return numeric(roundedQuotient(sum, divisor), scale, sumEpoch, wasRounded || isInexact);
}

}  // namespace

MediaTime MediaTime::make(std::int64_t value, std::int32_t scale) {
  MediaTime time;
  time.value = value;
  time.scale = scale;
  if (scale > 0) time.flags = kValid;
  return time;
}

MediaTime MediaTime::indefinite() {
  return special(kIndefinite);
}
MediaTime MediaTime::positiveInfinity() {
  return special(kPositiveInfinity);
}
MediaTime MediaTime::negativeInfinity() {
  return special(kNegativeInfinity);
}

MediaTime MediaTime::makeWithSeconds(double seconds, std::int32_t scale) {
  if (scale <= 0) return invalid();
  if (std::isnan(seconds)) return indefinite();
  // A product beyond 2^63 becomes an infinity whether or not it is exact; below, 64-bit long double keeps it whole.
  const long double units = static_cast<long double>(seconds) * static_cast<long double>(scale);
  constexpr long double kLimit = 9223372036854775808.0L;
  if (units >= kLimit) return positiveInfinity();
  if (units < -kLimit) return negativeInfinity();
  const long double whole = std::trunc(units);
  MediaTime time = make(static_cast<std::int64_t>(whole), scale);
  if (whole != units) time.flags |= kHasBeenRounded;
  return time;
}

double MediaTime::seconds() const {
  switch (rank(*this)) {
    case kRankNumeric:
      return static_cast<double>(static_cast<long double>(value) / static_cast<long double>(scale));
    case kRankPositiveInfinity:
      return std::numeric_limits<double>::infinity();
    case kRankNegativeInfinity:
      return -std::numeric_limits<double>::infinity();
    default:
      return std::numeric_limits<double>::quiet_NaN();
  }
}

MediaTime MediaTime::convertedTo(std::int32_t newScale) const {
  if (newScale <= 0) return invalid();
  if (!isNumeric()) return *this;
  const Wide product = Wide{value} * newScale;
  const bool rounded = product % scale != 0 || (flags & kHasBeenRounded) != 0;
  return numeric(roundedQuotient(product, scale), newScale, epoch, rounded);
}

std::string MediaTime::description() const {
  switch (rank(*this)) {
    case kRankNumeric:
      return format("{{{}/{} = {:.3f}}}", value, scale, seconds());
    case kRankPositiveInfinity:
      return "{+INFINITY}";
    case kRankNegativeInfinity:
      return "{-INFINITY}";
    case kRankIndefinite:
      return "{INDEFINITE}";
    default:
      return "{INVALID}";
  }
}

std::strong_ordering compare(const MediaTime& a, const MediaTime& b) {
  const Rank rankA = rank(a);
  const Rank rankB = rank(b);
  if (rankA != rankB) return rankA <=> rankB;
  if (rankA != kRankNumeric) return std::strong_ordering::equal;
  if (a.epoch != b.epoch) return a.epoch <=> b.epoch;
  const Wide left = Wide{a.value} * b.scale;
  const Wide right = Wide{b.value} * a.scale;
  if (left == right) return std::strong_ordering::equal;
  return left < right ? std::strong_ordering::less : std::strong_ordering::greater;
}

MediaTime operator+(const MediaTime& a, const MediaTime& b) {
  return combined(a, b, 1);
}
MediaTime operator-(const MediaTime& a, const MediaTime& b) {
  return combined(a, b, -1);
}

MediaTime scaled(const MediaTime& time, const MediaTime& to, const MediaTime& from) {
  if (!time.isNumeric() || !to.isNumeric() || !from.isNumeric() || from.value == 0) return MediaTime::invalid();
  // time x (to.value x from.scale) / (to.scale x from.value), the fraction in its lowest terms and below zero only
  // above the line. At most 94 bits on either side.
  Wide dividend = Wide{to.value} * from.scale;
  Wide divisor = Wide{from.value} * to.scale;
  if (divisor < 0) dividend = -dividend;
  divisor = magnitude(divisor);
  const Wide ratio = greatestCommonDivisor(divisor, dividend);
  dividend /= ratio;
  divisor /= ratio;
  const Wide whole = greatestCommonDivisor(divisor, time.value);
  divisor /= whole;
  const bool wasRounded = ((time.flags | to.flags | from.flags) & MediaTime::kHasBeenRounded) != 0;
  const std::int32_t fineness = std::numeric_limits<std::int32_t>::max() / time.scale;
  const std::int32_t finest = fineness * time.scale;
  Wide value = 0;
  Wide scale = 0;
  Wide fineValue = 0;
  if (__builtin_mul_overflow(Wide{time.value} / whole, dividend, &value) ||
      __builtin_mul_overflow(divisor, Wide{time.scale}, &scale) ||
      __builtin_mul_overflow(value, Wide{fineness}, &fineValue)) {
    return MediaTime::makeWithSeconds(time.seconds() * (to.seconds() / from.seconds()), finest);
  }
  if (divisor == 1) return numeric(value, time.scale, time.epoch, wasRounded);
  if (const std::optional<MediaTime> least = inLeastScale(value, scale, time.epoch, wasRounded)) return *least;
  return numeric(roundedQuotient(fineValue, divisor), finest, time.epoch, true);
}

std::string TimeRange::description() const {
  return format("{{{}, {}}}", start.description(), duration.description());
}

}  // namespace vistrelle::platform
