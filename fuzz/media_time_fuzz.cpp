// Exact times from any bytes: order, sums, conversions and their laws.

#include <cmath>
#include <cstdint>

#include "fuzz/support.h"
#include "vistrelle/platform/media/media_time.h"

namespace {

using vistrelle::platform::MediaTime;
using vistrelle::platform::TimeRange;

MediaTime timeOf(Input& input) {
  switch (input.take<std::uint8_t>() % 8) {
    case 0:
      return MediaTime::makeWithSeconds(input.take<double>(), input.take<std::int32_t>());
    case 1:
      return MediaTime::indefinite();
    case 2:
      return input.take<std::uint8_t>() % 2 != 0 ? MediaTime::positiveInfinity() : MediaTime::negativeInfinity();
    case 3:
      return MediaTime::make(input.take<std::int16_t>(), input.take<std::uint8_t>());
    default:
      return MediaTime::make(input.take<std::int64_t>(), input.take<std::int32_t>());
  }
}

bool isExact(const MediaTime& time) {
  return time.isNumeric() && (time.flags & MediaTime::kHasBeenRounded) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const MediaTime a = timeOf(input);
  const MediaTime b = timeOf(input);
  const MediaTime c = timeOf(input);
  require((a <=> b) == (0 <=> (b <=> a)));
  if (a <= b && b <= c) require(a <= c);
  const MediaTime sum = a + b;
  require(sum == b + a);
  if (isExact(a) && isExact(b) && isExact(sum)) {
    const MediaTime back = sum - b;
    if (isExact(back)) require(back == a);
  }
  const MediaTime converted = a.convertedTo(input.take<std::int32_t>());
  if (isExact(a) && isExact(converted)) require(converted == a);
  const MediaTime scaled = vistrelle::platform::scaled(a, b, c);
  if (isExact(scaled) && isExact(a) && b == c) require(scaled == a);
  const TimeRange range{a, b};
  if (range.contains(c)) require(range.isValid() && a <= c);
  require(!range.description().empty() && !sum.description().empty());
  return 0;
}
