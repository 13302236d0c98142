#include "vistrelle/platform/imaging/jp2_stream.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace vistrelle::platform {
namespace {

constexpr std::size_t kBuffer = 1 << 20;
constexpr auto kEnd = static_cast<OPJ_SIZE_T>(-1);

Jp2Memory& memoryOf(void* user) {
  return *static_cast<Jp2Memory*>(user);
}

OPJ_SIZE_T readSome(void* target, OPJ_SIZE_T count, void* user) {
  Jp2Memory& memory = memoryOf(user);
  if (memory.place >= memory.size) return kEnd;
  const std::size_t some = std::min(count, memory.size - memory.place);
  std::memcpy(target, memory.data + memory.place, some);
  memory.place += some;
  return some;
}

OPJ_SIZE_T writeSome(void* bytes, OPJ_SIZE_T count, void* user) {
  Jp2Memory& memory = memoryOf(user);
  try {
    if (memory.place + count > memory.written.size()) memory.written.resize(memory.place + count);
  } catch (const std::bad_alloc&) {
    return kEnd;
  }
  std::memcpy(memory.written.data() + memory.place, bytes, count);
  memory.place += count;
  return count;
}

OPJ_OFF_T skipForward(OPJ_OFF_T count, void* user) {
  Jp2Memory& memory = memoryOf(user);
  if (count < 0) return -1;
  memory.place += static_cast<std::size_t>(count);
  return count;
}

OPJ_BOOL seekTo(OPJ_OFF_T place, void* user) {
  if (place < 0) return OPJ_FALSE;
  memoryOf(user).place = static_cast<std::size_t>(place);
  return OPJ_TRUE;
}

void ignore(const char* /*message*/, void* /*user*/) {}

}  // namespace

Jp2Stream openJp2(Jp2Memory& memory, bool forReading) {
  Jp2Stream stream(opj_stream_create(kBuffer, forReading ? OPJ_TRUE : OPJ_FALSE));
  if (!stream) return nullptr;
  opj_stream_set_user_data(stream.get(), &memory, nullptr);
  opj_stream_set_user_data_length(stream.get(), memory.size);
  opj_stream_set_read_function(stream.get(), readSome);
  opj_stream_set_write_function(stream.get(), writeSome);
  opj_stream_set_skip_function(stream.get(), skipForward);
  opj_stream_set_seek_function(stream.get(), seekTo);
  return stream;
}

void silence(opj_codec_t* codec) {
  opj_set_info_handler(codec, ignore, nullptr);
  opj_set_warning_handler(codec, ignore, nullptr);
  opj_set_error_handler(codec, ignore, nullptr);
}

}  // namespace vistrelle::platform
