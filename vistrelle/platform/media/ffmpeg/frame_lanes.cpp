#include "vistrelle/platform/media/ffmpeg/frame_lanes.h"

extern "C" {
#include <libavutil/common.h>
#include <libavutil/cpu.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "vistrelle/platform/imaging/processors.h"
#include "vistrelle/platform/media/ffmpeg/frame_finder.h"

namespace vistrelle::platform {

namespace {

constexpr int kLanes = 2;
// With fewer, one thread would often be left alone with the last of them.
constexpr std::size_t kFewestGroups = 4;
// On average. More of them would wait while the group before theirs is worked on, and fill the memory.
constexpr std::size_t kMostOfAGroup = 4;
constexpr std::size_t kMostWaiting = 4;
// A second decoder of the same stream keeps as many frames as the first: of large ones that is too much, unless every
// frame stands for itself.
constexpr std::size_t kLargestFrame = std::size_t{8} << 20;
constexpr std::size_t kLargestIntraFrame = std::size_t{32} << 20;

std::size_t frameBytes(const AVCodecParameters& parameters) {
  const AVPixelFormat format =
      parameters.format < 0 ? AV_PIX_FMT_YUV420P : static_cast<AVPixelFormat>(parameters.format);
  const int size = av_image_get_buffer_size(format, parameters.width, parameters.height, 1);
  return size < 1 ? kLargestIntraFrame + 1 : static_cast<std::size_t>(size);
}

// By the index, which goes by decoding times: those of keys are before their presentation times by what the first one
// tells. A wrong guess costs a few frames more and changes none.
std::vector<std::size_t> groupsOf(FramePackets& packets, std::span<const std::int64_t> places) {
  std::int64_t delay = 0;
  if (!packets.queue().empty() || packets.readMore()) {
    const AVPacket& first = *packets.queue().front();
    const bool isKey = (first.flags & AV_PKT_FLAG_KEY) != 0;
    if (isKey && first.pts != AV_NOPTS_VALUE && first.dts != AV_NOPTS_VALUE) delay = first.pts - first.dts;
  }
  std::vector<std::size_t> groups;
  std::optional<std::int64_t> former;
  for (const std::int64_t place : places) {
    const AVIndexEntry* key =
        avformat_index_get_entry_from_timestamp(packets.stream(), av_sat_sub64(place, delay), AVSEEK_FLAG_BACKWARD);
    const std::int64_t time = key == nullptr ? std::numeric_limits<std::int64_t>::min() : key->timestamp;
    if (groups.empty()) {
      groups.push_back(0);
    } else {
      groups.push_back(groups.back() + (time == former ? 0 : 1));
    }
    former = time;
  }
  return groups;
}

// Whether a second reading of the movie is possible and tells where groups begin.
bool isPossible(const FrameOptions& options, FrameRun& opened) {
  const RunRules& rules = opened.rules();
  if (options.lanes == 1 || rules.isCounted || !rules.landing.hasIndex) return false;
  if (opened.packets().demuxer() == nullptr && !opened.packets().restart()) return false;
  // What a reference asks for, or has to say, is said once.
  return !opened.packets().demuxer()->hasAskedForReferences();
}

bool isGain(const FrameOptions& options, FrameRun& opened, std::size_t places, std::size_t groups) {
  if (options.lanes > 1) return true;
  if (options.threads == 1 || processorShareOf(av_cpu_count()) < kLanes) return false;
  if (groups < kFewestGroups || places > kMostOfAGroup * groups) return false;
  const std::size_t bytes = frameBytes(*opened.packets().stream()->codecpar);
  return bytes <= (opened.rules().isIntraOnly ? kLargestIntraFrame : kLargestFrame);
}

FrameOptions optionsOfLane(FrameOptions options) {
  const int threads = options.threads > 0 ? options.threads : std::min(processorShareOf(av_cpu_count()), 2 * kLanes);
  options.threads = std::max(1, threads / kLanes);
  return options;
}

}  // namespace

struct FrameLanes::Lane {
  Lane(const std::shared_ptr<MovieSource>& source, int streamIndex, const FrameOptions& options, const RunRules& rules)
      : finder(std::in_place, source, streamIndex, options, rules) {
    if (options.threads == 1) finder->run().useOneThread();
  }
  std::optional<FrameFinder> finder;
  FrameStatistics done;  // guarded by the mutex of all
  std::thread thread;
};

FrameLanes::FrameLanes(std::vector<std::int64_t> places, std::vector<std::size_t> groups, std::size_t mostWaiting)
    : places_(std::move(places)), groups_(std::move(groups)), mostWaiting_(mostWaiting), answers_(places_.size()) {}

std::unique_ptr<FrameLanes> FrameLanes::begin(const std::shared_ptr<MovieSource>& source, int streamIndex,
                                              const FrameOptions& options, FrameRun& opened,
                                              std::span<const std::int64_t> places) {
  if (places.size() < 2 || !isPossible(options, opened)) return nullptr;
  const auto end = std::is_sorted_until(places.begin(), places.end());
  std::vector<std::int64_t> forward(places.begin(), end);
  const std::size_t taken = forward.size();
  forward.erase(std::unique(forward.begin(), forward.end()), forward.end());
  if (forward.size() < kFewestGroups && options.lanes < 2) return nullptr;
  std::vector<std::size_t> groups = groupsOf(opened.packets(), forward);
  if (!isGain(options, opened, forward.size(), groups.back() + 1)) return nullptr;

  const std::size_t bytes = std::max<std::size_t>(1, frameBytes(*opened.packets().stream()->codecpar));
  const std::size_t mostWaiting = std::clamp<std::size_t>(options.keptBytes / bytes, 1, kMostWaiting);
  std::unique_ptr<FrameLanes> lanes(new FrameLanes(std::move(forward), std::move(groups), mostWaiting));
  lanes->taken_ = taken;
  const FrameOptions ofLane = optionsOfLane(options);
  for (int i = 0; i < kLanes; ++i) {
    auto lane = std::make_unique<Lane>(source, streamIndex, ofLane, opened.rules());
    if (i == 0 && opened.packets().isAtStart()) lane->finder->run().packets().takeOver(opened.packets());
    if (!lanes->start(std::move(lane))) return nullptr;
  }
  return lanes;
}

bool FrameLanes::start(std::unique_ptr<Lane> lane) {
  lanes_.push_back(std::move(lane));
  Lane& started = *lanes_.back();
  started.finder->run().stopWhen(calledOff_);
  try {
    started.thread = std::thread([this, &started] { run(started); });
  } catch (const std::system_error&) {
    return false;  // no thread to be had
  }
  return true;
}

FrameLanes::~FrameLanes() {
  abandon();
  for (const std::unique_ptr<Lane>& lane : lanes_) {
    if (lane->thread.joinable()) lane->thread.join();
  }
}

void FrameLanes::abandon() {
  const std::lock_guard lock(mutex_);
  calledOff_ = true;
  changed_.notify_all();
}

void FrameLanes::run(Lane& lane) {
  try {
    while (const auto first = claimGroup()) {
      std::size_t end = *first;
      while (end < places_.size() && groups_[end] == groups_[*first]) ++end;
      lane.finder->announce(std::span(places_).subspan(*first, end - *first));
      for (std::size_t i = *first; i < end; ++i) {
        if (!awaitTurn(i)) return;
        deliver(i, lane.finder->find(places_[i]), lane);
      }
    }
  } catch (const std::bad_alloc&) {
    abandon();  // who asks goes on alone
  }
  lane.finder.reset();
}

std::optional<std::size_t> FrameLanes::claimGroup() {
  const std::lock_guard lock(mutex_);
  unclaimed_ = std::max(unclaimed_, next_);
  if (calledOff_ || unclaimed_ >= places_.size()) return std::nullopt;
  const std::size_t first = unclaimed_;
  while (unclaimed_ < places_.size() && groups_[unclaimed_] == groups_[first]) ++unclaimed_;
  return first;
}

// Whoever works on the group whose turn it is never waits.
bool FrameLanes::awaitTurn(std::size_t index) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] {
    return calledOff_ || waiting_ < mostWaiting_ || (next_ < places_.size() && groups_[next_] >= groups_[index]);
  });
  return !calledOff_;
}

