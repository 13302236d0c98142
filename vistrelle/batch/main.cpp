#include <unistd.h>

#include <new>

#include "vistrelle/batch/batch.h"
#include "vistrelle/cli/entry.h"
#include "vistrelle/cli/last_words.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/confined/refused_memory.h"
#ifdef VISTRELLE_LATE_LOADING
#include "vistrelle/platform/late/late_library.h"
#endif

namespace vistrelle {
namespace {
pid_t batchProcess = -1;
}

/// What cli/allocation.cpp calls when memory is refused that no library can do without. In a worker the status tells
/// why; in the batch itself the jobs at work end with it.
void sayLastWords(const char* reason) {
  if (::getpid() != batchProcess) ::_exit(platform::kOutOfMemoryStatus);
  constexpr const char* kBeginning = "Error          : ";
  for (const char* text : {kBeginning, reason, "\n"}) {
    for (; *text != '\0'; ++text) (void)!::write(STDERR_FILENO, text, 1);
  }
  ::_exit(1);
}

}  // namespace vistrelle

int main(int argc, char** argv) {
  vistrelle::prepareProcess();
  vistrelle::batchProcess = ::getpid();
#ifdef VISTRELLE_LATE_LOADING
  vistrelle::platform::onLateFailure(&vistrelle::sayLastWords);
#endif
  try {
    return vistrelle::batchMain(argc, argv, &vistrelle::wasMemoryRefused);
  } catch (const std::bad_alloc&) {
    vistrelle::sayLastWords("out of memory");
  }
}
