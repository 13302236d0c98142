#include "vistrelle/platform/media/mov/sample_span.h"

#include <algorithm>

namespace vistrelle::platform::mov {
namespace {

// Sums of two of these still fit 64 signed bits.
constexpr std::uint64_t kLimit = std::uint64_t{1} << 62;

std::uint64_t limitedSum(std::uint64_t a, std::uint64_t b) {
  std::uint64_t sum = 0;
  return __builtin_add_overflow(a, b, &sum) ? kLimit : std::min(sum, kLimit);
}

std::uint64_t limitedProduct(std::uint64_t a, std::uint64_t b) {
  std::uint64_t product = 0;
  return __builtin_mul_overflow(a, b, &product) ? kLimit : std::min(product, kLimit);
}

}  // namespace

void SampleSpan::add(std::uint64_t count, std::uint32_t duration, std::int64_t compositionOffset) {
  if (count == 0) return;
  noteDuration(count, duration);
  const std::int64_t first = static_cast<std::int64_t>(decodeTime_) + compositionOffset;
  const std::uint64_t covered = limitedProduct(count, duration);
  count_ = limitedSum(count_, count);
  duration_ = limitedSum(duration_, covered);
  decodeTime_ = limitedSum(decodeTime_, covered);
  const std::int64_t end = static_cast<std::int64_t>(decodeTime_) + compositionOffset;
  end_ = first_ ? std::max(end_, end) : end;
  first_ = first_ ? std::min(*first_, first) : first;
}

void SampleSpan::moveTo(std::uint64_t decodeTime) {
  decodeTime_ = std::min(decodeTime, kLimit);
}

void SampleSpan::noteDuration(std::uint64_t count, std::uint32_t duration) {
  // The last sample so far is kept back: it may be the last of all, whose own length does not count.
  if (count_ > 0) {
    if (usualDuration_ == 0) usualDuration_ = lastDuration_;
    varies_ = varies_ || lastDuration_ != usualDuration_;
  }
  if (count > 1) {
    if (usualDuration_ == 0) usualDuration_ = duration;
    varies_ = varies_ || duration != usualDuration_;
  }
  lastDuration_ = duration;
}

SampleFacts SampleSpan::facts() const {
  const std::uint32_t usual = usualDuration_ > 0 ? usualDuration_ : lastDuration_;
  return {count_, duration_, first_.value_or(0), end_, varies_ ? 0 : usual};
}

}  // namespace vistrelle::platform::mov
