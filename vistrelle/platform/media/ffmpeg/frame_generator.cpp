#include "vistrelle/platform/media/ffmpeg/frame_generator.h"

#include <optional>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/ffmpeg/frame_finder.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/frame_lanes.h"
#include "vistrelle/platform/media/ffmpeg/frame_rules.h"
#include "vistrelle/platform/media/ffmpeg/frame_survey.h"

namespace vistrelle::platform {

namespace {

class Generator : public FrameGenerator {
 public:
  Generator(std::shared_ptr<MovieSource> source, int streamIndex, const FrameOptions& options)
      : source_(std::move(source)), streamIndex_(streamIndex), options_(options) {}

  void setAppliesPreferredTrackTransform(bool applies) override { appliesTransform_ = applies; }
  void setApertureMode(ApertureMode mode) override { mode_ = mode; }
  FrameStatistics statistics() const override {
    FrameStatistics sum = statisticsOfLanes_;
    if (finder_) sum += finder_->statistics();
    if (lanes_) sum += lanes_->statistics();
    return sum;
  }

  void announce(std::span<const MediaTime> times) override {
    endLanes();
    announced_.assign(times.begin(), times.end());
    if (timeline_) planAnnounced();
  }

  FrameResult copyFrame(const MediaTime& time) override {
    std::string error;
    if (!prepare(&error)) return failure(std::move(error));
    const std::optional<std::int64_t> place = placeOf(time);
    if (!place) return failure("the time is not a number");
    FrameRun::Answer answer = answerFor(*place);
    if (answer.kind != FrameRun::Answer::Kind::found) return failure(std::move(answer.error));
    return delivered(*answer.frame, time);
  }

 private:
  static FrameResult failure(std::string error) { return {nullptr, MediaTime::invalid(), std::move(error)}; }

  bool prepare(std::string* error) {
    if (timeline_) return true;
    const StreamFacts& facts = source_->streams()[static_cast<std::size_t>(streamIndex_)];
    if (facts.isProtected) {
      *error = "the movie's pictures are encrypted";
      return false;
    }
    // Nothing is read either: the pictures may be refused because they lie in another file.
    if (!facts.isDecodable) {
      *error = "the movie's pictures cannot be decoded";
      return false;
    }
    finder_.emplace(source_, streamIndex_, options_);
    FramePackets& packets = finder_->run().packets();
    if (!packets.restart()) {
      *error = packets.failure();
      return false;
    }
    const TimesKind times = surveyTimes(*source_, streamIndex_, packets);
    finder_->run().rules() = runRulesFor(*source_, streamIndex_, packets, times);
    shape_ = frameShapeOf(facts, *packets.stream());
    if (lacksBaseLayer(*packets.stream())) {
      log("movie colours       :-/ Dolby Vision profile 5 has no base layer: its colours cannot be shown as meant");
    }
    if (!makeTimeline(times, error)) return false;
    planAnnounced();
    return true;
  }

  bool makeTimeline(TimesKind times, std::string* error) {
    RunRules& rules = finder_->run().rules();
    const AVRational timeBase = finder_->run().packets().stream()->time_base;
    const std::int64_t zero = ticksNearest(source_->zero(), timeBase);
    if (!rules.isCounted) {
      timeline_ = FrameTimeline::byTicks(timeBase, zero);
      return true;
    }
    if (rules.rate.num <= 0) {
      *error = "the movie states neither times nor a frame rate";
      return false;
    }
    MediaTime first = MediaTime::zero();
    if (times != TimesKind::notStated) {
      const FrameRun::Answer answer = finder_->search(0);
      if (answer.kind != FrameRun::Answer::Kind::found) {
        *error = answer.error;
        return false;
      }
      if (answer.frame->picture->pts != AV_NOPTS_VALUE) {
        const std::int64_t firstTick = answer.frame->picture->pts;
        first = FrameTimeline::byTicks(timeBase, zero).timeOf(firstTick);
        if (times == TimesKind::incomplete) rules.firstTick = firstTick;
      }
    }
    timeline_ = FrameTimeline::byCount(rules.rate, first);
    return true;
  }

  void planAnnounced() {
    std::vector<std::int64_t> places;
    for (const MediaTime& time : announced_) {
      if (const auto place = placeOf(time)) places.push_back(*place);
    }
    lanes_ = FrameLanes::begin(source_, streamIndex_, options_, finder_->run(), places);
    finder_->announce(std::span(places).subspan(lanes_ ? lanes_->taken() : 0));
  }

  FrameRun::Answer answerFor(std::int64_t place) {
    if (lanes_) {
      if (auto answer = lanes_->take(place)) return std::move(*answer);
    }
    return finder_->find(place);
  }

  void endLanes() {
    if (lanes_) statisticsOfLanes_ += lanes_->statistics();
    lanes_.reset();
  }

  const std::optional<FrameEdits>& edits() const {
    return source_->streams()[static_cast<std::size_t>(streamIndex_)].edits;
  }
  std::optional<std::int64_t> placeOf(const MediaTime& time) const {
    return timeline_->placeOf(edits() ? edits()->mediaAt(time) : time);
  }

  FrameResult delivered(const Frame& frame, const MediaTime& asked) {
    const MediaTime own = timeline_->timeOf(frame.place);
    const MediaTime time = edits() ? edits()->shownSince(own, asked) : own;
    if (frame.damage.any()) {
      log("frame at {:.3f}      :-/ decoded with errors (packets lost={}, frames damaged={} since the last good key)",
          time.seconds(), frame.damage.refusedPackets, frame.damage.damagedFrames);
    }
    PlanarImage image = planarImage(frame.picture, shape_, mode_, appliesTransform_);
    return {std::make_shared<const Picture>(std::move(image)), time, {}};
  }

  std::shared_ptr<MovieSource> source_;
  int streamIndex_;
  FrameOptions options_;
  bool appliesTransform_ = false;
  ApertureMode mode_ = ApertureMode::cleanAperture;
  std::vector<MediaTime> announced_;
  FrameShape shape_;
  std::optional<FrameTimeline> timeline_;
  std::optional<FrameFinder> finder_;
  std::unique_ptr<FrameLanes> lanes_;
  FrameStatistics statisticsOfLanes_;  // of those that have ended
};

}  // namespace

std::unique_ptr<FrameGenerator> makeFrameGenerator(std::shared_ptr<MovieSource> source, int streamIndex,
                                                   const FrameOptions& options) {
  return std::make_unique<Generator>(std::move(source), streamIndex, options);
}

}  // namespace vistrelle::platform
