#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "vistrelle/cli/entry.h"
#include "vistrelle/cli/last_words.h"
#include "vistrelle/platform/imaging/preparation.h"
#include "vistrelle/platform/media/confined/confined_library.h"

int main(int argc, char** argv) {
  vistrelle::prepareProcess();
  vistrelle::prepareLastWords(argc, argv);
  std::jthread preparation;
  try {
#if !defined(__SANITIZE_THREAD__)  // whose runtime has a thread of its own before main
    // The tool reads whatever file it is given, so movies are decoded where they can do no harm. Nothing is started
    // before the first one is opened; while the decoder gets ready this process does so too.
    vistrelle::platform::ConfinedOptions options;
    options.whenStarted = [&preparation] {
      try {
        preparation = std::jthread(&vistrelle::platform::prepareForPictures);
      } catch (const std::system_error&) {
        // No thread: it is done when it is needed.
      }
    };
    vistrelle::platform::mediaLibrary().install(std::make_shared<vistrelle::platform::ConfinedMediaLibrary>(options));
#endif
    const int status = vistrelle::vistrelleMain(argc, argv);
    if (status == 0 && vistrelle::wasMemoryRefused()) vistrelle::sayLastWords("out of memory");
    return status;
  } catch (const std::bad_alloc&) {
    // Nothing else: the range error of an option without its value is meant to end the process.
    vistrelle::sayLastWords("out of memory");
  }
}
