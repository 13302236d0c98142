#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle::testing {

/// Runs of the tool over pictures of an earlier run, each ended by a signal at an instant of its own, and what they
/// left behind.
class InterruptedRuns {
 public:
  /// Where a run's pictures go.
  enum class Target {
    folder,  ///< img00.jpg and so on; the first half stood there before, the rest did not
    file,    ///< all into one file, which stood there before: the last one stays
  };
  struct Tally {
    int runs = 0;
    int interrupted = 0;  ///< ended by the signal, not before it came
    int torn = 0;         ///< runs that left a picture which is neither old nor whole
    int strays = 0;       ///< runs that left something else
    int leftProcesses = 0;
  };

  /// Makes the movie, an undisturbed run and the right pictures.
  InterruptedRuns();

  /// One run that gets `signal` after `delay`, sent to its whole process group or to it alone. Fails the test for an
  /// untrue exit status and for pictures in an order in which they cannot have been written.
  void run(Target target, int signal, std::chrono::microseconds delay, bool toGroup);

  /// How long an undisturbed run takes at present, roughly.
  std::chrono::microseconds duration() const { return duration_; }
  const Tally& tally() const { return tally_; }

 private:
  enum class State { old, absent, whole, torn };
  static constexpr std::size_t kPictures = 6;

  std::vector<std::string> command(Target target) const;
  void prepareDestination(Target target);
  void judge(Target target, const RunResult& result, int signal);
  State stateOf(const std::string& path, const std::string& old, const std::string& right) const;
  std::vector<State> states(Target target) const;
  std::size_t strayCount(Target target) const;
  static std::size_t collectOrphans();

  ScratchFolder folder_;
  std::string movie_;
  std::string pictures_;
  std::string file_;
  std::array<std::string, kPictures> old_;
  std::array<std::string, kPictures> right_;
  std::chrono::microseconds duration_{};
  Tally tally_;
};

}  // namespace vistrelle::testing
