#pragma once

#include <functional>
#include <thread>

namespace vistrelle::platform {

/// Starts `work` on a thread of its own, which takes none of the host's signals: those are for the host's threads.
/// Not joinable when no thread is to be had.
std::thread startListener(std::function<void()> work);

}  // namespace vistrelle::platform
