#include "vistrelle/platform/imaging/tiff_stream.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {
namespace {

TiffStream& streamOf(thandle_t handle) {
  return *static_cast<TiffStream*>(handle);
}

tmsize_t readSome(thandle_t handle, void* target, tmsize_t count) {
  TiffStream& stream = streamOf(handle);
  if (count < 0 || stream.place >= stream.size) return 0;
  const std::size_t some = std::min(static_cast<std::size_t>(count), stream.size - stream.place);
  std::memcpy(target, stream.data + stream.place, some);
  stream.place += some;
  return static_cast<tmsize_t>(some);
}

tmsize_t readBack(thandle_t handle, void* target, tmsize_t count) {
  TiffStream& stream = streamOf(handle);
  stream.data = stream.written.data();
  stream.size = stream.written.size();
  return readSome(handle, target, count);
}

tmsize_t writeSome(thandle_t handle, void* bytes, tmsize_t count) {
  TiffStream& stream = streamOf(handle);
  if (count <= 0) return 0;
  const auto size = static_cast<std::size_t>(count);
  try {
    if (stream.place + size > stream.written.size()) stream.written.resize(stream.place + size);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  std::memcpy(stream.written.data() + stream.place, bytes, size);
  stream.place += size;
  return count;
}

tmsize_t refuse(thandle_t /*handle*/, void* /*bytes*/, tmsize_t /*count*/) {
  return 0;
}

toff_t seek(thandle_t handle, toff_t offset, int whence) {
  TiffStream& stream = streamOf(handle);
  const std::size_t end = std::max(stream.size, stream.written.size());
  const std::size_t base = whence == SEEK_CUR ? stream.place : whence == SEEK_END ? end : 0;
  stream.place = base + static_cast<std::size_t>(offset);
  return stream.place;
}

int closeNothing(thandle_t /*handle*/) {
  return 0;
}
toff_t sizeOf(thandle_t handle) {
  return std::max(streamOf(handle).size, streamOf(handle).written.size());
}
int mapNothing(thandle_t /*handle*/, void** /*base*/, toff_t* /*size*/) {
  return 0;
}
void unmapNothing(thandle_t /*handle*/, void* /*base*/, toff_t /*size*/) {}

/// Ends here: the library would print it to standard error.
int swallow(TIFF* /*tiff*/, void* /*user*/, const char* /*module*/, const char* /*words*/, va_list /*values*/) {
  return 1;
}

struct OptionsDeleter {
  void operator()(TIFFOpenOptions* options) const { TIFFOpenOptionsFree(options); }
};

/// What one allocation of the library may take: a raster of the largest size and the tenth that the library adds. A
/// file of a few bytes can name tiles far beyond its picture.
constexpr auto kMostBytesAtOnce = static_cast<tmsize_t>(Bitmap::kMaxPixels) * 5;

}  // namespace

TiffHandle openTiff(TiffStream& stream, bool forWriting) {
  const std::unique_ptr<TIFFOpenOptions, OptionsDeleter> options(TIFFOpenOptionsAlloc());
  if (!options) return nullptr;
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), swallow, nullptr);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), swallow, nullptr);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostBytesAtOnce);
  return TiffHandle(TIFFClientOpenExt("picture", forWriting ? "wm" : "rm", &stream, forWriting ? readBack : readSome,
                                      forWriting ? writeSome : refuse, seek, closeNothing, sizeOf, mapNothing,
                                      unmapNothing, options.get()));
}

}  // namespace vistrelle::platform
