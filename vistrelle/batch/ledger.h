#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "vistrelle/batch/job.h"

namespace vistrelle {

/// Which jobs were finished by an earlier run, and which job of this run has which destination. Costs a few words a
/// job, whatever its size.
class Ledger {
 public:
  /// Takes note of a line of an earlier report. False when its job is to be done again: it failed for a reason that
  /// passes, or the line cannot be read.
  bool addReported(const std::string& line);
  /// Whether an earlier run finished the job of that id; each line of its report stands for one.
  bool takeFinished(const std::string& id);

  enum class Claim {
    free,     ///< the destination was nobody's; it is this job's now
    same,     ///< an equal job of this list has it
    conflict  ///< another job has it
  };
  Claim claim(const BatchJob& job, std::uint64_t line);
  /// The line of the job that has the destination.
  std::uint64_t holder(const BatchJob& job) const;

 private:
  struct Holder {
    std::string id;
    std::uint64_t line = 0;
  };
  std::unordered_map<std::string, std::uint64_t> finished_;
  std::unordered_map<std::string, Holder> holders_;  // by textId of the destination
};

}  // namespace vistrelle
