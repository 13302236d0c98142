#include "vistrelle/platform/media/ffmpeg/frame_generator.h"

#include <optional>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/frame_rules.h"
#include "vistrelle/platform/media/ffmpeg/frame_search.h"
#include "vistrelle/platform/media/ffmpeg/frame_survey.h"

namespace vistrelle::platform {

namespace {

class Generator : public FrameGenerator {
 public:
  Generator(std::shared_ptr<MovieSource> source, int streamIndex, const FrameOptions& options)
      : source_(std::move(source)),
        streamIndex_(streamIndex),
        options_(options),
        store_(options.keptBytes, statistics_) {}

  void setAppliesPreferredTrackTransform(bool applies) override { appliesTransform_ = applies; }
  void setApertureMode(ApertureMode mode) override { mode_ = mode; }
  FrameStatistics statistics() const override { return statistics_; }

  void announce(std::span<const MediaTime> times) override {
    store_.clear();
    announced_.assign(times.begin(), times.end());
    if (timeline_) planAnnounced();
  }

  FrameResult copyFrame(const MediaTime& time) override {
    const std::int64_t formerFailures = source_->bytes()->readFailures().count;
    FrameResult result = makeFrame(time);
    const ReadFailures failures = source_->bytes()->readFailures();
    if (failures.count == formerFailures) return result;
    forgetMovie();
    return failure(avErrorText(AVERROR(failures.cause)));
  }

 private:
  static FrameResult failure(std::string error) { return {nullptr, MediaTime::invalid(), std::move(error)}; }

  /// After a read that failed all that was learned since may be wrong; the next picture begins anew.
  void forgetMovie() {
    timeline_.reset();
    search_.reset();
    run_.reset();
    store_.clear();
  }

  FrameResult makeFrame(const MediaTime& time) {
    std::string error;
    if (!prepare(&error)) return failure(std::move(error));
    const std::optional<std::int64_t> place = placeOf(time);
    if (!place) return failure("the time is not a number");
    const std::shared_ptr<const Frame> frame = frameFor(*place, &error);
    if (const auto unneeded = plan_.consume(*place)) store_.drop(*unneeded);
    if (!frame) return failure(std::move(error));
    return delivered(*frame, time);
  }

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
    run_.emplace(source_, streamIndex_, options_, RunRules{}, plan_, statistics_);
    FramePackets& packets = run_->packets();
    if (!packets.restart()) {
      *error = packets.failure();
      return false;
    }
    const TimesKind times = surveyTimes(*source_, streamIndex_, packets);
    run_->rules() = runRulesFor(*source_, streamIndex_, packets, times);
    shape_ = frameShapeOf(facts, *packets.stream());
    if (lacksBaseLayer(*packets.stream())) {
      log("movie colours       :-/ Dolby Vision profile 5 has no base layer: its colours cannot be shown as meant");
    }
    search_.emplace(*run_, plan_, store_, options_.skipsNonReference);
    if (!makeTimeline(times, error)) return false;
    planAnnounced();
    return true;
  }

  bool makeTimeline(TimesKind times, std::string* error) {
    const RunRules& rules = run_->rules();
    const AVRational timeBase = run_->packets().stream()->time_base;
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
      const FrameRun::Answer answer = search_->find(0);
      if (answer.kind != FrameRun::Answer::Kind::found) {
        *error = answer.error;
        return false;
      }
      if (answer.frame->picture->pts != AV_NOPTS_VALUE) {
        const std::int64_t firstTick = answer.frame->picture->pts;
        first = FrameTimeline::byTicks(timeBase, zero).timeOf(firstTick);
        if (times == TimesKind::incomplete) run_->rules().firstTick = firstTick;
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
    plan_.announce(places);
  }

  std::shared_ptr<const Frame> frameFor(std::int64_t place, std::string* error) {
    if (const auto known = plan_.answerOf(place)) {
      if (auto frame = store_.find(*known)) return frame;
      plan_.forgetAnswers(*known);
    }
    FrameRun::Answer answer = search_->find(place);
    *error = std::move(answer.error);
    return answer.kind == FrameRun::Answer::Kind::found ? answer.frame : nullptr;
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
  FrameStatistics statistics_;
  FramePlan plan_;
  FrameStore store_;
  std::vector<MediaTime> announced_;
  FrameShape shape_;
  std::optional<FrameTimeline> timeline_;
  std::optional<FrameRun> run_;
  std::optional<FrameSearch> search_;
};

}  // namespace

std::unique_ptr<FrameGenerator> makeFrameGenerator(std::shared_ptr<MovieSource> source, int streamIndex,
                                                   const FrameOptions& options) {
  return std::make_unique<Generator>(std::move(source), streamIndex, options);
}

}  // namespace vistrelle::platform
