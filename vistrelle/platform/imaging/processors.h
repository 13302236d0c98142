#pragma once

#include <cstdint>
#include <functional>

namespace vistrelle::platform {

/// Lets this process, and those forked from it later, count on `count` processors at most, where several of them share
/// the machine. To be said before other threads start.
void limitProcessorShare(int count);
/// That limit; 0 when there is none.
int processorShareLimit();
/// So many processors within the limit.
int processorShareOf(int processors);

/// How many threads are worth their start for work on so many pixels: one for small pictures, never more than the
/// processors there are, and few at most.
int threadsFor(std::int64_t pixels);

/// Calls `work(first, last)` for parts of 0..count (`last` not included), as many as `threads`, on as many threads, the
/// calling one among them, and returns when all have ended. `work` must not throw. Fewer threads where none can be had.
void inParts(int count, int threads, const std::function<void(int, int)>& work);

}  // namespace vistrelle::platform
