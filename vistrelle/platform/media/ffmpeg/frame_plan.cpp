#include "vistrelle/platform/media/ffmpeg/frame_plan.h"

#include <algorithm>
#include <limits>

namespace vistrelle::platform {

void FramePlan::announce(std::span<const std::int64_t> places) {
  places_.clear();
  for (const std::int64_t place : places) ++places_[place].uses;
}

std::optional<std::int64_t> FramePlan::answerOf(std::int64_t place) const {
  const auto found = places_.find(place);
  return found == places_.end() ? std::nullopt : found->second.answer;
}

void FramePlan::setAnswer(std::int64_t place, std::int64_t frame) {
  const auto found = places_.find(place);
  if (found != places_.end()) found->second.answer = frame;
}

void FramePlan::forgetAnswers(std::int64_t frame) {
  for (auto& [place, entry] : places_) {
    if (entry.answer == frame) entry.answer.reset();
  }
}

std::optional<std::int64_t> FramePlan::consume(std::int64_t place) {
  const auto found = places_.find(place);
  if (found == places_.end() || --found->second.uses > 0) return std::nullopt;
  const std::optional<std::int64_t> frame = found->second.answer;
  // Places with the same answer lie side by side: only the neighbours can still want the frame.
  const auto next = places_.erase(found);
  if (!frame) return std::nullopt;
  if (next != places_.end() && next->second.answer == frame) return std::nullopt;
  if (next != places_.begin() && std::prev(next)->second.answer == frame) return std::nullopt;
  return frame;
}

std::optional<std::int64_t> FramePlan::nextOpen(std::int64_t from) const {
  for (auto entry = places_.lower_bound(from); entry != places_.end(); ++entry) {
    if (!entry->second.answer) return entry->first;
  }
  return std::nullopt;
}

std::optional<std::int64_t> FramePlan::nextOpenAfter(std::int64_t place) const {
  if (place == std::numeric_limits<std::int64_t>::max()) return std::nullopt;
  return nextOpen(place + 1);
}

std::size_t FramePlan::openCount() const {
  return static_cast<std::size_t>(
      std::count_if(places_.begin(), places_.end(), [](const auto& entry) { return !entry.second.answer; }));
}

}  // namespace vistrelle::platform
