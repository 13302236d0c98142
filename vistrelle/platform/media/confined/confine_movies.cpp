#include "vistrelle/platform/media/confined/confine_movies.h"

#include <memory>

#include "vistrelle/platform/media/confined/confined_library.h"

namespace vistrelle::platform {

bool confineMovies() {
  const auto library = std::make_shared<ConfinedMediaLibrary>();
  const bool isConfined = library->prepare();
  mediaLibrary().install(library);
  return isConfined;
}

}  // namespace vistrelle::platform
