#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

namespace vistrelle::platform {

/// Which places (see FrameTimeline) are still going to be asked for, and which of them have been answered already.
class FramePlan {
 public:
  /// Replaces what was announced before; repeats are counted.
  void announce(std::span<const std::int64_t> places);
  void clear() { places_.clear(); }

  /// The frame that answers `place`, when it has been worked out and waits for its turn.
  std::optional<std::int64_t> answerOf(std::int64_t place) const;
  void setAnswer(std::int64_t place, std::int64_t frame);
  /// The answer was lost (its picture could not be kept).
  void forgetAnswers(std::int64_t frame);
  /// `place` has been asked for and answered once. Gives the frame that nobody waits for any more because of it.
  std::optional<std::int64_t> consume(std::int64_t place);

  /// Whether `place` was announced and has not been asked for as often as that yet.
  bool contains(std::int64_t place) const { return places_.contains(place); }
  /// The smallest announced place at or after `from` that has no answer yet.
  std::optional<std::int64_t> nextOpen(std::int64_t from) const;
  /// The smallest announced place after `place` that has no answer yet.
  std::optional<std::int64_t> nextOpenAfter(std::int64_t place) const;
  std::size_t openCount() const;

 private:
  struct Entry {
    std::size_t uses = 0;
    std::optional<std::int64_t> answer;
  };
  std::map<std::int64_t, Entry> places_;
};

}  // namespace vistrelle::platform
