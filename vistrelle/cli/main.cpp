#include <memory>
#include <new>

#include "vistrelle/cli/entry.h"
#include "vistrelle/cli/last_words.h"
#include "vistrelle/platform/media/confined/confined_library.h"

int main(int argc, char** argv) {
  vistrelle::prepareProcess();
  vistrelle::prepareLastWords(argc, argv);
  try {
#if !defined(__SANITIZE_THREAD__)  // whose runtime has a thread of its own before main
    // The tool reads whatever file it is given, so movies are decoded where they can do no harm. Nothing is started
    // before the first one is opened.
    vistrelle::platform::mediaLibrary().install(std::make_shared<vistrelle::platform::ConfinedMediaLibrary>());
#endif
    const int status = vistrelle::vistrelleMain(argc, argv);
    if (status == 0 && vistrelle::wasMemoryRefused()) vistrelle::sayLastWords("out of memory");
    return status;
  } catch (const std::bad_alloc&) {
    // Nothing else: the range error of an option without its value is meant to end the process.
    vistrelle::sayLastWords("out of memory");
  }
}
