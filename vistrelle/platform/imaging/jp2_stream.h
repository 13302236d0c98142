#pragma once

#include <openjpeg.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace vistrelle::platform {

// The library's stream and codec are both void to it: each has its own deleter.
struct Jp2StreamDeleter {
  void operator()(opj_stream_t* stream) const { opj_stream_destroy(stream); }
};
struct Jp2CodecDeleter {
  void operator()(opj_codec_t* codec) const { opj_destroy_codec(codec); }
};
struct Jp2ImageDeleter {
  void operator()(opj_image_t* image) const { opj_image_destroy(image); }
};
using Jp2Stream = std::unique_ptr<opj_stream_t, Jp2StreamDeleter>;
using Jp2Codec = std::unique_ptr<opj_codec_t, Jp2CodecDeleter>;
using Jp2Image = std::unique_ptr<opj_image_t, Jp2ImageDeleter>;

/// A JPEG 2000 file in memory: written to `written`, or read from `data`.
struct Jp2Memory {
  std::vector<std::uint8_t> written;
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
  std::size_t place = 0;
};

/// The memory must outlive the stream. Empty when memory is short.
Jp2Stream openJp2(Jp2Memory& memory, bool forReading);
/// The library's messages go nowhere.
void silence(opj_codec_t* codec);

}  // namespace vistrelle::platform
