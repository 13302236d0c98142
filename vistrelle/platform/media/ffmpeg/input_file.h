#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace vistrelle::platform {

/// Set once when nobody waits for a movie any more: every read and every library call that watches it ends soon.
struct Interrupt {
  std::atomic<bool> requested = false;
};

/// The bytes of a movie. Its length never changes; reads may come from several threads.
class InputBytes {
 public:
  virtual ~InputBytes() = default;
  virtual std::int64_t size() const = 0;
  /// Reads up to buffer.size() bytes at `offset`: how many came (0 at and after the end), or a negative errno.
  virtual std::int64_t readAt(std::int64_t offset, std::span<std::uint8_t> buffer) = 0;
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
