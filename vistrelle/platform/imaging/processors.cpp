#include "vistrelle/platform/imaging/processors.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kPixelsOfThread = 200'000;  // below this a thread costs more than it gives
constexpr std::int64_t kMostThreads = 4;

// A global: what a fork inherits. 0: not limited.
int shareLimit = 0;

}  // namespace

void limitProcessorShare(int count) {
  shareLimit = count;
}

int processorShareLimit() {
  return shareLimit;
}

int processorShareOf(int processors) {
  return shareLimit > 0 ? std::min(processors, shareLimit) : processors;
}

int threadsFor(std::int64_t pixels) {
  static const int present = static_cast<int>(std::max(1U, std::thread::hardware_concurrency()));
  const std::int64_t processors = processorShareOf(present);
  return static_cast<int>(std::clamp(pixels / kPixelsOfThread, std::int64_t{1}, std::min(processors, kMostThreads)));
}

void inParts(int count, int threads, const std::function<void(int, int)>& work) {
  const auto start = [=](int part) { return static_cast<int>(std::int64_t{count} * part / threads); };
  std::vector<std::thread> others;
  others.reserve(static_cast<std::size_t>(threads));
  int own = 0;  // the parts up to here are done by this thread
  for (int part = threads - 1; part > 0; --part) {
    try {
      others.emplace_back(work, start(part), start(part + 1));
    } catch (const std::system_error&) {
      own = part;
      break;
    }
  }
  work(0, start(own + 1));
  for (std::thread& other : others) other.join();
}

}  // namespace vistrelle::platform