void FrameLanes::deliver(std::size_t index, FrameRun::Answer answer, Lane& lane) {
  const std::lock_guard lock(mutex_);
  lane.done = lane.finder->statistics();
  if (calledOff_ || index < next_) return;  // an answer of one that was called off is none
  answers_[index] = std::move(answer);
  ++waiting_;
  changed_.notify_all();
}

std::optional<FrameRun::Answer> FrameLanes::take(std::int64_t place) {
  std::unique_lock lock(mutex_);
  if (next_ > 0 && last_ && places_[next_ - 1] == place) return last_;
  const auto found = std::lower_bound(places_.begin() + static_cast<std::ptrdiff_t>(next_), places_.end(), place);
  if (found == places_.end() || *found != place) return std::nullopt;
  const auto index = static_cast<std::size_t>(found - places_.begin());
  for (; next_ < index; ++next_) {
    if (answers_[next_]) --waiting_;
    answers_[next_].reset();
  }
  last_.reset();
  changed_.notify_all();
  changed_.wait(lock, [&] { return calledOff_ || answers_[index]; });
  if (!answers_[index]) return std::nullopt;
  last_ = std::exchange(answers_[index], std::nullopt);
  --waiting_;
  ++next_;
  changed_.notify_all();
  return last_;
}

FrameStatistics FrameLanes::statistics() const {
  const std::lock_guard lock(mutex_);
  FrameStatistics sum;
  sum.lanes = std::ssize(lanes_);
  for (const std::unique_ptr<Lane>& lane : lanes_) sum += lane->done;
  return sum;
}

}  // namespace vistrelle::platform
