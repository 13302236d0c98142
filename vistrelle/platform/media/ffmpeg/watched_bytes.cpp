#include "vistrelle/platform/media/ffmpeg/watched_bytes.h"

#include <atomic>
#include <cerrno>
#include <utility>

namespace vistrelle::platform {
namespace {

struct Failures {
  std::atomic<std::int64_t> count = 0;
  std::atomic<int> cause = 0;
};

class WatchedBytes : public InputBytes {
 public:
  WatchedBytes(std::shared_ptr<InputBytes> inner, std::shared_ptr<Failures> failures)
      : inner_(std::move(inner)), failures_(std::move(failures)) {}

  std::int64_t size() const override { return inner_->size(); }
  void willRead(std::int64_t offset, std::int64_t length) override { inner_->willRead(offset, length); }
  ReadFailures readFailures() const override { return {failures_->count, failures_->cause}; }

  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    const std::int64_t count = inner_->readAt(offset, buffer);
    const bool isCutOff = count == 0 && offset < size() && !buffer.empty();
    if (count >= 0 && !isCutOff) return count;
    failures_->cause = isCutOff ? ENODATA : static_cast<int>(-count);
    ++failures_->count;
    return isCutOff ? -ENODATA : count;
  }

  std::shared_ptr<InputBytes> openReference(const std::string& relativePath, std::string* error) override {
    std::shared_ptr<InputBytes> opened = inner_->openReference(relativePath, error);
    return opened ? std::make_shared<WatchedBytes>(std::move(opened), failures_) : nullptr;
  }

 private:
  std::shared_ptr<InputBytes> inner_;
  std::shared_ptr<Failures> failures_;
};

}  // namespace

std::shared_ptr<InputBytes> watchedBytes(std::shared_ptr<InputBytes> bytes) {
  return std::make_shared<WatchedBytes>(std::move(bytes), std::make_shared<Failures>());
}

}  // namespace vistrelle::platform
