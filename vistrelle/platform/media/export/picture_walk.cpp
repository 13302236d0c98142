#include "vistrelle/platform/media/export/picture_walk.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/frame_rules.h"

namespace vistrelle::platform {
namespace {

// What tables round and encoders leave out; a movie that lacks more is a torn file.
const MediaTime kMissingAtEnd = MediaTime::make(1, 4);

constexpr std::int64_t kFinestScale = 10000000;
constexpr std::int32_t kFallbackScale = 6000000;

FrameOptions linearOptions() {
  FrameOptions options;
  options.skipsNonReference = false;
  return options;
}

}  // namespace

PictureDecoder::PictureDecoder(const std::shared_ptr<const MovieTrack>& track)
    : track_(track), run_(track->source(), track->facts().index, linearOptions(), RunRules{}, plan_, statistics_) {}

std::unique_ptr<PictureDecoder> PictureDecoder::open(const std::shared_ptr<const MovieTrack>& track,
                                                     std::string* error) {
  std::unique_ptr<PictureDecoder> decoder(new PictureDecoder(track));
  return decoder->prepare(error) ? std::move(decoder) : nullptr;
}

bool PictureDecoder::prepare(std::string* error) {
  FramePackets& packets = run_.packets();
  if (!packets.restart()) {
    *error = packets.failure();
    return false;
  }
  MovieSource& source = *track_->source();
  const int stream = track_->facts().index;
  const TimesKind times = surveyTimes(source, stream, packets);
  run_.rules() = runRulesFor(source, stream, packets, times);
  run_.setSkipping(false);
  // All frames are wanted, so that waiting for their order costs nothing.
  run_.usePatience();
  shape_ = frameShapeOf(track_->facts(), *packets.stream());
  const std::span<const std::uint8_t> matrix = streamSideData(*packets.stream(), AV_PKT_DATA_DISPLAYMATRIX);
  matrix_.assign(matrix.begin(), matrix.end());
  const AVRational timeBase = packets.stream()->time_base;
  const FrameTimeline byTicks = FrameTimeline::byTicks(timeBase, ticksNearest(source.zero(), timeBase));
  if (!run_.rules().isCounted) {
    timeline_ = byTicks;
    return true;
  }
  if (run_.rules().rate.num <= 0) {
    *error = "the movie states neither times nor a frame rate";
    return false;
  }
  MediaTime first = MediaTime::zero();
  if (times == TimesKind::contradictory) {
    if (!run_.landAtStart(0, error)) return false;
    const std::optional<std::shared_ptr<const Frame>> frame = pull(error);
    if (!frame) return false;
    if (*frame && (*frame)->picture->pts != AV_NOPTS_VALUE) first = byTicks.timeOf((*frame)->picture->pts);
  }
  timeline_ = FrameTimeline::byCount(run_.rules().rate, first);
  return true;
}

std::optional<std::shared_ptr<const Frame>> PictureDecoder::pull(std::string* error) {
  FrameRun::Answer answer = run_.following();
  if (answer.kind == FrameRun::Answer::Kind::found) return std::move(answer.frame);
  *error = std::move(answer.error);
  return std::nullopt;
}

/// Reads up to the frame that is on screen at `place`; `again` when decoding began too late to know it.
bool PictureDecoder::findFirst(std::int64_t place, bool fromStart, bool* again, std::string* error) {
  const std::int64_t target = timeline_->placeOf(end_).value_or(place);
  if (!(fromStart ? run_.landAtStart(target, error) : run_.land(place, target, error))) return false;
  first_.reset();
  next_.reset();
  *again = !run_.landing().fromStart;
  for (;;) {
    const std::optional<std::shared_ptr<const Frame>> frame = pull(error);
    if (!frame) return false;
    if (!*frame) break;
    damage_ = first_ ? first_->damage : (*frame)->damage;
    if (first_ && (*frame)->place > place) {
      next_ = *frame;
      break;
    }
    first_ = *frame;
    if (first_->place > place) break;
  }
  if (!first_) {
    *error = "no frame could be decoded";
    return false;
  }
  *again = *again && first_->place > place;
  return true;
}

bool PictureDecoder::begin(const MediaTime& start, const MediaTime& end, std::string* error) {
  end_ = end;
  lastEnd_ = start;
  leansOnDamage_ = lacksFrames_ = false;
  const std::optional<std::int64_t> place = timeline_->placeOf(start);
  if (!place) {
    *error = "the time is not a number";
    return false;
  }
  bool again = false;
  if (findFirst(*place, run_.rules().isCounted, &again, error) && !again) return true;
  if (run_.landing().fromStart) return false;
  error->clear();
  return findFirst(*place, true, &again, error);
}

std::optional<PictureDecoder::Picture> PictureDecoder::next(std::string* error) {
  std::shared_ptr<const Frame> frame = std::move(first_);
  if (!frame) frame = std::move(next_);
  if (!frame) {
    std::optional<std::shared_ptr<const Frame>> pulled = pull(error);
    if (!pulled) {
      // What comes after the end may be as it likes.
      if (lastEnd_ < end_) return std::nullopt;
      error->clear();
      return Picture{};
    }
    frame = std::move(*pulled);
  }
  if (!frame) {
    if (end_ - lastEnd_ <= kMissingAtEnd) return Picture{};
    *error = "the movie's pictures end before their time";
    return std::nullopt;
  }
  const MediaTime time = timeline_->timeOf(frame->place);
  Picture picture = assess(*frame, time);
  const std::int64_t ticks = frameDuration(*frame->picture);
  lastEnd_ = time;
  if (ticks > 0) {
    const AVRational timeBase = run_.packets().stream()->time_base;
    lastEnd_ = time + MediaTime::make(ticks * timeBase.num, timeBase.den);
  }
  return picture;
}

/// Damage stays in the pictures up to the next key frame. Refused packets are counted when they are handed over, which
/// may be some frames ahead of where they are missing.
PictureDecoder::Picture PictureDecoder::assess(const Frame& frame, const MediaTime& time) {
  FrameDamage before = std::exchange(damage_, frame.damage);
  if (damage_.refusedPackets < before.refusedPackets || damage_.damagedFrames < before.damagedFrames) before = {};
  const bool isRefused = damage_.refusedPackets > before.refusedPackets;
  const bool isConcealed = damage_.damagedFrames > before.damagedFrames;
  const bool isOwn = frame.picture->decode_error_flags != 0 || (frame.picture->flags & AV_FRAME_FLAG_CORRUPT) != 0;
  leansOnDamage_ = isOwn || (!isKeyFrame(*frame.picture) && (leansOnDamage_ || isRefused || isConcealed));
  lacksFrames_ |= isRefused;
  const bool followsLoss = lacksFrames_ && lastEnd_ < time;
  if (followsLoss) lacksFrames_ = false;
  return {frame.picture, time, leansOnDamage_, followsLoss};
}

PictureDecoder* PictureWalk::decoderFor(const PlayedPiece& piece, std::string* error) {
  if (decoded_ != piece.track.get()) {
    decoder_ = PictureDecoder::open(piece.track, error);
    decoded_ = decoder_ ? piece.track.get() : nullptr;
  }
  return decoder_.get();
}

std::optional<PictureWalk::Shown> PictureWalk::next(std::string* error) {
  if (current_ == pieces_.size()) return Shown{nullptr, position_, position_};
  const PlayedPiece& piece = pieces_[current_];
  if (!begun_) {
    if (!position_.isValid()) position_ = piece.target.start;
    if (position_ < piece.target.start) {
      const MediaTime from = std::exchange(position_, piece.target.start);
      return Shown{nullptr, from, position_};
    }
    PictureDecoder* decoder = decoderFor(piece, error);
    if (decoder == nullptr || !decoder->begin(piece.source.start, piece.source.end(), error)) return std::nullopt;
    std::optional<PictureDecoder::Picture> first = decoder->next(error);
    if (!first) return std::nullopt;
    held_ = std::move(*first);
    begun_ = true;
  }
  std::optional<PictureDecoder::Picture> following = PictureDecoder::Picture{};
  if (!piece.isStill()) following = decoder_->next(error);
  if (!following) return std::nullopt;
  Shown shown{held_.frame, position_, piece.target.end(), decoder_.get(), held_.isDamaged || following->followsLoss};
  if (following->frame && following->time < piece.source.end()) {
    shown.end = piece.targetOf(following->time);
    held_ = std::move(*following);
  } else {
    ++current_;
    begun_ = false;
  }
  position_ = shown.end;
  return shown;
}

std::int32_t PictureWalk::timeScale(std::string* error) {
  std::int64_t scale = 1;
  const auto include = [&scale](const MediaTime& time) {
    if (!time.isNumeric() || scale > kFinestScale) return;
    const std::int64_t whole = std::int64_t{time.scale} / std::gcd(time.value, std::int64_t{time.scale});
    scale = std::lcm(scale, whole);
  };
  for (const PlayedPiece& piece : pieces_) {
    const PictureDecoder* decoder = decoderFor(piece, error);
    if (decoder == nullptr) return 0;
    include(piece.target.start);
    include(piece.target.end());
    const MediaTime place = piece.targetOf(decoder->zero());
    include(place);
    include(piece.targetOf(decoder->zero() + decoder->unit()));
  }
  // Tables count frames more easily in units that are not whole frames.
  while (scale < 600) scale *= 2;
  return scale <= kFinestScale ? static_cast<std::int32_t>(scale) : kFallbackScale;
}

}  // namespace vistrelle::platform
