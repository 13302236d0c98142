#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/clips.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

namespace vistrelle::testing {

using Json = nlohmann::json;

/// A run of vistrelle-batch and what its report says.
struct BatchResult {
  RunResult run;
  std::vector<Json> lines;

  /// The report line about a line of the list; null when there is not exactly one.
  Json about(int line) const;
  std::string statusOf(int line) const;
  std::string reasonOf(int line) const;
};

/// Report lines of a text, each of which must be a whole line of JSON.
std::vector<Json> reportLines(const std::string& text);

/// Waits until `condition` holds, at most a minute.
bool waitUntil(const std::function<bool()>& condition);

/// The processes below `process` in the tree, nearest first.
std::vector<pid_t> descendantsOf(pid_t process);
std::string statusField(pid_t process, const std::string& field);

class BatchTest : public ::testing::Test {
 protected:
  /// A movie of two seconds, 320 x 180, 25 frames a second.
  std::string movie() const { return movie_; }
  std::string out(const std::string& name = "") const { return folder_.file("out") + (name.empty() ? "" : "/" + name); }
  Json job(const std::string& destination) const;
  /// One that takes minutes.
  Json longJob(const std::string& destination) const;

  std::string writeList(const std::vector<Json>& jobs) const;
  static std::vector<std::string> command(const std::vector<std::string>& arguments);
  BatchResult runBatch(const std::vector<Json>& jobs, std::vector<std::string> options = {}) const;
  static BatchResult resultOf(RunResult run);

  /// Names of the private folders in out().
  std::vector<std::string> privateFolders() const;
  /// Waits until the long job has written its third picture.
  bool longJobIsAtWork() const;

  void SetUp() override;
  ScratchFolder folder_;
  std::string movie_;
};

}  // namespace vistrelle::testing
