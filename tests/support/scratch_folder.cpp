#include "tests/support/scratch_folder.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vistrelle::testing {

ScratchFolder::ScratchFolder(Place place) {
  const bool inMemory = place == Place::memory && ::access("/dev/shm", W_OK) == 0;
  const std::filesystem::path parent = inMemory ? "/dev/shm" : std::filesystem::temp_directory_path();
  std::string pattern = (parent / "vistrelle-test-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string ScratchFolder::write(const std::string& name, const std::string& content) const {
  const std::filesystem::path path = file(name);
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path.string();
}

std::string ScratchFolder::makeFolder(const std::string& name) const {
  std::filesystem::create_directories(file(name));
  return file(name);
}

std::string readFile(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace vistrelle::testing
