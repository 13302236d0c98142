// The tool's own allocation functions: those of the C library, or of what is preloaded, with an eye on refusals. They
// are in the tool alone; a host keeps its own.
#include <dlfcn.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>

#include "vistrelle/cli/last_words.h"
#include "vistrelle/platform/media/confined/refused_memory.h"

// The sanitizers bring their own, and end the process themselves.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

namespace {

/// The next function of a name in the loader's order. Looked up at the first call, which may come before any
/// constructor has run.
template <typename Function>
class Next {
 public:
  explicit constexpr Next(const char* name) : name_(name) {}
  Function* get() {
    Function* function = function_.load(std::memory_order_relaxed);
    if (function != nullptr) return function;
    function = reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name_));
    if (function == nullptr) ::_exit(vistrelle::platform::kOutOfMemoryStatus);
    function_.store(function, std::memory_order_relaxed);
    return function;
  }

 private:
  const char* name_;
  std::atomic<Function*> function_ = nullptr;
};

constinit Next<void*(size_t)> nextMalloc("malloc");
constinit Next<void*(size_t, size_t)> nextCalloc("calloc");
constinit Next<void*(void*, size_t)> nextRealloc("realloc");
constinit Next<void*(size_t, size_t)> nextMemalign("memalign");
constinit Next<void*(size_t, size_t)> nextAlignedAlloc("aligned_alloc");
constinit Next<int(void**, size_t, size_t)> nextPosixMemalign("posix_memalign");

bool isRefused(const void* block, size_t size) {
  return block == nullptr && size > 0;
}

constexpr size_t kSmall = 64 * 1024;
std::atomic<bool> hasRefused = false;

void* seen(void* block, size_t size) {
  if (isRefused(block, size)) {
    if (vistrelle::platform::endsOnRefusedMemory) ::_exit(vistrelle::platform::kOutOfMemoryStatus);
    // Some libraries do not survive it. Large requests, those for pictures, are refused in order by whoever makes them.
    if (size <= kSmall) vistrelle::sayLastWords("out of memory");
    hasRefused = true;
  }
  return block;
}

}  // namespace

extern "C" {

void* malloc(size_t size) noexcept {
  return seen(nextMalloc.get()(size), size);
}
void* calloc(size_t count, size_t size) noexcept {
  return seen(nextCalloc.get()(count, size), count != 0 && size > SIZE_MAX / count ? SIZE_MAX : count * size);
}
void* realloc(void* block, size_t size) noexcept {
  return seen(nextRealloc.get()(block, size), size);
}
void* memalign(size_t alignment, size_t size) noexcept {
  return seen(nextMemalign.get()(alignment, size), size);
}
void* aligned_alloc(size_t alignment, size_t size) noexcept {
  return seen(nextAlignedAlloc.get()(alignment, size), size);
}
int posix_memalign(void** block, size_t alignment, size_t size) noexcept {
  const int code = nextPosixMemalign.get()(block, alignment, size);
  if (code != 0) seen(nullptr, size);
  return code;
}

}  // extern "C"

bool vistrelle::wasMemoryRefused() {
  return hasRefused;
}

#else

bool vistrelle::wasMemoryRefused() {
  return false;
}

#endif
