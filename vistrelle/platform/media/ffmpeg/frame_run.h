#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/frame_chunks.h"
#include "vistrelle/platform/media/ffmpeg/frame_decoder.h"
#include "vistrelle/platform/media/ffmpeg/frame_landing.h"
#include "vistrelle/platform/media/ffmpeg/frame_packets.h"
#include "vistrelle/platform/media/ffmpeg/frame_plan.h"
#include "vistrelle/platform/media/ffmpeg/frame_timeline.h"
#include "vistrelle/platform/media/ffmpeg/sequence_headers.h"

namespace vistrelle::platform {

/// How much of what led to a frame could not be decoded as it was written, since the last undamaged key frame.
struct FrameDamage {
  int refusedPackets = 0;  ///< unreadable, or refused by the decoder
  int damagedFrames = 0;   ///< decoded with errors or by concealment, those before the frame included
  bool any() const { return refusedPackets > 0 || damagedFrames > 0; }
};

/// A decoded frame and its place (see FrameTimeline).
struct Frame {
  std::shared_ptr<const AVFrame> picture;
  std::int64_t place = 0;
  FrameDamage damage;
};

struct FrameOptions {
  int threads = 0;                                ///< of a decoder; 0: by the number of processors
  int lanes = 0;                                  ///< see FrameLanes; 0: where a list gains by them, 1: none, 2: always
  bool skipsNonReference = true;                  ///< leave out frames that nobody needs
  std::size_t keptBytes = std::size_t{24} << 20;  ///< of pictures in memory that wait for their turn
};

/// What all runs over one stream have in common.
struct RunRules {
  bool isCounted = false;          ///< places are numbers counted from the start of the stream
  bool hasGaps = false;            ///< counted, but decoding times are numbers too and step over frames left out
  bool isIntraOnly = false;        ///< every packet is a frame that stands for itself
  bool decodingTimesHold = false;  ///< a packet's decoding time is stated and never after its presentation time
  AVRational rate{0, 1};
  std::optional<std::int64_t> firstTick;  ///< counted, but stated times hold: that of the first frame
  LandingRules landing;
};

/// A run of decoding: from the place where it landed forward, frame by frame.
class FrameRun {
 public:
  FrameRun(std::shared_ptr<MovieSource> source, int streamIndex, const FrameOptions& options, RunRules rules,
           const FramePlan& plan, FrameStatistics& statistics);

  FramePackets& packets() { return packets_; }
  RunRules& rules() { return rules_; }

  struct Answer {
    enum class Kind { found, unproven, failed };
    Kind kind = Kind::failed;
    std::shared_ptr<const Frame> frame;
    std::string error;
  };

  /// Where the next run begins: at the last key packet at or before `limit`, or at the start. `target` says how far
  /// it is going to go. False with an error text.
  bool land(std::int64_t limit, std::int64_t target, std::string* error);
  bool landAtStart(std::int64_t target, std::string* error);
  const Landing& landing() const { return landing_; }
  /// The frame it stands at; empty before the first answer.
  const std::shared_ptr<const Frame>& current() const { return current_; }
  bool isDisordered() const { return disordered_; }
  /// The last answer was not proven because a frame that was left out may be the one.
  bool leftOutTheAnswer() const { return leftOutTheAnswer_; }

  /// Whether the answer for `place` lies ahead, so that the run can simply go on.
  bool canContinueTo(std::int64_t place) const;
  /// Whether going on to `place` passes no other key that one could begin at: the frames on the way are needed anyway.
  bool sharesGroupWith(std::int64_t place);
  /// Leaves out everything up to the last key packet at or before `place` when that has been or can be read cheaply.
  void skipToKeyFor(std::int64_t place);

  /// Goes forward to the frame for `place`, with proof: the next frame is later, the stream ends, or the packets leave
  /// no room for another one.
  Answer answer(std::int64_t place);

