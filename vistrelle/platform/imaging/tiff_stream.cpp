#include "vistrelle/platform/imaging/tiff_stream.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

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

/// The library's error handlers are the process's; without them it prints to standard error.
void silence() {
  static const bool done = [] {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    return true;
  }();
  static_cast<void>(done);
}

}  // namespace

TiffHandle openTiff(TiffStream& stream, bool forWriting) {
  silence();
  return TiffHandle(TIFFClientOpen("picture", forWriting ? "wm" : "rm", &stream, forWriting ? readBack : readSome,
                                   forWriting ? writeSome : refuse, seek, closeNothing, sizeOf, mapNothing,
                                   unmapNothing));
}

}  // namespace vistrelle::platform
