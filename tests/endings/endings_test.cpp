// The tool ended by signals at random instants. VISTRELLE_LONG=1: 1,000 of each, else 20; the seed is printed.
#include <gtest/gtest.h>
#include <signal.h>

#include <cstdlib>
#include <iostream>
#include <random>

#include "tests/endings/interrupted_runs.h"

namespace vistrelle::testing {
namespace {

class Endings : public ::testing::TestWithParam<int> {};

TEST_P(Endings, LeaveOldOrWholePicturesAndNothingElse) {
  const bool isLong = std::getenv("VISTRELLE_LONG") != nullptr;
  const int signal = GetParam();
  const unsigned seed = isLong ? std::random_device()() : 4711U + static_cast<unsigned>(signal);
  std::cout << "seed " << seed << std::endl;
  std::mt19937 random(seed);
  InterruptedRuns runs;
  for (int round = 0; round < (isLong ? 1000 : 20) && !HasFailure(); ++round) {
    const auto target = round % 2 == 0 ? InterruptedRuns::Target::folder : InterruptedRuns::Target::file;
    // As from a terminal, which tells the whole group, or from another program.
    const bool toGroup = signal != SIGKILL && round % 4 < 2;
    std::uniform_int_distribution<long> instant(0, runs.duration().count() * 11 / 10);
    const std::chrono::microseconds delay(instant(random));
    SCOPED_TRACE("round " + std::to_string(round) + ", after " + std::to_string(delay.count()) + " us");
    runs.run(target, signal, delay, toGroup);
  }
  const InterruptedRuns::Tally& tally = runs.tally();
  std::cout << tally.runs << " runs of " << runs.duration().count() / 1000 << " ms, " << tally.interrupted
            << " interrupted; torn pictures: " << tally.torn << ", strays: " << tally.strays
            << ", processes left: " << tally.leftProcesses << std::endl;
  EXPECT_EQ(tally.leftProcesses, 0);
  EXPECT_EQ(tally.strays, 0);
  if (signal != SIGKILL) {
    EXPECT_EQ(tally.torn, 0);  // such a signal waits until the picture is written
  } else if (isLong) {
    EXPECT_LT(tally.torn, tally.runs / 100);  // nothing can be done against this one
  }
}

INSTANTIATE_TEST_SUITE_P(Signals, Endings, ::testing::Values(SIGINT, SIGTERM, SIGHUP, SIGKILL),
                         [](const auto& each) { return std::string(sigabbrev_np(each.param)); });

}  // namespace
}  // namespace vistrelle::testing
