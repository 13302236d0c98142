#pragma once

#include <memory>
#include <string>
#include <vector>

#include "vistrelle/batch/job.h"
#include "vistrelle/batch/outcome.h"
#include "vistrelle/batch/recording.h"
#include "vistrelle/platform/jobs/worker_pool.h"

namespace vistrelle {

/// What a worker process is told.
struct WorkerOrders {
  bool isVerbose = false;  ///< the generator's lines go to standard error
  /// Whether memory was refused to this process, after which none of its pictures can be trusted; may be empty.
  bool (*wasMemoryRefused)() = nullptr;
};

/// Has libraries loaded and tables built that every worker needs, so that those forked afterwards have them.
void loadBatchLibraries();

/// Prepares a worker process: movies are decoded in confined processes that it starts, what the generator says is
/// written down, and a job is one line as it stands in the list. Answers are the fields of its report line as JSON. The
/// task {"clean": PATH} removes what a killed worker left at PATH and answers {}.
platform::WorkerSetup workerSetup(const WorkerOrders& orders);

/// Has the generator make the pictures of a job in a private folder and moves them to their places. `record` is what
/// stands before the objects in use (recording.h).
Outcome performJob(const BatchJob& job, JobRecord& record);

/// The text of the task that cleans up after a killed worker.
std::string cleaningTask(const BatchJob& job);

}  // namespace vistrelle
