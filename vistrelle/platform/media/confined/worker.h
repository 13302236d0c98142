#pragma once

#include "vistrelle/platform/media/confined/channel.h"
#include "vistrelle/platform/media/confined/confinement.h"

namespace vistrelle::platform {

struct WorkerOptions {
  ConfinementLimits limits;
  Refusal refusal = Refusal::error;
};

/// The life of a worker: confines the process, then opens the movie that comes over `channel` and answers what is
/// asked of it, until the other end is gone. For a process of one thread that is nothing else; it does not change back.
void runWorker(const Channel& channel, const WorkerOptions& options);

}  // namespace vistrelle::platform
