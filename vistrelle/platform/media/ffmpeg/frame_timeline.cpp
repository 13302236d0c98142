#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <cmath>
#include <limits>

namespace vistrelle::platform {

namespace {

constexpr std::int64_t kFirst = std::numeric_limits<std::int64_t>::min() + 1;
constexpr std::int64_t kLast = std::numeric_limits<std::int64_t>::max();

// av_rescale_q answers INT64_MIN for a result beyond 64 bits.
std::int64_t rescale(std::int64_t value, AVRational from, AVRational to, AVRounding rounding) {
  const std::int64_t result = av_rescale_q_rnd(value, from, to, rounding);
  if (result != std::numeric_limits<std::int64_t>::min()) return result;
  return value < 0 ? kFirst : kLast;
}

std::int64_t sumWithin(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  if (!__builtin_add_overflow(a, b, &sum)) return sum;
  return a < 0 ? kFirst : kLast;
}

}  // namespace

FrameTimeline FrameTimeline::byTicks(AVRational timeBase, std::int64_t zero) {
  FrameTimeline timeline;
  timeline.unit_ = timeBase;
  timeline.zero_ = zero;
  return timeline;
}

FrameTimeline FrameTimeline::byCount(AVRational rate, const MediaTime& first) {
  FrameTimeline timeline;
  timeline.counted_ = true;
  timeline.unit_ = av_inv_q(rate);
  timeline.first_ = first;
  return timeline;
}

std::optional<std::int64_t> FrameTimeline::placeOf(const MediaTime& time) const {
  if (time.isValid() && (time.flags & MediaTime::kIndefinite) == 0) {
    if ((time.flags & MediaTime::kPositiveInfinity) != 0) return kLast;
    if ((time.flags & MediaTime::kNegativeInfinity) != 0) return kFirst;
  }
  if (!time.isNumeric()) return std::nullopt;
  const MediaTime fromFirst = counted_ ? time - first_ : time;
  if (!fromFirst.isNumeric()) return fromFirst.value < 0 ? kFirst : kLast;
  const bool isFine = !counted_ && av_cmp_q(unit_, {1, 1000}) <= 0;
  const std::int64_t place =
      rescale(fromFirst.value, {1, fromFirst.scale}, unit_, isFine ? AV_ROUND_NEAR_INF : AV_ROUND_DOWN);
  return sumWithin(place, zero_);
}

MediaTime FrameTimeline::timeOf(std::int64_t place) const {
  const MediaTime time = timeOfTicks(sumWithin(place, -zero_), unit_);
  return counted_ ? first_ + time : time;
}

MediaTime timeOfTicks(std::int64_t ticks, AVRational timeBase) {
  if (timeBase.num <= 0 || timeBase.den <= 0) return MediaTime::invalid();
  std::int64_t value = 0;
  if (__builtin_mul_overflow(ticks, std::int64_t{timeBase.num}, &value)) {
    return ticks > 0 ? MediaTime::positiveInfinity() : MediaTime::negativeInfinity();
  }
  return MediaTime::make(value, timeBase.den);
}

std::int64_t ticksNearest(const MediaTime& time, AVRational timeBase) {
  if (!time.isNumeric()) return 0;
  return rescale(time.value, {1, time.scale}, timeBase, AV_ROUND_NEAR_INF);
}

AVRational rateFromFloat(double framesPerSecond) {
  if (!(framesPerSecond > 0) || framesPerSecond > 100000) return {0, 1};
  const double whole = std::round(framesPerSecond);
  if (whole >= 1 && std::abs(framesPerSecond - whole) < 1e-4) return {static_cast<int>(whole), 1};
  const double ntsc = std::round(framesPerSecond * 1.001);
  if (ntsc >= 1 && std::abs(framesPerSecond * 1.001 - ntsc) < 1e-4) return {static_cast<int>(ntsc) * 1000, 1001};
  return av_d2q(framesPerSecond, 100000);
}

}  // namespace vistrelle::platform
