#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace vistrelle::platform {

/// What a movie may cost before it is refused.
struct MediaLimits {
  std::size_t maxAllocation = std::size_t{256} << 20;  ///< one allocation of FFmpeg's
  std::int64_t maxPixels = std::int64_t{1} << 28;      ///< of a frame
  int maxStreams = 100;
  std::int64_t probeBytes = std::int64_t{5} << 20;           ///< looked at to find missing facts
  std::int64_t analyzeMicroseconds = std::int64_t{5000000};  ///< of the movie, for the same
  std::chrono::milliseconds opening{60000};                  ///< until its facts are known

  /// Whether a frame of this size is within the limit.
  bool allowsFrame(std::int64_t width, std::int64_t height) const { return width <= 0 || height <= maxPixels / width; }
};

/// What readings of one movie watch: every read and every library call ends soon when nobody waits for the movie any
/// more, or the time for it is over. Carries the limits that hold for them.
struct Interrupt {
  using Clock = std::chrono::steady_clock;

  Interrupt() = default;
  explicit Interrupt(const MediaLimits& mediaLimits) : limits(mediaLimits) {}

  const MediaLimits limits{};
  std::atomic<bool> requested = false;
  std::atomic<Clock::time_point> deadline = Clock::time_point::max();

  bool isDue() const { return requested || Clock::now() > deadline.load(); }
};

struct ReadFailures {
  std::int64_t count = 0;
  int cause = 0;  ///< errno of the last one
};

/// The bytes of a movie. Its length never changes; reads may come from several threads.
class InputBytes {
 public:
  virtual ~InputBytes() = default;
  virtual std::int64_t size() const = 0;
  /// Reads up to buffer.size() bytes at `offset`: how many came (0 at and after the end), or a negative errno.
  virtual std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) = 0;
  /// What has failed so far, where that is watched. libavformat takes some failures for the movie's end, so whoever
  /// worked with it looks here whether what came out can be believed.
  virtual ReadFailures readFailures() const { return {}; }
  /// Tells that a piece will soon be read; nothing needs to be done about it.
  virtual void willRead(std::int64_t /*offset*/, std::int64_t /*length*/) {}
  /// The bytes of another file that the movie refers to, by a path relative to the movie's folder. Empty with an
  /// error text where it is not a regular file beneath that folder reached without links.
  virtual std::shared_ptr<InputBytes> openReference(const std::string& relativePath, std::string* error);
};

/// A regular file, opened once without blocking; its length is that of the moment of opening.
class InputFile : public InputBytes {
 public:
  /// Empty with an error text for anything that is not a readable regular file (folder, FIFO, device, socket).
  static std::shared_ptr<InputFile> open(const std::string& path, std::string* error);
  ~InputFile() override;
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  std::int64_t size() const override { return size_; }
  /// For handing the open file to another process; this object goes on owning its own.
  int descriptor() const { return descriptor_; }
  std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) override;
  void willRead(std::int64_t offset, std::int64_t length) override;
  std::shared_ptr<InputBytes> openReference(const std::string& relativePath, std::string* error) override;

 private:
  InputFile(int descriptor, std::int64_t size, std::string folder)
      : descriptor_(descriptor), size_(size), folder_(std::move(folder)) {}
  static std::shared_ptr<InputFile> adopt(int descriptor, std::string folder, std::string* error);

  int descriptor_;
  std::int64_t size_;
  std::string folder_;  // empty: references are not followed
};

}  // namespace vistrelle::platform
