// Calls a fuzz target with every file that is named, or lies in a folder that is named: no fuzzer needed. A find ends
// the process, and the last line names its input.

#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputsAt(const std::filesystem::path& place) {
  if (!std::filesystem::is_directory(place)) return {place};
  std::vector<std::filesystem::path> inputs;
  for (const auto& entry : std::filesystem::directory_iterator(place)) {
    if (entry.is_regular_file()) inputs.push_back(entry.path());
  }
  return inputs;
}

void replay(const std::filesystem::path& input) {
  std::printf("%s\n", input.c_str());
  std::fflush(stdout);
  std::ifstream file(input, std::ios::binary);
  if (!file) throw std::runtime_error("it cannot be read");
  const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
  int count = 0;
  try {
    for (const char* place : std::vector<const char*>(argv + 1, argv + argc)) {
      for (const auto& input : inputsAt(place)) {
        replay(input);
        ++count;
      }
    }
  } catch (const std::exception& failure) {
    std::printf("%s\n", failure.what());
    return 1;
  }
  std::printf("%d inputs\n", count);
  return count > 0 ? 0 : 1;
}
