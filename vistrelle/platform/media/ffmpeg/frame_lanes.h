#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/frame_run.h"

namespace vistrelle::platform {

/// Works an announced list out on two threads, each with a reading and a decoder of its own, a group of pictures at a
/// time, and gives the frames back in the order of the list. They are those that a FrameFinder finds alone.
///
/// Bounded: few frames wait for their turn; a thread that is ahead by more stands still until they are taken.
class FrameLanes {
 public:
  /// Begins with the leading part of `places` (in the order asked, repeats included) that goes forward. The reading
  /// of `opened` is taken over where it stands at its start. Empty where a list gains
  /// nothing by it: too few groups, many pictures in each of them, or no index that tells them apart.
  static std::unique_ptr<FrameLanes> begin(const std::shared_ptr<MovieSource>& source, int streamIndex,
                                           const FrameOptions& options, FrameRun& opened,
                                           std::span<const std::int64_t> places);
  /// Calls off what is under way.
  ~FrameLanes();
  FrameLanes(const FrameLanes&) = delete;
  FrameLanes& operator=(const FrameLanes&) = delete;

  /// How many of the places it was given it works out.
  std::size_t taken() const { return taken_; }
  /// Waits for the frame of a place. Those of places before it are not to be had any more. Nothing when it does not
  /// work on this place, or not any more.
  std::optional<FrameRun::Answer> take(std::int64_t place);
  FrameStatistics statistics() const;

 private:
  struct Lane;
  FrameLanes(std::vector<std::int64_t> places, std::vector<std::size_t> groups, std::size_t mostWaiting);
  bool start(std::unique_ptr<Lane> lane);
  void run(Lane& lane);
  std::optional<std::size_t> claimGroup();
  bool awaitTurn(std::size_t index);
  void deliver(std::size_t index, FrameRun::Answer answer, Lane& lane);
  void abandon();

  std::size_t taken_ = 0;
  const std::vector<std::int64_t> places_;  // ascending, each once
  const std::vector<std::size_t> groups_;   // of each place, counted from 0
  const std::size_t mostWaiting_;
  std::vector<std::unique_ptr<Lane>> lanes_;
  std::atomic<bool> calledOff_ = false;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::optional<FrameRun::Answer>> answers_;  // that wait for their turn
  std::size_t waiting_ = 0;                               // how many of them
  std::size_t next_ = 0;                                  // the place whose turn it is
  std::size_t unclaimed_ = 0;                             // the first place of the first group that nobody works on
  std::optional<FrameRun::Answer> last_;                  // of the place before next_
};

}  // namespace vistrelle::platform
