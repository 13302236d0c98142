#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/base/log.h"

namespace vistrelle::testing {

/// Records what is logged while it lives. Verbose is set as asked and put back afterwards.
class RecordingLog {
 public:
  explicit RecordingLog(bool verbose = false);
  ~RecordingLog();
  RecordingLog(const RecordingLog&) = delete;
  RecordingLog& operator=(const RecordingLog&) = delete;

  /// The messages so far, without prefix.
  std::vector<std::string> lines() const;
  /// The plain text so far, as it would stand on standard error.
  std::string plain() const;
  bool has(const std::string& line) const;
  /// How often exactly this line was logged.
  int count(const std::string& line) const;
  bool hasContaining(const std::string& piece) const;
  void clear();

 private:
  class Sink;
  std::shared_ptr<Sink> sink_;
  platform::Installed<platform::LogSink> installed_;
  bool formerVerbose_;
};

}  // namespace vistrelle::testing
