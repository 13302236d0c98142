#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/ffmpeg/file_io.h"

namespace vistrelle::testing {

constexpr std::chrono::seconds kLong{20};

/// A movie of tests/data.
inline std::string dataFile(const std::string& name) {
  return std::string(VISTRELLE_TEST_DATA) + "/" + name;
}

/// Waits for the end of loading; false when it does not come.
inline bool load(platform::Asset& asset) {
  auto ended = std::make_shared<platform::Signal>();
  asset.loadValuesAsynchronously({}, [ended] { ended->set(); });
  return ended->waitReal(kLong);
}

/// The loaded asset; empty when it cannot be opened or loading does not end.
inline std::shared_ptr<platform::Asset> loaded(const std::string& path) {
  std::shared_ptr<platform::Asset> asset = platform::mediaLibrary().get()->openAsset(path, {});
  return asset && load(*asset) ? asset : nullptr;
}

/// Counts what is read of other bytes.
class CountedBytes : public platform::InputBytes {
 public:
  explicit CountedBytes(std::shared_ptr<platform::InputBytes> inner) : inner_(std::move(inner)) {}
  std::int64_t size() const override { return inner_->size(); }
  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override {
    const std::int64_t count = inner_->readAt(offset, buffer);
    if (count > 0) read_ += count;
    return count;
  }
  std::shared_ptr<platform::InputBytes> openReference(const std::string& path, std::string* error) override {
    return inner_->openReference(path, error);
  }
  std::int64_t read() const { return read_; }

 private:
  std::shared_ptr<platform::InputBytes> inner_;
  std::atomic<std::int64_t> read_ = 0;
};

/// Bytes whose reads stand still until they are released: a disk that does not answer.
class StalledBytes : public platform::InputBytes {
 public:
  std::int64_t size() const override { return 1 << 20; }
  std::int64_t readAt(std::int64_t, std::span<std::uint8_t>) override {
    reached_.set();
    released_.waitReal(kLong);
    return -5;
  }
  platform::Signal& reached() { return reached_; }
  platform::Signal& released() { return released_; }

 private:
  platform::Signal reached_;
  platform::Signal released_;
};

}  // namespace vistrelle::testing
