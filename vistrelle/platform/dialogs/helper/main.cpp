#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include "vistrelle/platform/dialogs/toolkit.h"

/// Shows one alert for the process that started it: vistrelle-dialog PLUG-IN, with a socket as descriptor 3.
int main(int argc, char** argv) {
  constexpr int kSocket = 3;
  if (argc != 2) return 2;
  // A toolkit that cannot reach its display aborts; that is an answer here, not a crash worth a core file.
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_CORE, &none);
  ::prctl(PR_SET_DUMPABLE, 0);
  void* library = ::dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  void* symbol = library ? ::dlsym(library, vistrelle::platform::kServeSymbol) : nullptr;
  return symbol ? reinterpret_cast<int (*)(int)>(symbol)(kSocket) : 3;
}
