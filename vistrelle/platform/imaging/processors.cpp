#include "vistrelle/platform/imaging/processors.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <vector>

namespace vistrelle::platform {
namespace {

constexpr std::int64_t kPixelsOfThread = 200'000;  // below this a thread costs more than it gives
constexpr std::int64_t kMostThreads = 4;

}  // namespace

int threadsFor(std::int64_t pixels) {
  static const std::int64_t processors = std::max(1U, std::thread::hardware_concurrency());
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
