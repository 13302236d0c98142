#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/export/source_track.h"

namespace vistrelle::platform {

/// The samples of a movie that is not of the MOV family, as QuickTime stores them: parameter sets and headers that its
/// sample entries carry are taken out of the packets. The movie is read once for the tables and once for the samples;
/// offsets are places in the sequence of all its samples in file order.
class PacketSamples : public SampleStore {
 public:
  /// Reads the whole movie. Empty with an error text when a stream cannot become a QuickTime track or on cancellation.
  static std::unique_ptr<PacketSamples> open(std::shared_ptr<MovieSource> movie, const std::vector<int>& streams,
                                             const std::function<bool()>& isCancelled, std::string* error);
  ~PacketSamples() override;

  /// The tables of the n-th stream asked for; once.
  mov::SampleTables takeTables(std::size_t n);
  bool copy(std::span<const ByteRange> ranges, const ByteSink& sink, std::string* error) override;

 private:
  struct State;
  explicit PacketSamples(std::unique_ptr<State> state);
  std::unique_ptr<State> state_;
};

}  // namespace vistrelle::platform
