#include "vistrelle/platform/media/ffmpeg/frame_run.h"

extern "C" {
#include <libavutil/common.h>
}

#include <algorithm>
#include <limits>
#include <utility>

#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/frame_random_access.h"

namespace vistrelle::platform {

namespace {

// Packets looked at beyond the one that is decoded: enough to see which frames follow each other on screen.
constexpr std::size_t kWindow = 16;
constexpr std::int64_t kWindowBytes = std::int64_t{8} << 20;
constexpr std::int64_t kMostReadAheadBytes = std::int64_t{64} << 20;
// A second frame that is decoded beside the first pays for the threads.
constexpr std::int64_t kLongRun = 2;
constexpr int kErrorsInARow = 64;

// Codecs whose frames lean on each other, so that runs are long. Decoders of others gain nothing from several frames at
// a time.
bool decodesFramesBesideEachOther(AVCodecID codec) {
  switch (codec) {
    case AV_CODEC_ID_H264:
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_MPEG4:
    case AV_CODEC_ID_VP8:
    case AV_CODEC_ID_VP9:
    case AV_CODEC_ID_AV1:
      return true;
    default:
      return false;
  }
}

bool isDiscarded(const AVPacket& packet) {
  return (packet.flags & AV_PKT_FLAG_DISCARD) != 0;
}

}  // namespace

FrameRun::FrameRun(std::shared_ptr<MovieSource> source, int streamIndex, const FrameOptions& options, RunRules rules,
                   const FramePlan& plan, FrameStatistics& statistics)
    : source_(std::move(source)),
      streamIndex_(streamIndex),
      options_(options),
      rules_(rules),
      plan_(plan),
      statistics_(statistics),
      packets_(source_, streamIndex, statistics),
      skipping_(options.skipsNonReference) {}

void FrameRun::beginRun() {
  current_.reset();
  next_.reset();
  headers_.forget();
  betweenSequences_ = false;
  currentIsFirst_ = drained_ = cutShort_ = ended_ = disordered_ = leftOutTheAnswer_ = false;
  framesSeen_ = packetsFed_ = 0;
  noted_ = 0;
  seen_.clear();
  leftOut_.clear();
  places_.clear();
  chunks_.forget();
  frameless_.clear();
  packetsNoted_ = 0;
  awaitsFrame_ = holdsAnchor_ = false;
  highestDts_ = std::numeric_limits<std::int64_t>::min();
  timesDoubtful_ = untimed_ = lastSkipped_ = false;
  lastPlace_.reset();
  damage_ = {};
  unreadableCounted_ = 0;
}

bool FrameRun::land(std::int64_t limit, std::int64_t target, std::string* error) {
  landed_ = false;
  beginRun();
  if (!packets_.demuxer() && !packets_.restart()) {
    *error = packets_.failure();
    return false;
  }
  if (!landOnKey(packets_, rules_.landing, limit, &landing_)) {
    *error = packets_.failure();
    return false;
  }
  return prepareDecoder(target, error);
}

bool FrameRun::landAtStart(std::int64_t target, std::string* error) {
  landed_ = false;
  beginRun();
  if (!landOnStart(packets_, &landing_)) {
    *error = packets_.failure();
    return false;
  }
  return prepareDecoder(target, error);
}

bool FrameRun::prepareDecoder(std::int64_t target, std::string* error) {
  using Threading = FrameDecoder::Threading;
  Threading threading = Threading::slices;
  if (oneThread_) {
    threading = Threading::one;
  } else if (!rules_.isIntraOnly && decodesFramesBesideEachOther(packets_.codec())) {
    const std::int64_t from = landing_.fromStart ? rules_.landing.earliest : landing_.keyPts;
    const std::int64_t to = std::clamp(target, from, std::max(from, rules_.landing.latest));
    const std::int64_t perSecond = std::max<std::int64_t>(1, rules_.rate.den) * rules_.landing.second;
    const std::int64_t frames = rules_.isCounted ? target : av_rescale(to - from, rules_.rate.num, perSecond);
    if (frames >= kLongRun || plan_.nextOpenAfter(target)) threading = Threading::frames;
  }
  if (decoder_ && decoder_->threading() == threading && decoder_->isPatient() == patient_) {
    decoder_->flush();
  } else {
    decoder_.reset();
    const StreamFacts& facts = source_->streams()[static_cast<std::size_t>(streamIndex_)];
    decoder_ = FrameDecoder::open(*facts.parameters, packets_.stream()->time_base, threading, options_.threads,
                                  patient_, error, source_->interrupt()->limits);
  }
  landed_ = decoder_ != nullptr;
  return landed_;
}

bool FrameRun::canContinueTo(std::int64_t place) const {
  if (cutShort_ && place > cutPlace_) return false;
  return landed_ && !disordered_ && current_ && (current_->place <= place || currentIsFirst_);
}

void FrameRun::noteNewPackets() {
  for (; noted_ < packets_.queue().size(); ++noted_) {
    const AVPacket& packet = *packets_.queue()[noted_];
    if (packet.pts == AV_NOPTS_VALUE || packet.dts == AV_NOPTS_VALUE || packet.dts > packet.pts ||
        packet.dts <= highestDts_) {
      timesDoubtful_ = true;
    }
    if (packet.pts == AV_NOPTS_VALUE) untimed_ = true;
    if (packet.dts != AV_NOPTS_VALUE) highestDts_ = std::max(highestDts_, packet.dts);
    if (packet.pts != AV_NOPTS_VALUE && !isDiscarded(packet)) seen_.insert(packet.pts);
    const std::int64_t number = packetsNoted_++;
    if (!rules_.hasGaps) continue;
    if (!chunks_.holdsFrame(packet, *packets_.stream()->codecpar)) {
      frameless_.insert(number);
      continue;
    }
    const std::int64_t following = places_.empty() ? 0 : av_sat_add64(places_.back(), 1);
    places_.push_back(packet.dts == AV_NOPTS_VALUE ? following : std::max(following, packet.dts));
  }
  damage_.refusedPackets += packets_.unreadable() - unreadableCounted_;
  unreadableCounted_ = packets_.unreadable();
}

// In an AVI file: the packet fed last gives no frame, and its place stays empty. Where frames are reordered it is that
// of a frame which nobody needs, or one near it.
void FrameRun::leavePlaceEmpty() {
  if (!std::exchange(awaitsFrame_, false) || rules_.isIntraOnly) return;
  if (decoder_->threading() == FrameDecoder::Threading::frames) return;
  if (framesSeen_ < static_cast<std::int64_t>(places_.size())) places_.erase(places_.begin() + framesSeen_);
}

// In an AVI file: the decoder wants another packet although it could have given a frame for the last one. MPEG-4's
// gives one for each packet but the first, and passes over what leans on a frame that is lost without a word.
bool FrameRun::isFrameMissing() {
  if (!awaitsFrame_) return false;
  if (decoder_->givesAtOnce()) return true;
  if (packets_.codec() != AV_CODEC_ID_MPEG4) return false;
  return decoder_->heldBack() == 0 || std::exchange(holdsAnchor_, true);
}

void FrameRun::noteRefused() {
  ++damage_.refusedPackets;
  leavePlaceEmpty();
}

bool FrameRun::lookAhead() {
  const bool got = packets_.readMore();
  noteNewPackets();
  return got;
}

bool FrameRun::sharesGroupWith(std::int64_t place) {
  if (rules_.isCounted || drained_ || (current_ && current_->place > place)) return true;
  if (next_ && next_->place > place) return true;
  noteNewPackets();
  for (std::size_t i = 0; packets_.queuedBytes() < kMostReadAheadBytes; ++i) {
    if (i == packets_.queue().size() && !lookAhead()) return true;
    const AVPacket& packet = *packets_.queue()[i];
    if (packet.pts == AV_NOPTS_VALUE || isDiscarded(packet)) continue;
    if (packet.pts > place) return true;
    if (isLandingPacket(packet, *packets_.stream()->codecpar)) return false;
  }
  return true;
}

void FrameRun::skipToKeyFor(std::int64_t place) {
  if (rules_.isCounted || drained_) return;
  std::size_t key = 0;
  bool found = false;
  for (std::size_t i = 0; packets_.queuedBytes() < kMostReadAheadBytes; ++i) {
    if (i == packets_.queue().size() && !lookAhead()) break;
    const AVPacket& packet = *packets_.queue()[i];
    if (packet.pts == AV_NOPTS_VALUE || isDiscarded(packet)) continue;
    if (packet.pts > place) break;
    if (!isLandingPacket(packet, *packets_.stream()->codecpar)) continue;
    key = i;
    found = true;
  }
  if (!found || (key == 0 && packetsFed_ == 0)) return;
  for (std::size_t i = 0; i < key; ++i) packets_.dropFirst();
  beginRun();
  unreadableCounted_ = packets_.unreadable();
  landing_ = {false, packets_.queue().front()->pts};
  decoder_->flush();
}

bool FrameRun::maySkip(const AVPacket& packet, std::int64_t place) const {
  if (!skipping_ || rules_.isCounted || rules_.isIntraOnly || !current_ || isDiscarded(packet)) return false;
  const bool mayBeField = packets_.codec() == AV_CODEC_ID_H264;
  if (packet.pts == AV_NOPTS_VALUE) return mayBeField && lastSkipped_;  // a second field goes with the first
  if (untimed_ && !mayBeField) return false;
  std::optional<std::int64_t> wanted = plan_.nextOpen(packet.pts);
  if (place >= packet.pts) wanted = wanted ? std::min(*wanted, place) : place;
  if (!wanted) return false;
  const auto successor = seen_.upper_bound(packet.pts);
  return successor != seen_.end() && *successor <= *wanted;
}

// In an AVI file every chunk takes one frame period. An empty one is no frame: the former frame stays on screen for its
// period too, so it moves those that follow. The demuxer's decoding times number all chunks. Frames come out in the
// order of their places, so the n-th has that of the n-th packet, reordered or not: that takes the reorder delay away.
std::int64_t FrameRun::placeOfNumber(std::int64_t number) const {
  const auto known = static_cast<std::int64_t>(places_.size());
  if (number < known) return places_[static_cast<std::size_t>(number)];
  return known == 0 ? number : av_sat_add64(places_.back(), 1 + number - known);
}

// A frame stays until the next one's place.
bool FrameRun::isWanted(std::int64_t number, std::int64_t place) const {
  const std::int64_t next = placeOfNumber(number + 1);
  if (next > place) return true;
  const std::optional<std::int64_t> open = plan_.nextOpen(placeOfNumber(number));
  return open && *open < next;
}

// The packets tell that the decoder has all it needs for the announced `place`, and nobody wants what follows before
// another key. What the decoder holds back it gives out when it is told that no more comes; without that each of its
// threads would have to be given a further frame to decode.
bool FrameRun::isLastOfGroup(std::int64_t place) {
  if (decoder_->threading() != FrameDecoder::Threading::frames) return false;
  if (rules_.isCounted || !rules_.decodingTimesHold || timesDoubtful_) return false;
  if (!plan_.contains(place) || seen_.upper_bound(place) == seen_.begin() || highestDts_ <= place) return false;
  const std::optional<std::int64_t> open = plan_.nextOpenAfter(place);
  bool isCovered = !open;
  for (const AvPtr<AVPacket>& packet : packets_.queue()) {
    if (packet->pts == AV_NOPTS_VALUE || packet->pts <= place) return false;
    if (open && packet->pts <= *open) isCovered |= isLandingPacket(*packet, *packets_.stream()->codecpar);
  }
  return isCovered;
}

// Every packet of a frame up to `place`, the last one that is asked for, has been read: decoding times only grow, and
// none is after its presentation time.
bool FrameRun::hasReadAllFor(std::int64_t place) {
  if (rules_.isCounted || !rules_.decodingTimesHold || timesDoubtful_ || packets_.queue().empty()) return false;
  return highestDts_ > place && !plan_.nextOpenAfter(place);
}

bool FrameRun::feed(std::int64_t place) {
  const std::size_t window = rules_.isIntraOnly ? 1 : kWindow;
  noteNewPackets();
  while (packets_.queue().size() <= window && packets_.queuedBytes() < kWindowBytes && !hasReadAllFor(place) &&
         lookAhead()) {
  }
  noteNewPackets();
  if (!drained_ && isLastOfGroup(place)) {
    cutShort_ = true;
    cutPlace_ = place;
  }
  if (packets_.queue().empty() || cutShort_) {
    // After a failure too: what the decoder still holds may be enough for a proof.
    if (drained_ || !decoder_->send(nullptr, false)) return false;
    drained_ = true;
    return true;
  }
  if (headers_.changeWith(*packets_.queue().front(), packets_.codec())) {
    betweenSequences_ = decoder_->send(nullptr, false);
    return betweenSequences_;
  }
  const AvPtr<AVPacket> packet = packets_.takeFirst();
  --noted_;
  const std::int64_t number = packetsFed_++;
  const bool isLast = packets_.queue().empty() && packets_.isAtEnd();
  if (rules_.isCounted && rules_.isIntraOnly && !isLast && !isWanted(number, place)) return true;
  lastSkipped_ = maySkip(*packet, place);
  if (lastSkipped_ && packet->pts != AV_NOPTS_VALUE) leftOut_.insert(packet->pts);
  awaitsFrame_ = rules_.hasGaps && !frameless_.contains(number);
  if (!decoder_->send(packet.get(), lastSkipped_)) {
    noteRefused();
  } else if ((packet->flags & AV_PKT_FLAG_CORRUPT) != 0) {
    ++damage_.refusedPackets;
  }
  return true;
}

bool FrameRun::isVisible(const AVFrame& frame) const {
  if ((frame.flags & AV_FRAME_FLAG_DISCARD) != 0) return false;
  // What is shown before the key frame that decoding began at may lean on frames that were not decoded.
  return landing_.fromStart || frame.pts == AV_NOPTS_VALUE || frame.pts >= landing_.keyPts;
}

std::optional<std::int64_t> FrameRun::placeOf(const AVFrame& frame) const {
  if (rules_.isCounted) return placeOfNumber(rules_.isIntraOnly ? packetsFed_ - 1 : framesSeen_);
  if (frame.pts != AV_NOPTS_VALUE) return frame.pts;
  // A single frame without a time stands one frame after the one before it.
  if (!lastPlace_ || rules_.rate.num <= 0 || leftOut_.upper_bound(*lastPlace_) != leftOut_.end()) return std::nullopt;
  return *lastPlace_ + av_rescale_q(1, av_inv_q(rules_.rate), packets_.stream()->time_base);
}

std::shared_ptr<const Frame> FrameRun::accept(AVFrame& frame) {
  if (rules_.firstTick && frame.pts != AV_NOPTS_VALUE) {
    // Frames may have been lost since the last one that said its time.
    const std::int64_t ticks = av_sat_sub64(frame.pts, *rules_.firstTick);
    framesSeen_ = std::max(framesSeen_, av_rescale_q(ticks, packets_.stream()->time_base, av_inv_q(rules_.rate)));
  }
  const std::optional<std::int64_t> place = placeOf(frame);
  ++framesSeen_;
  ++statistics_.framesDecoded;
  if (!place) return nullptr;
  lastPlace_ = place;
  const bool isDamaged = frame.decode_error_flags != 0 || (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0;
  if (isDamaged) {
    ++damage_.damagedFrames;
  } else if (isKeyFrame(frame) && !rules_.isCounted && decoder_->threading() == FrameDecoder::Threading::one) {
    // With several threads errors are not reported in the order of the frames. Where frames are counted, no key brings
    // back the certainty of the count.
    damage_ = {};
  }
  auto owned = std::shared_ptr<AVFrame>(av_frame_alloc(), AvDeleter());
  if (!owned) return nullptr;
  av_frame_move_ref(owned.get(), &frame);
  auto accepted = std::make_shared<Frame>();
  accepted->picture = std::move(owned);
  accepted->place = *place;
  accepted->damage = damage_;
  return accepted;
}

FrameRun::Pull FrameRun::pull(std::int64_t place, std::shared_ptr<const Frame>* frame) {
  if (ended_) return Pull::end;
  AvPtr<AVFrame> decoded(av_frame_alloc());
  if (!decoded) return Pull::failed;
  for (int errors = 0; errors < kErrorsInARow;) {
    switch (decoder_->receive(*decoded)) {
      case FrameDecoder::Status::frame:
        awaitsFrame_ = false;
        if (!isVisible(*decoded)) {
          av_frame_unref(decoded.get());
          break;
        }
        *frame = accept(*decoded);
        return *frame ? Pull::frame : Pull::failed;
      case FrameDecoder::Status::needsPacket:
        if (isFrameMissing()) leavePlaceEmpty();
        if (!feed(place)) return Pull::failed;
        break;
      case FrameDecoder::Status::end:
        if (std::exchange(betweenSequences_, false)) {
          decoder_->flush();
          holdsAnchor_ = false;
          break;
        }
        if (!packets_.failure().empty()) return Pull::failed;
        ended_ = true;
        return Pull::end;
      case FrameDecoder::Status::error:
        noteRefused();
        ++errors;
        break;
    }
  }
  return Pull::failed;
}

bool FrameRun::packetsProve(std::int64_t place) {
  if (rules_.isCounted || !(rules_.decodingTimesHold || rules_.isIntraOnly)) return false;
  noteNewPackets();
  for (;;) {
    auto last = seen_.upper_bound(place);
    const bool hasLater = last != seen_.end();
    if (last == seen_.begin() || *std::prev(last) != current_->place || timesDoubtful_) return false;
    if (packets_.isAtEnd() || highestDts_ > place || (rules_.isIntraOnly && hasLater)) return true;
    if (packets_.queuedBytes() > kMostReadAheadBytes || !lookAhead()) return packets_.isAtEnd();
  }
}

// A packet between the frame and the asked place whose frame never came out. The decoder may have dropped it because of
// where decoding began (libavcodec does so after some recovery points), so that only a run from further back, or from
// the start, tells. Codecs whose packets need not be frames to be shown say nothing here.
bool FrameRun::missesFrame(std::int64_t place) const {
  const auto missed = seen_.upper_bound(current_->place);
  if (missed == seen_.end() || *missed > place || landing_.fromStart || damage_.any()) return false;
  switch (packets_.codec()) {
    case AV_CODEC_ID_H264:
      return rules_.decodingTimesHold || packets_.stream()->codecpar->field_order <= AV_FIELD_PROGRESSIVE;
    case AV_CODEC_ID_HEVC:
    case AV_CODEC_ID_MPEG1VIDEO:
    case AV_CODEC_ID_MPEG2VIDEO:
      return true;
    default:
      return false;
  }
}

FrameRun::Answer FrameRun::settle(std::int64_t place) {
  const auto leftOut = leftOut_.upper_bound(current_->place);
  if (leftOut != leftOut_.end() && *leftOut <= place) {
    leftOutTheAnswer_ = true;
    return {Answer::Kind::unproven, nullptr, "a frame that was left out may be the one"};
  }
  if (missesFrame(place)) return {Answer::Kind::unproven, nullptr, "the frame did not come out of the decoder"};
  return {Answer::Kind::found, current_, {}};
}

FrameRun::Answer FrameRun::answer(std::int64_t place) {
  for (;;) {
    // The end of a run that was cut short is not the stream's.
    if (cutShort_ && place > cutPlace_) return {Answer::Kind::unproven, nullptr, "decoding ended before the frame"};
    if (current_) {
      if (current_->place > place) {
        if (currentIsFirst_) return settle(place);
        return {Answer::Kind::unproven, nullptr, "decoding began after the frame"};
      }
      if (rules_.isCounted && current_->place == place) return settle(place);
      if (next_ ? next_->place > place : ended_) return settle(place);
      if (!next_ && packetsProve(place)) return settle(place);
      if (next_) {
        current_ = std::exchange(next_, nullptr);
        currentIsFirst_ = false;
        continue;
      }
    }
    std::shared_ptr<const Frame> frame;
    switch (pull(place, &frame)) {
      case Pull::end:
        if (!current_) return {Answer::Kind::unproven, nullptr, "no frame could be decoded"};
        break;
      case Pull::failed:
        return {Answer::Kind::failed, nullptr,
                packets_.failure().empty() ? "the movie's frames cannot be told apart" : packets_.failure()};
      case Pull::frame:
        if (!current_) {
          current_ = std::move(frame);
          currentIsFirst_ = landing_.fromStart && (!rules_.isCounted || current_->place == placeOfNumber(0));
        } else if (frame->place < current_->place) {
          disordered_ = true;
          return {Answer::Kind::unproven, nullptr, "frames came out of order"};
        } else if (frame->place <= place) {
          current_ = std::move(frame);
          currentIsFirst_ = false;
        } else {
          next_ = std::move(frame);
        }
        break;
    }
  }
}

FrameRun::Answer FrameRun::following() {
  constexpr std::int64_t kAnyPlace = std::numeric_limits<std::int64_t>::min();
  std::shared_ptr<const Frame> frame;
  switch (pull(kAnyPlace, &frame)) {
    case Pull::end:
      return {Answer::Kind::found, nullptr, {}};
    case Pull::failed:
      return {Answer::Kind::failed, nullptr,
              packets_.failure().empty() ? "the movie's frames cannot be told apart" : packets_.failure()};
    case Pull::frame:
      break;
  }
  if (current_ && frame->place <= current_->place) {
    disordered_ = true;
    return {Answer::Kind::unproven, nullptr, "frames came out of order"};
  }
  if (current_ && missesFrame(frame->place - 1)) {
    return {Answer::Kind::unproven, nullptr, "a frame did not come out of the decoder"};
  }
  current_ = frame;
  seen_.erase(seen_.begin(), seen_.lower_bound(frame->place));
  return {Answer::Kind::found, std::move(frame), {}};
}

}  // namespace vistrelle::platform
