#pragma once

#include <cstdint>
#include <memory>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"
#include "vistrelle/platform/media/ffmpeg/input_file.h"

namespace vistrelle::platform {

/// Reads `bytes` for libavformat, from a position of its own. At the end it reports AVERROR_EOF and nothing else;
/// after an interrupt AVERROR_EXIT.
class ByteReader {
 public:
  ByteReader(std::shared_ptr<InputBytes> bytes, std::shared_ptr<Interrupt> interrupt);
  ByteReader(const ByteReader&) = delete;
  ByteReader& operator=(const ByteReader&) = delete;

  /// Null when memory was short.
  AVIOContext* context() const { return context_.get(); }
  /// Bytes really read so far.
  std::int64_t bytesRead() const { return bytesRead_; }

 private:
  static int read(void* opaque, std::uint8_t* buffer, int size);
  static std::int64_t seek(void* opaque, std::int64_t offset, int whence);

  std::shared_ptr<InputBytes> bytes_;
  std::shared_ptr<Interrupt> interrupt_;
  std::int64_t position_ = 0;
  std::int64_t bytesRead_ = 0;
  AvPtr<AVIOContext> context_;
};

}  // namespace vistrelle::platform
