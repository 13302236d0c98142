#pragma once

#include <map>
#include <memory>
#include <vector>

#include "vistrelle/platform/media/export/track_plan.h"

namespace vistrelle::platform {

/// Silence for the empty stretches between two pieces of sound. An empty edit there would be right by the standard
/// (14496-12, 8.6.6), but libavformat takes its -1 for a time of the media and plays the first samples again.
class Silence {
 public:
  Silence();
  ~Silence();
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

  /// Puts silence, coded as the sound before it, into the empty stretches of a sound track that have sound before and
  /// behind them. Stretches stay empty where no silence in that coding can be made. The pieces refer to this object.
  ///
  /// Behind the first edit libavformat plays whole packets, those that begin within the edit. Silence takes a packet
  /// more or less, so that the samples it counts stay within a packet of the timeline wherever there is some.
  void fill(std::vector<Piece>& track);

 private:
  struct Source;
  Source& like(const SourceTrack& sound);
  std::map<const SourceTrack*, std::unique_ptr<Source>> sources_;
};

}  // namespace vistrelle::platform
