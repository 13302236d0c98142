#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vistrelle/batch/job.h"
#include "vistrelle/platform/base/value.h"

namespace vistrelle {

/// What came of a job, in the words of the report.
inline constexpr const char* kDone = "done";
inline constexpr const char* kExists = "exists";
inline constexpr const char* kBadInput = "bad input";
inline constexpr const char* kTemporaryFailure = "temporary failure";
inline constexpr const char* kTimeout = "timeout";
inline constexpr const char* kCrashed = "crashed";

/// A picture that was delivered, or stood there.
struct BatchFile {
  std::string path;
  std::int64_t bytes = 0;
  double asked = 0;   ///< seconds; of a picture that was made
  double actual = 0;  ///< seconds; of the frame that it shows
};

struct Outcome {
  std::string status;
  std::string reason;  ///< empty for success
  std::vector<BatchFile> files;
  double seconds = 0;

  bool isSuccess() const { return status == kDone || status == kExists; }
};

/// Whether the errno value tells of a state that passes: a full disk, no memory, a server that does not answer.
bool isTemporary(int error);
/// The failure that belongs to an errno value.
Outcome failureOf(int error, const std::string& what);
/// The failure that the words of a decoder's user stand for ("the decoder ended: signal 11 (Segmentation fault)").
Outcome failureOfDecoder(const std::string& words, const std::string& which);

/// The fields of a report line about `job`: status, reason, files, seconds.
platform::Dictionary reportFields(const Outcome& outcome, const BatchJob& job);

}  // namespace vistrelle
