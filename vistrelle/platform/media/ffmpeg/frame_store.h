#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <memory>

#include "vistrelle/platform/files/unique_fd.h"
#include "vistrelle/platform/media/ffmpeg/frame_run.h"

namespace vistrelle::platform {

/// Frames that wait for their turn, each once. Up to a bound they stay in memory as they were decoded; beyond it they
/// go to a temporary file without a name and come back as a mapping of it. Frames that cannot be kept are simply not
/// there later.
class FrameStore {
 public:
  FrameStore(std::size_t keptBytes, FrameStatistics& statistics) : keptBytes_(keptBytes), statistics_(statistics) {}
  FrameStore(const FrameStore&) = delete;
  FrameStore& operator=(const FrameStore&) = delete;

  void keep(const std::shared_ptr<const Frame>& frame);
  /// The frame of this place; empty when it is not (or no longer) kept.
  std::shared_ptr<const Frame> find(std::int64_t place);
  void drop(std::int64_t place);
  void clear();
  std::size_t bytesInMemory() const { return bytesInMemory_; }

 private:
  struct Entry {
    std::shared_ptr<const Frame> frame;  // in memory, or without picture data (only properties) when spilled
    std::size_t bytes = 0;
    std::int64_t offset = -1;  // in the temporary file
  };
  bool spill(Entry& entry);
  std::shared_ptr<const Frame> readBack(const Entry& entry) const;

  std::size_t keptBytes_;
  FrameStatistics& statistics_;
  std::map<std::int64_t, Entry> entries_;
  std::size_t bytesInMemory_ = 0;
  std::unique_ptr<UniqueFd> file_;
  std::int64_t fileEnd_ = 0;
  bool fileFailed_ = false;
};

}  // namespace vistrelle::platform
