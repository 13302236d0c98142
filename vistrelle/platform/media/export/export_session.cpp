#include "vistrelle/platform/media/export/export_session.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/platform/files/size_signal_hold.h"
#include "vistrelle/platform/media/export/export_work.h"
#include "vistrelle/platform/media/export/output_file.h"

namespace vistrelle::platform {
namespace {

/// What a session and its thread share: the session may be dropped by its own completion.
struct ExportState {
  std::shared_ptr<Asset> asset;
  ExportWork work;
  std::string output;
  std::string fileType;
  std::atomic<float> progress{0};
  std::atomic<bool> cancelled{false};

  void run(const std::function<void()>& completion);
  bool write(std::string* error);
  void finish(ExportStatus status, OptionalText error);
  void fail(std::string error) { finish(ExportStatus::failed, std::move(error)); }
  ExportStatus status() const {
    const std::lock_guard lock(mutex_);
    return status_;
  }
  OptionalText error() const {
    const std::lock_guard lock(mutex_);
    return error_;
  }

 private:
  mutable std::mutex mutex_;
  ExportStatus status_ = ExportStatus::unknown;
  OptionalText error_;
};

void ExportState::finish(ExportStatus status, OptionalText error) {
  const std::lock_guard lock(mutex_);
  status_ = status;
  error_ = std::move(error);
}

bool ExportState::write(std::string* error) {
  if (output.empty()) {
    *error = "no output file is set";
    return false;
  }
  if (std::ranges::find(work.fileTypes, fileType) == work.fileTypes.end()) {
    *error = "the output file type is not supported";
    return false;
  }
  const std::unique_ptr<OutputFile> file = OutputFile::create(output, error);
  if (!file) return false;
  ExportControl control;
  control.isCancelled = [this] { return cancelled.load(); };
  control.progress = [this](double done) {
    progress = std::max(progress.load(), static_cast<float>(std::clamp(done, 0.0, 1.0)));
  };
  const SizeSignalHold hold;
  if (!work.write(*asset, file->fd(), control, error)) return false;
  return !cancelled && file->putInPlace(error);
}

void ExportState::run(const std::function<void()>& completion) {
  finish(ExportStatus::exporting, std::nullopt);
  std::string error;
  bool written = false;
  try {
    written = write(&error);
  } catch (const std::exception& exception) {
    error = exception.what();
  }
  if (written) {
    progress = 1;
    finish(ExportStatus::completed, std::nullopt);
  } else if (cancelled) {
    finish(ExportStatus::cancelled, std::nullopt);
  } else {
    fail(error.empty() ? "the movie could not be written" : error);
  }
  // What is held of the movie goes before anybody hears of the end.
  asset.reset();
  work.write = nullptr;
  if (completion) completion();
}

class Session : public ExportSession {
 public:
  Session(std::shared_ptr<Asset> asset, std::string presetName, ExportWork work)
      : state_(std::make_shared<ExportState>()), presetName_(std::move(presetName)), fileTypes_(work.fileTypes) {
    state_->asset = std::move(asset);
    state_->work = std::move(work);
    if (!fileTypes_.empty()) state_->fileType = fileTypes_.front();
  }
  ~Session() override;

  std::string description() const override { return format("<ExportSession: {}>", presetName_); }
  void setOutputUrl(const Url& url) override {
    if (!started_) state_->output = pathOfFileUrl(url.text);
  }
  void setOutputFileType(const std::string& type) override {
    if (!started_) state_->fileType = type;
    fileType_ = type;
  }
  std::string outputFileType() const override { return fileType_; }
  std::vector<std::string> supportedFileTypes() const override { return fileTypes_; }
  void exportAsynchronously(std::function<void()> completion) override;
  float progress() const override { return state_->progress; }
  ExportStatus status() const override { return state_->status(); }
  OptionalText error() const override { return state_->error(); }
  void cancelExport() override { state_->cancelled = true; }

 private:
  std::shared_ptr<ExportState> state_;
  const std::string presetName_;
  const std::vector<std::string> fileTypes_;
  std::string fileType_;
  bool started_ = false;
  std::thread thread_;
};

Session::~Session() {
  state_->cancelled = true;
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void Session::exportAsynchronously(std::function<void()> completion) {
  if (std::exchange(started_, true)) return;
  state_->finish(ExportStatus::waiting, std::nullopt);
  try {
    thread_ = std::thread([state = state_, completion] { state->run(completion); });
  } catch (const std::system_error& error) {
    state_->fail(error.what());
    if (completion) completion();
  }
}

}  // namespace

std::shared_ptr<ExportSession> makeExportSession(std::shared_ptr<Asset> asset, std::string presetName,
                                                 ExportWork work) {
  return std::make_shared<Session>(std::move(asset), std::move(presetName), std::move(work));
}

}  // namespace vistrelle::platform
