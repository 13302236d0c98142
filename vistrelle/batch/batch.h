#pragma once

#include "vistrelle/batch/options.h"
#include "vistrelle/batch/performing.h"

namespace vistrelle {

/// Reads the list, has its jobs performed, writes the report; the exit status.
int runBatch(const BatchOptions& options, const WorkerOrders& orders);

/// vistrelle-batch: its arguments in, its exit status out.
int batchMain(int argc, const char* const* argv, bool (*wasMemoryRefused)());

}  // namespace vistrelle
