#include <memory>

#include "vistrelle/cli/entry.h"
#include "vistrelle/platform/media/confined/confined_library.h"

int main(int argc, char** argv) {
  vistrelle::prepareProcess();
  // The tool reads whatever file it is given, so movies are decoded where they can do no harm. Nothing is started
  // before the first one is opened.
  vistrelle::platform::mediaLibrary().install(std::make_shared<vistrelle::platform::ConfinedMediaLibrary>());
  return vistrelle::vistrelleMain(argc, argv);
}
