#pragma once

#include <atomic>
#include <memory>

#include "vistrelle/movie/loader.h"
#include "vistrelle/platform/base/clock.h"

/// The loader's own state; other modules use the accessors of loader.h.
namespace vistrelle {

/// One asynchronous loading: shared by the loader and the completion handler, which runs on another thread.
struct LoadRequest {
  platform::Signal loaded;
  std::atomic<bool> abandoned{false};  ///< called off: the handler keeps silent
};

struct MovieSlot {
  Movie movie;
  platform::OptionalText path;
  std::shared_ptr<LoadRequest> unfinished;  ///< of a movie that was accepted before its loading had ended
};

MovieSlot& currentSlot();
MovieSlot& viewSlot();

/// Makes `request` the one that movieLoadedFlag looks at.
void setCurrentLoad(std::shared_ptr<LoadRequest> request);

}  // namespace vistrelle
