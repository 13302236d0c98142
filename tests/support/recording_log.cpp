#include "tests/support/recording_log.h"

#include <algorithm>

namespace vistrelle::testing {

class RecordingLog::Sink : public platform::LogSink {
 public:
  void message(std::string_view text) override {
    std::lock_guard lock(mutex);
    lines.emplace_back(text);
  }
  void plain(std::string_view text) override {
    std::lock_guard lock(mutex);
    plainText.append(text);
  }
  std::mutex mutex;
  std::vector<std::string> lines;
  std::string plainText;
};

RecordingLog::RecordingLog(bool verbose)
    : sink_(std::make_shared<Sink>()), installed_(platform::logSink(), sink_), formerVerbose_(isVerbose()) {
  setVerbose(verbose);
}

RecordingLog::~RecordingLog() {
  setVerbose(formerVerbose_);
}

std::vector<std::string> RecordingLog::lines() const {
  std::lock_guard lock(sink_->mutex);
  return sink_->lines;
}

std::string RecordingLog::plain() const {
  std::lock_guard lock(sink_->mutex);
  return sink_->plainText;
}

bool RecordingLog::has(const std::string& line) const {
  return count(line) > 0;
}

int RecordingLog::count(const std::string& line) const {
  const auto all = lines();
  return static_cast<int>(std::count(all.begin(), all.end(), line));
}

bool RecordingLog::hasContaining(const std::string& piece) const {
  const auto all = lines();
  return std::any_of(all.begin(), all.end(),
                     [&piece](const std::string& line) { return line.find(piece) != std::string::npos; });
}

void RecordingLog::clear() {
  std::lock_guard lock(sink_->mutex);
  sink_->lines.clear();
  sink_->plainText.clear();
}

}  // namespace vistrelle::testing
