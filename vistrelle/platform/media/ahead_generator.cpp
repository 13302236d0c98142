#include "vistrelle/platform/media/ahead_generator.h"

#include <future>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "vistrelle/platform/imaging/processors.h"

namespace vistrelle::platform {
namespace {

class AheadGenerator : public ImageGenerator {
 public:
  explicit AheadGenerator(std::unique_ptr<ImageGenerator> generator) : generator_(std::move(generator)) {}
  ~AheadGenerator() override { forget(); }
  AheadGenerator(const AheadGenerator&) = delete;
  AheadGenerator& operator=(const AheadGenerator&) = delete;

  // A picture under way would come out as it was wanted before.
  void setAppliesPreferredTrackTransform(bool applies) override {
    forget();
    generator_->setAppliesPreferredTrackTransform(applies);
  }
  void setApertureMode(ApertureMode mode) override {
    forget();
    generator_->setApertureMode(mode);
  }

  void announce(std::span<const MediaTime> times) override {
    forget();
    generator_->announce(times);
    times_.assign(times.begin(), times.end());
    next_ = 0;
    begin();
  }

  FrameResult copyFrame(const MediaTime& time) override {
    if (underWay_ && isSame(underWay_->time, time)) {
      // Taken out first: getting it throws when memory ran out, and a result can be waited for only once.
      FrameResult result = std::exchange(underWay_, std::nullopt)->result.get();
      begin();
      return result;
    }
    // Asked for out of turn: the one under way stays for its own turn.
    if (underWay_) underWay_->result.wait();
    return generator_->copyFrame(time);
  }

 private:
  struct UnderWay {
    MediaTime time;
    std::future<FrameResult> result;
  };

  static bool isSame(const MediaTime& a, const MediaTime& b) {
    return a.value == b.value && a.scale == b.scale && a.flags == b.flags && a.epoch == b.epoch;
  }

  void begin() {
    if (next_ >= times_.size()) return;
    const MediaTime time = times_[next_];
    try {
      underWay_ = {time, std::async(std::launch::async, [this, time] { return generator_->copyFrame(time); })};
      ++next_;
    } catch (const std::system_error&) {
      times_.clear();  // no thread to be had: pictures come when they are asked for
    }
  }

  void forget() {
    if (underWay_) underWay_->result.wait();
    underWay_.reset();
    times_.clear();
  }

  std::unique_ptr<ImageGenerator> generator_;
  std::vector<MediaTime> times_;
  std::size_t next_ = 0;
  std::optional<UnderWay> underWay_;
};

}  // namespace

std::unique_ptr<ImageGenerator> workingAhead(std::unique_ptr<ImageGenerator> generator) {
  // With one processor there is nobody to work ahead.
  if (!generator || processorShareLimit() == 1) return generator;
  return std::make_unique<AheadGenerator>(std::move(generator));
}

}  // namespace vistrelle::platform
