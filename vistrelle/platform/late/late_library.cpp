#include "vistrelle/platform/late/late_library.h"

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace {

using vistrelle::platform::LateFunction;
using vistrelle::platform::LateLibrary;

vistrelle::platform::LateFailure lateFailure = nullptr;

[[noreturn]] void endProcess() {
  const char* reason = ::dlerror();
  if (lateFailure != nullptr) lateFailure(reason == nullptr ? "unknown" : reason);
  std::fprintf(stderr, "%s: error while loading shared libraries: %s\n", program_invocation_short_name,
               reason == nullptr ? "unknown" : reason);
  std::_Exit(127);
}

void* handleOf(LateLibrary& library) {
  const std::atomic_ref handle(library.handle);
  if (void* loaded = handle.load(std::memory_order_acquire)) return loaded;
  // Only a name, so the loader looks where it looks for every library. Two threads that come here at once get the same
  // handle. It is never closed: functions of the library may be running when the process ends.
  void* loaded = ::dlopen(library.name, RTLD_LAZY | RTLD_LOCAL);
  if (loaded == nullptr) endProcess();
  handle.store(loaded, std::memory_order_release);
  return loaded;
}

}  // namespace

void vistrelle::platform::onLateFailure(LateFailure failure) {
  lateFailure = failure;
}

void* vistrelleLateResolve(LateFunction* function) {
  void* address = ::dlsym(handleOf(*function->library), function->name);
  if (address == nullptr) endProcess();
  std::atomic_ref(function->address).store(address, std::memory_order_release);
  return address;
}
