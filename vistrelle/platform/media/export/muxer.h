#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_ptr.h"

namespace vistrelle::platform {

/// Writes a movie into an open file through libavformat, which sees no name. After an error (false with a text) only
/// dropping it is left.
class Muxer {
 public:
  using Options = std::vector<std::pair<std::string, std::string>>;

  /// `muxer` is a name of libavformat's: "mov", "ipod". The descriptor stays the caller's.
  static std::unique_ptr<Muxer> open(int fd, const char* muxer, std::string* error);
  ~Muxer();
  Muxer(const Muxer&) = delete;
  Muxer& operator=(const Muxer&) = delete;

  /// A track for what `encoder`, which must be open, delivers. Empty when memory is short.
  AVStream* addStream(const AVCodecContext& encoder);
  /// A track for samples of sound as they are.
  AVStream* addStream(AVCodecID codec, int rate, const AVChannelLayout& layout);
  bool begin(const Options& options, std::string* error);
  /// Writes a packet of a stream whose times are in `timeBase`; the packet is empty afterwards.
  bool write(AVPacket& packet, const AVStream& stream, AVRational timeBase, std::string* error);
  bool finish(std::string* error);

 private:
  Muxer() = default;
  static int writeBytes(void* opaque, std::uint8_t* bytes, int count);
  static std::int64_t seek(void* opaque, std::int64_t offset, int whence);
  bool check(int status, std::string* error);

  int fd_ = -1;
  std::int64_t position_ = 0;
  std::int64_t size_ = 0;
  int failure_ = 0;  // what the file system answered first
  AVFormatContext* context_ = nullptr;
  AvPtr<AVIOContext> io_;
};

/// Hands a frame (none for "no more") to an encoder and what comes out of it to a writer.
bool encodeInto(Muxer& writer, const AVStream& stream, AVCodecContext& encoder, const AVFrame* frame,
                std::string* error);

}  // namespace vistrelle::platform
