#include "vistrelle/platform/media/export/packet_times.h"

extern "C" {
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <numeric>
#include <utility>

namespace vistrelle::platform {

PictureTimes::PictureTimes(const AVCodecParameters& parameters, bool numbersFrames)
    : numbersFrames_(numbersFrames), parser_(av_parser_init(parameters.codec_id)) {
  context_.reset(avcodec_alloc_context3(nullptr));
  if (context_ && avcodec_parameters_to_context(context_.get(), &parameters) < 0) context_.reset();
  if (parser_) parser_->flags |= PARSER_FLAG_COMPLETE_FRAMES;
  hasOrder_ = parameters.codec_id == AV_CODEC_ID_H264 || parameters.codec_id == AV_CODEC_ID_HEVC;
}

void PictureTimes::add(const AVPacket& packet) {
  Entry entry{packet.pts, packet.dts, packet.duration};
  if (parser_ && context_) {
    std::uint8_t* output = nullptr;
    int size = 0;
    av_parser_parse2(parser_.get(), context_.get(), &output, &size, packet.data, packet.size, packet.pts, packet.dts,
                     packet.pos);
    entry.order = parser_->output_picture_number;
    entry.isBetween = parser_->pict_type == AV_PICTURE_TYPE_B;
    // The count begins anew with a picture that everything before is shown before.
    entry.startsOver = (packet.flags & AV_PKT_FLAG_KEY) != 0 && parser_->output_picture_number == 0;
  }
  entries_.push_back(entry);
}

/// The places of the pictures in decoding order, sorted by when they are shown.
std::vector<std::size_t> PictureTimes::shownOrder() const {
  std::vector<std::size_t> order;
  if (hasOrder_) {
    order.resize(entries_.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::vector<int> sequence(entries_.size());
    for (std::size_t i = 1; i < entries_.size(); ++i) sequence[i] = sequence[i - 1] + (entries_[i].startsOver ? 1 : 0);
    std::ranges::stable_sort(order, [&](std::size_t a, std::size_t b) {
      return std::pair(sequence[a], entries_[a].order) < std::pair(sequence[b], entries_[b].order);
    });
    return order;
  }
  std::optional<std::size_t> held;
  for (std::size_t i = 0; i < entries_.size(); ++i) {
    if (entries_[i].isBetween) {
      order.push_back(i);
      continue;
    }
    if (held) order.push_back(*held);
    held = i;
  }
  if (held) order.push_back(*held);
  return order;
}

bool PictureTimes::apply(std::vector<mov::Sample>& samples, std::int64_t factor) const {
  if (samples.size() != entries_.size() || entries_.empty()) return entries_.empty();
  const auto count = entries_.size();
  std::vector<std::int64_t> shown(count);
  const bool isStated = std::ranges::none_of(entries_, [](const Entry& entry) { return entry.pts == AV_NOPTS_VALUE; });
  if (isStated) {
    for (std::size_t i = 0; i < count; ++i) shown[i] = entries_[i].pts;
  } else {
    if (std::ranges::any_of(entries_, [](const Entry& entry) { return entry.dts == AV_NOPTS_VALUE; })) return false;
    const std::vector<std::size_t> order = shownOrder();
    for (std::size_t i = 0; i < count; ++i) shown[order[i]] = entries_[i].dts;
    // Decoding times run ahead of presentation times where pictures are reordered; one stated pair tells by how much.
    const auto stated = std::ranges::find_if(
        entries_, [this](const Entry& entry) { return !numbersFrames_ && entry.pts != AV_NOPTS_VALUE; });
    if (stated != entries_.end()) {
      const std::int64_t ahead = stated->pts - shown[static_cast<std::size_t>(stated - entries_.begin())];
      for (std::int64_t& time : shown) time += ahead;
    }
  }
  // Decoding times of our own: the presentation times in order. They rise, and are those of a stream without delay.
  std::vector<std::int64_t> times = shown;
  std::ranges::sort(times);
  const std::int64_t lastLength = entries_.back().duration > 0 ? entries_.back().duration
                                  : count > 1                  ? times[count - 1] - times[count - 2]
                                                               : 1;
  for (std::size_t i = 0; i < count; ++i) {
    samples[i].decodeTime = times[i] * factor;
    const std::int64_t offset = (shown[i] - times[i]) * factor;
    if (!std::in_range<std::int32_t>(offset)) return false;
    samples[i].compositionOffset = static_cast<std::int32_t>(offset);
    const std::size_t place = static_cast<std::size_t>(std::ranges::lower_bound(times, shown[i]) - times.begin());
    const std::int64_t length = place + 1 < count ? times[place + 1] - times[place] : lastLength;
    samples[i].duration = static_cast<std::uint32_t>(std::clamp<std::int64_t>(length * factor, 1, 0x7fffffff));
  }
  return true;
}

std::int64_t SoundTimes::next(const AVPacket& packet, AVRational timeBase, std::int64_t length) {
  const std::int64_t stated = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  std::int64_t time = expected_.value_or(0);
  if (stated != AV_NOPTS_VALUE) {
    const std::int64_t said = av_rescale_q(stated, timeBase, {1, rate_});
    const std::int64_t tolerance = std::max<std::int64_t>(length / 2, rate_ / 250);
    if (!expected_ || said > *expected_ + tolerance) time = said;
  }
  expected_ = time + length;
  return time;
}

}  // namespace vistrelle::platform
