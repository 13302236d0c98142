#include "vistrelle/batch/recording.h"

#include <utility>

#include "vistrelle/platform/base/format.h"

namespace vistrelle {
namespace {

using platform::Asset;
using platform::FrameResult;
using platform::ImageGenerator;
using platform::MediaTime;

constexpr std::size_t kMostFailures = 50;
constexpr std::string_view kFailureMark = ":-(";

class RecordingGenerator : public ImageGenerator {
 public:
  RecordingGenerator(std::unique_ptr<ImageGenerator> next, std::shared_ptr<JobRecord> record)
      : next_(std::move(next)), record_(std::move(record)) {}
  void setAppliesPreferredTrackTransform(bool applies) override { next_->setAppliesPreferredTrackTransform(applies); }
  void setApertureMode(platform::ApertureMode mode) override { next_->setApertureMode(mode); }
  void announce(std::span<const MediaTime> times) override { next_->announce(times); }
  FrameResult copyFrame(const MediaTime& time) override {
    // A job with a picture missing has failed, whatever else could be had at whatever cost.
    if (record_->hasFailedFrame()) return {nullptr, MediaTime::invalid(), "given up"};
    FrameResult result = next_->copyFrame(time);
    const bool hasPicture = result.picture != nullptr;
    record_->addFrame({time.seconds(), hasPicture ? result.actualTime.seconds() : 0, hasPicture, result.error});
    return result;
  }

 private:
  std::unique_ptr<ImageGenerator> next_;
  std::shared_ptr<JobRecord> record_;
};

class RecordingAsset : public Asset {
 public:
  RecordingAsset(std::shared_ptr<Asset> next, std::shared_ptr<JobRecord> record)
      : next_(std::move(next)), record_(std::move(record)) {}
  platform::AssetKind kind() const override { return next_->kind(); }
  void loadValuesAsynchronously(std::span<const std::string> keys, std::function<void()> completion) override {
    next_->loadValuesAsynchronously(keys, std::move(completion));
  }
  void cancelLoading() override { next_->cancelLoading(); }
  std::vector<std::shared_ptr<platform::Track>> tracks() const override { return next_->tracks(); }
  MediaTime duration() const override { return next_->duration(); }
  bool isPlayable() const override { return next_->isPlayable(); }
  bool hasProtectedContent() const override { return next_->hasProtectedContent(); }
  platform::Size naturalSize() const override { return next_->naturalSize(); }
  MediaTime headerDuration() const override { return next_->headerDuration(); }
  std::string description() const override { return next_->description(); }
  std::unique_ptr<ImageGenerator> makeImageGenerator() override {
    auto generator = next_->makeImageGenerator();
    if (!generator) return nullptr;
    return std::make_unique<RecordingGenerator>(std::move(generator), record_);
  }

 private:
  std::shared_ptr<Asset> next_;
  std::shared_ptr<JobRecord> record_;
};

class RecordingLibrary : public platform::MediaLibrary {
 public:
  RecordingLibrary(std::shared_ptr<MediaLibrary> next, std::shared_ptr<JobRecord> record)
      : next_(std::move(next)), record_(std::move(record)) {}
  std::shared_ptr<Asset> openAsset(const std::string& path, const platform::OpenOptions& options) override {
    auto asset = next_->openAsset(path, options);
    if (!asset) return nullptr;
    return std::make_shared<RecordingAsset>(std::move(asset), record_);
  }

 private:
  std::shared_ptr<MediaLibrary> next_;
  std::shared_ptr<JobRecord> record_;
};

class RecordingFiles : public platform::ForwardingFileManager {
 public:
  RecordingFiles(std::shared_ptr<FileManager> next, std::shared_ptr<JobRecord> record)
      : ForwardingFileManager(std::move(next)), record_(std::move(record)) {}
  platform::FileResult writeInPlace(const std::string& path, platform::Bytes bytes) override {
    platform::FileResult result = ForwardingFileManager::writeInPlace(path, bytes);
    record_->addWrite(result, std::ssize(bytes));
    return result;
  }

 private:
  std::shared_ptr<JobRecord> record_;
};

class RecordingLog : public platform::LogSink {
 public:
  RecordingLog(std::shared_ptr<LogSink> next, std::shared_ptr<JobRecord> record)
      : next_(std::move(next)), record_(std::move(record)) {}
  void message(std::string_view text) override {
    record_->addLine(text);
    if (next_) next_->message(text);
  }
  void plain(std::string_view text) override {
    if (next_) next_->plain(text);
  }
  bool showsToTerminal() const override { return next_ && next_->showsToTerminal(); }

 private:
  std::shared_ptr<LogSink> next_;
  std::shared_ptr<JobRecord> record_;
};

}  // namespace

void JobRecord::clear() {
  const std::lock_guard lock(mutex_);
  frames_.clear();
  hasFailedFrame_ = false;
  failures_.clear();
  writeError_ = 0;
  writeErrorText_.clear();
  bytesWritten_ = 0;
}

void JobRecord::addFrame(AskedFrame frame) {
  hasFailedFrame_ = hasFailedFrame_ || !frame.hasPicture;
  frames_.push_back(std::move(frame));
}

void JobRecord::addLine(std::string_view line) {
  if (line.find(kFailureMark) == std::string_view::npos) return;
  const std::lock_guard lock(mutex_);
  if (failures_.size() < kMostFailures) failures_.emplace_back(line);
}

void JobRecord::addWrite(const platform::FileResult& result, std::int64_t bytes) {
  if (result.ok()) {
    bytesWritten_ += bytes;
  } else if (writeError_ == 0) {
    writeError_ = result.code();
    writeErrorText_ = result.description();
  }
}

std::string JobRecord::openingError(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  const std::string beginning = platform::format("movie open          :-( '{}': ", path);
  for (const std::string& line : failures_) {
    if (line.starts_with(beginning)) return line.substr(beginning.size());
  }
  return {};
}

std::string JobRecord::firstFailure() const {
  const std::lock_guard lock(mutex_);
  if (failures_.empty()) return {};
  const std::string& line = failures_.front();
  const std::size_t begin = line.find_first_not_of("( ", line.find(kFailureMark) + kFailureMark.size());
  if (begin == std::string::npos) return line;
  return line.substr(begin, line.find_last_not_of(' ') + 1 - begin);
}

std::shared_ptr<platform::MediaLibrary> recordingLibrary(std::shared_ptr<platform::MediaLibrary> next,
                                                         std::shared_ptr<JobRecord> record) {
  return std::make_shared<RecordingLibrary>(std::move(next), std::move(record));
}

std::shared_ptr<platform::FileManager> recordingFiles(std::shared_ptr<platform::FileManager> next,
                                                      std::shared_ptr<JobRecord> record) {
  return std::make_shared<RecordingFiles>(std::move(next), std::move(record));
}

std::shared_ptr<platform::LogSink> recordingLog(std::shared_ptr<platform::LogSink> next,
                                                std::shared_ptr<JobRecord> record) {
  return std::make_shared<RecordingLog>(std::move(next), std::move(record));
}

}  // namespace vistrelle
