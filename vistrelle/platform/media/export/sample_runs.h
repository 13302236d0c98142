#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "vistrelle/platform/media/export/track_plan.h"

namespace vistrelle::platform {

/// A sample of a source as it stands in the track that is written. Times in that track's time scale.
struct RunSample {
  std::size_t index = 0;      ///< among the source's samples
  std::uint32_t skipped = 0;  ///< of the alike samples that it stands for, those before the first one taken
  std::uint32_t count = 1;    ///< and how many are taken
  std::int64_t decodeTime = 0;
  std::int64_t presentation = 0;
  bool isEntry = false;  ///< of pictures in several pieces: decoders come here from another place
};

/// Samples of one source in decoding order that begin with one a decoder can begin with.
struct SampleRun {
  const SourceTrack* source = nullptr;
  std::vector<RunSample> samples;
  std::int64_t end = 0;  ///< decoding time of what follows
};

/// Chooses the samples of a track and their times.
///
/// Pictures: a piece begins with the sync sample that lets the frame on screen at its start be decoded; edits hide what
/// comes before. That frame is given the time of the cut, for many readers show no frame that began before an edit
/// does. And readers that take the first shown sample's decoding time for the edit's beginning must come out right for
/// every edit: so the distance from there to the cut is the same in all pieces of a track. Others read the -1 of an
/// empty edit between two that are not as a time of the media: nothing is shown there for as long as it lasts.
class RunBuilder {
 public:
  RunBuilder(std::int64_t timeScale, const std::vector<Piece>& pieces) : scale_(timeScale), pieces_(pieces) {}
  std::vector<SampleRun> build();
  /// Where each piece begins in the media that was built; -1 for empty ones.
  const std::vector<std::int64_t>& mediaTimes() const { return mediaTimes_; }

 private:
  /// What a piece needs of its source: samples, and times counted from the decoding time of the first of them.
  struct Need {
    std::size_t first = 0;
    std::size_t last = 0;
    std::size_t onScreen = 0;      ///< pictures: the sample on screen at the cut
    std::size_t firstDecoded = 0;  ///< pictures: the first one in decoding order that is shown
    std::int64_t start = 0;        ///< the cut
  };
  struct Run {
    SampleRun run;
    Ratio factor;              ///< from the source's ticks to the track's
    std::int64_t origin = 0;   ///< the source's decoding time that is the run's zero
    Ratio cut;                 ///< the source's time where a run that is trimmed to its piece begins
    std::int64_t trimmed = 0;  ///< and its length; 0 for others
    std::int64_t shift = 0;    ///< taken off all times, so that the first decoding time is zero
    std::int64_t early = 0;    ///< where such a run's piece begins
    std::int64_t shownTo = 0;  ///< the latest end of the pieces that use it
    std::int64_t base = 0;
  };
  struct Use {
    std::size_t run = 0;
    std::int64_t start = 0;
    std::size_t entry = 0;  ///< the source's sample that decoding begins with
  };

  Need pictureNeed(const Piece& piece, bool isBehindAnother) const;
  Need soundNeed(const Piece& piece) const;
  void addPicture(const Piece& piece, const Need& need, std::int64_t delay);
  void addSound(const Piece& piece);
  void addTrimmed(const Piece& piece);
  /// Whether every picture stands for itself and is shown when it is decoded.
  static bool isPlain(const SourceTrack& source);
  bool reuse(const Piece& piece, const Need& need, std::int64_t delay);
  void extend(Run& run, std::size_t last) const;
  Run makeRun(const Piece& piece, std::size_t first) const;
  std::int64_t naturalDelay(const Piece& piece, const Need& need) const;
  Ratio factorOf(const Piece& piece) const;
  std::int64_t ticksOf(const Piece& piece, std::int64_t sourceTicks, std::int64_t origin) const;
  std::int64_t cutOf(const Piece& piece, std::int64_t origin) const;
  void layOut();
  void markEntries();
  std::int64_t longestGap() const;

  std::int64_t scale_;
  const std::vector<Piece>& pieces_;
  std::vector<Run> runs_;
  std::vector<Use> uses_;
  std::int64_t later_ = 0;  ///< added to all presentation times
  std::vector<std::int64_t> mediaTimes_;
};

}  // namespace vistrelle::platform
