#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"

// A tree of 100,000 files in 100 folders, against the system's own tools on the same tree. "find" and "du" pay for
// starting a process, a millisecond or two of theirs.
namespace {

class Tree {
 public:
  Tree() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vistrelle-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    path = pattern;
    for (int folder = 0; folder < 100; ++folder) {
      const std::string name = path + "/" + std::to_string(folder);
      ::mkdir(name.c_str(), 0755);
      const int descriptor = ::open(name.c_str(), O_RDONLY | O_DIRECTORY);
      for (int file = 0; file < 1000; ++file) {
        ::close(::openat(descriptor, ("a movie " + std::to_string(file) + ".mov").c_str(), O_WRONLY | O_CREAT, 0644));
      }
      ::close(descriptor);
    }
  }
  ~Tree() { std::filesystem::remove_all(path); }
  std::string path;
};

const std::string& tree() {
  static const Tree instance;
  return instance.path;
}

void runTool(benchmark::State& state, const std::string& command) {
  const std::string& folder = tree();  // made before the clock runs
  for (auto _ : state) {
    if (std::system((command + " '" + folder + "' > /dev/null").c_str()) != 0) state.SkipWithError("failed");
  }
}

void listAll(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(vistrelle::listAllPathsCocoa(tree()));
}
void sizeAll(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(vistrelle::folderSizeMo(tree()));
}
void find(benchmark::State& state) {
  runTool(state, "find");
}
void du(benchmark::State& state) {
  runTool(state, "du -s");
}

void existence(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(vistrelle::testPresenceCocoa(tree() + "/0/a movie 0.mov"));
}

BENCHMARK(find)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(listAll)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(du)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(sizeAll)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(existence)->Unit(benchmark::kMicrosecond);

}  // namespace