  /// Goes forward by one frame, the first one of the run at first; nothing is left out (skipping must be off). Found
  /// without a frame at the end; not proven when a frame is missing or out of order. Not to be mixed with answer().
  Answer following();

  /// From now on with one thread, because what a damaged stream gives must not depend on timing.
  void useOneThread() { oneThread_ = true; }
  bool usesOneThread() const { return oneThread_; }
  /// From now on decoders hold frames back as long as the format allows.
  void usePatience() { patient_ = true; }
  bool usesPatience() const { return patient_; }
  void setSkipping(bool skips) { skipping_ = skips; }

 private:
  enum class Pull { frame, end, failed };
  bool prepareDecoder(std::int64_t target, std::string* error);
  void beginRun();
  Pull pull(std::int64_t place, std::shared_ptr<const Frame>* frame);
  bool feed(std::int64_t place);
  bool hasReadAllFor(std::int64_t place);
  bool isLastOfGroup(std::int64_t place);
  bool lookAhead();
  void noteNewPackets();
  void noteRefused();
  void leavePlaceEmpty();
  bool isFrameMissing();
  bool maySkip(const AVPacket& packet, std::int64_t place) const;
  std::int64_t placeOfNumber(std::int64_t number) const;
  bool isWanted(std::int64_t number, std::int64_t place) const;
  bool isVisible(const AVFrame& frame) const;
  std::optional<std::int64_t> placeOf(const AVFrame& frame) const;
  std::shared_ptr<const Frame> accept(AVFrame& frame);
  bool packetsProve(std::int64_t place);
  bool missesFrame(std::int64_t place) const;
  Answer settle(std::int64_t place);

  std::shared_ptr<MovieSource> source_;
  int streamIndex_;
  FrameOptions options_;
  RunRules rules_;
  const FramePlan& plan_;
  FrameStatistics& statistics_;
  FramePackets packets_;
  std::unique_ptr<FrameDecoder> decoder_;
  Landing landing_;
  bool landed_ = false;

  // The run's state; beginRun() puts all of it back.
  std::shared_ptr<const Frame> current_;  // the last frame at or before what was asked, or the first of all
  std::shared_ptr<const Frame> next_;     // its successor, when that has been decoded already
  bool currentIsFirst_ = false;           // no visible frame of the stream comes before current_
  SequenceHeaders headers_;
  bool betweenSequences_ = false;  // what the decoder holds comes before pictures of another shape
  bool drained_ = false;
  bool cutShort_ = false;      // drained before the stream's end: good for places up to cutPlace_
  std::int64_t cutPlace_ = 0;  // meaningful where cutShort_ is
  bool ended_ = false;
  bool disordered_ = false;
  bool leftOutTheAnswer_ = false;
  std::int64_t framesSeen_ = 0;
  std::int64_t packetsFed_ = 0;
  std::size_t noted_ = 0;             // how many packets of the queue are in seen_
  std::set<std::int64_t> seen_;       // presentation times of the run's packets
  std::set<std::int64_t> leftOut_;    // those that the decoder was told to skip where it can
  std::vector<std::int64_t> places_;  // with gaps: of the frames by their number, as far as packets were noted
  FrameChunks chunks_;
  std::set<std::int64_t> frameless_;  // with gaps: numbers of packets that hold no frame
  std::int64_t packetsNoted_ = 0;
  bool awaitsFrame_ = false;  // the packet fed last holds one, and none has come out since
  bool holdsAnchor_ = false;  // the decoder has taken the frame that it holds back
  std::int64_t highestDts_ = 0;
  bool timesDoubtful_ = false;  // the order of the packets does not prove anything
  bool untimed_ = false;        // some packets have no presentation time
  bool lastSkipped_ = false;
  std::optional<std::int64_t> lastPlace_;
  FrameDamage damage_;
  int unreadableCounted_ = 0;

  bool oneThread_ = false;
  bool patient_ = false;
  bool skipping_ = true;
};

}  // namespace vistrelle::platform
