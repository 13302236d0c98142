#pragma once

#include <functional>
#include <memory>
#include <string>

#include "vistrelle/platform/media/asset.h"

namespace vistrelle::platform {

/// What a writer of movies tells and asks while it works; called from the writer's thread.
struct ExportControl {
  std::function<void(double)> progress;  ///< from 0 to 1, never falling
  std::function<bool()> isCancelled;     ///< asked between samples
};

/// Whether every sound and picture sample of `asset` has a registered sample entry in a QuickTime movie; `reason`
/// names the first that has none.
bool canPassThrough(const Asset& asset, std::string* reason);

/// Writes the timeline of `asset` (a movie or a composition) as a QuickTime movie into the open file `fd`, samples
/// unchanged. False with an error text; the file's content is then worthless.
bool writePassthrough(Asset& asset, int fd, const ExportControl& control, std::string* error);

}  // namespace vistrelle::platform
