#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <vector>

#include "vistrelle/platform/media/mov/sample_tables.h"

namespace vistrelle::platform::mov {

/// Adds the samples of movie fragments (14496-12, 8.8) to the tracks they belong to.
class FragmentTables {
 public:
  /// Reads the defaults of all tracks from the content of a 'moov' box.
  void readDefaults(std::span<const std::uint8_t> movie);
  /// Reads the content of a 'moof' box that begins at `start` in the file.
  void read(std::span<const std::uint8_t> fragment, std::int64_t start, const std::set<std::uint32_t>& wanted,
            std::vector<SampleTables>& tracks);

 private:
  struct Defaults {
    std::uint32_t description = 1;
    std::uint32_t duration = 0;
    std::uint32_t size = 0;
    std::uint32_t flags = 0;
  };
  struct Place {
    std::int64_t base = 0;
    std::int64_t next = 0;
    std::int64_t decodeTime = 0;
  };
  void readTrack(std::span<const std::uint8_t> content, std::int64_t start, const std::set<std::uint32_t>& wanted,
                 std::vector<SampleTables>& tracks);
  static void readRun(std::span<const std::uint8_t> content, const Defaults& defaults, Place& place,
                      SampleTables& track);

  std::map<std::uint32_t, Defaults> defaults_;
  std::int64_t dataEnd_ = 0;  // of the track fragment before
  bool isFirst_ = true;       // of the fragment's track fragments
};

}  // namespace vistrelle::platform::mov
