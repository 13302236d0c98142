#include "vistrelle/platform/media/ffmpeg/frame_generator.h"

#include <cstring>
#include <optional>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/frame_geometry.h"
#include "vistrelle/platform/media/ffmpeg/frame_search.h"
#include "vistrelle/platform/media/ffmpeg/frame_survey.h"

namespace vistrelle::platform {

namespace {

AVRational frameRateOf(const StreamFacts& facts, FramePackets& packets) {
  AVStream* stream = packets.stream();
  // The exact fraction, where the stream has the one that the facts were rounded from.
  for (const AVRational rate : {stream->avg_frame_rate, stream->r_frame_rate}) {
    if (rate.num > 0 && rate.den > 0 && static_cast<float>(av_q2d(rate)) == facts.frameRate) return rate;
  }
  const AVRational meant = rateFromFloat(facts.frameRate);
  return meant.num > 0 ? meant : av_guess_frame_rate(packets.demuxer()->context(), stream, nullptr);
}

FrameShape shapeOf(const StreamFacts& facts, const AVStream& stream) {
  FrameShape shape;
  shape.cleanAperture = facts.cleanAperture;
  const AVCodecParameters& parameters = *facts.parameters;
  if (facts.pixelAspect) {
    av_reduce(&shape.pixelAspect.num, &shape.pixelAspect.den, facts.pixelAspect->horizontal,
              facts.pixelAspect->vertical, 1 << 24);
  } else if (stream.sample_aspect_ratio.num > 0) {
    shape.pixelAspect = stream.sample_aspect_ratio;
  }
  const std::span<const std::uint8_t> matrix = streamSideData(stream, AV_PKT_DATA_DISPLAYMATRIX);
  std::array<std::int32_t, 9> values{};
  if (matrix.size() >= sizeof values) {
    std::memcpy(values.data(), matrix.data(), sizeof values);
    shape.orientation = orientationOfMatrix(values);
  }
  shape.colour.primaries = static_cast<std::uint8_t>(parameters.color_primaries);
  shape.colour.transfer = static_cast<std::uint8_t>(parameters.color_trc);
  shape.colour.matrix = static_cast<std::uint8_t>(parameters.color_space);
  shape.colour.range = static_cast<std::uint8_t>(parameters.color_range);
  return shape;
}

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
    std::string error;
    if (!prepare(&error)) return failure(std::move(error));
    const std::optional<std::int64_t> place = timeline_->placeOf(time);
    if (!place) return failure("the time is not a number");
    const std::shared_ptr<const Frame> frame = frameFor(*place, &error);
    if (const auto unneeded = plan_.consume(*place)) store_.drop(*unneeded);
    if (!frame) return failure(std::move(error));
    return delivered(*frame);
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
    run_.emplace(source_, streamIndex_, options_, RunRules{}, plan_, statistics_);
    FramePackets& packets = run_->packets();
    if (!packets.restart()) {
      *error = packets.failure();
      return false;
    }
    RunRules& rules = run_->rules();
    const TimesKind times = surveyTimes(*source_, streamIndex_, packets);
    rules.isCounted = times != TimesKind::stated;
    rules.isIntraOnly = isIntraOnly(facts.parameters->codec_id);
    rules.decodingTimesHold = source_->isMovFamily();
    rules.rate = frameRateOf(facts, packets);
    rules.hasGaps = times == TimesKind::notStated && rules.rate.num > 0 &&
                    av_cmp_q(packets.stream()->time_base, av_inv_q(rules.rate)) == 0;
    rules.landing = landingRules(*source_, streamIndex_, packets);
    shape_ = shapeOf(facts, *packets.stream());
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
    if (times == TimesKind::contradictory) {
      const FrameRun::Answer answer = search_->find(0);
      if (answer.kind != FrameRun::Answer::Kind::found) {
        *error = answer.error;
        return false;
      }
      if (answer.frame->picture->pts != AV_NOPTS_VALUE) {
        first = FrameTimeline::byTicks(timeBase, zero).timeOf(answer.frame->picture->pts);
      }
    }
    timeline_ = FrameTimeline::byCount(rules.rate, first);
    return true;
  }

  void planAnnounced() {
    std::vector<std::int64_t> places;
    for (const MediaTime& time : announced_) {
      if (const auto place = timeline_->placeOf(time)) places.push_back(*place);
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

  FrameResult delivered(const Frame& frame) {
    const MediaTime time = timeline_->timeOf(frame.place);
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
