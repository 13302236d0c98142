// The reverse look-up of a title in a strings file: under 20 ms for 10,000 lines, and linear in the number of lines.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/system/localisation.h"

namespace {

/// A strings file of so many lines, with a comment over every tenth; removed at the end.
class StringsFile {
 public:
  explicit StringsFile(std::int64_t lines)
      : path_(vistrelle::platform::format("/tmp/strings-bench-{}-{}.strings", static_cast<int>(::getpid()), lines)) {
    std::ofstream file(path_);
    for (std::int64_t i = 0; i < lines; ++i) {
      if (i % 10 == 0) file << "/* group " << i / 10 << " */\n";
      file << "\"Title " << i << "\" = \"Été numéro " << i << "\";\n";
    }
  }
  ~StringsFile() { std::remove(path_.c_str()); }
  StringsFile(const StringsFile&) = delete;
  StringsFile& operator=(const StringsFile&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

void reverseLookUp(benchmark::State& state) {
  const StringsFile file(state.range(0));
  const std::string last = vistrelle::platform::format("Été numéro {}", state.range(0) - 1);
  for (auto _ : state) {
    auto key = vistrelle::localisedTitleFromStrings(last, file.path());
    if (!key || *key == last) state.SkipWithError("the last title was not found");
  }
  state.SetComplexityN(state.range(0));
}
BENCHMARK(reverseLookUp)->RangeMultiplier(10)->Range(1000, 100000)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace
