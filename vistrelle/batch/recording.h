#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/media/asset.h"

/// What a worker writes down while the generator is at work: the generator answers yes or no only.
namespace vistrelle {

/// A frame that was asked for.
struct AskedFrame {
  double asked = 0;   ///< seconds
  double actual = 0;  ///< seconds; of the frame that was delivered
  bool hasPicture = false;
  std::string error;
};

/// Everything about one job. Lines may come from any thread.
class JobRecord {
 public:
  void clear();

  void addFrame(AskedFrame frame);
  void addLine(std::string_view line);
  void addWrite(const platform::FileResult& result, std::int64_t bytes);

  /// Those after one that could not be had are missing.
  const std::vector<AskedFrame>& frames() const { return frames_; }
  bool hasFailedFrame() const { return hasFailedFrame_; }
  /// Why the movie at `path` could not be opened, from the line that says so; empty when it could.
  std::string openingError(const std::string& path) const;
  /// What the first line that tells of a failure says, without its tag; empty when there is none.
  std::string firstFailure() const;
  /// The first picture that could not be written: an errno value, 0 for none, and its text.
  int writeError() const { return writeError_; }
  std::string writeErrorText() const { return writeErrorText_; }
  std::int64_t bytesWritten() const { return bytesWritten_; }

 private:
  mutable std::mutex mutex_;
  std::vector<AskedFrame> frames_;
  bool hasFailedFrame_ = false;
  std::vector<std::string> failures_;  // lines
  int writeError_ = 0;
  std::string writeErrorText_;
  std::int64_t bytesWritten_ = 0;
};

/// Stand before the objects in use and write down what passes; all else goes on to them.
std::shared_ptr<platform::MediaLibrary> recordingLibrary(std::shared_ptr<platform::MediaLibrary> next,
                                                         std::shared_ptr<JobRecord> record);
std::shared_ptr<platform::FileManager> recordingFiles(std::shared_ptr<platform::FileManager> next,
                                                      std::shared_ptr<JobRecord> record);
/// `next` may be empty: then nothing is shown.
std::shared_ptr<platform::LogSink> recordingLog(std::shared_ptr<platform::LogSink> next,
                                                std::shared_ptr<JobRecord> record);

}  // namespace vistrelle
