#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/file_io.h"
#include "vistrelle/platform/media/ffmpeg/frame_generator.h"
#include "vistrelle/platform/media/ffmpeg/movie_source.h"

namespace vistrelle::testing {

/// The folder of the movies that tests/data/make_movies.sh makes, in the folder the tests run in. Made on first use;
/// what is there already is kept. VISTRELLE_MADE_MOVIES names another one.
inline const std::string& madeMovies() {
  static const std::string folder = [] {
    const char* given = std::getenv("VISTRELLE_MADE_MOVIES");
    const std::string path = given != nullptr ? given : (std::filesystem::current_path() / "made_movies").string();
    const std::string command = std::string("exec '") + VISTRELLE_TEST_DATA "/make_movies.sh' '" + path + "'";
    if (std::system(command.c_str()) != 0) return std::string();
    return path;
  }();
  return folder;
}

/// The entries of a folder by name.
inline std::vector<std::string> filesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    if (entry.is_regular_file()) names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

struct OpenedMovie {
  std::shared_ptr<platform::MovieSource> source;
  std::string error;

  explicit OpenedMovie(const std::string& path) {
    auto bytes = platform::InputFile::open(path, &error);
    if (bytes) source = platform::MovieSource::open(std::move(bytes), std::make_shared<platform::Interrupt>(), &error);
  }
  bool hasPictures() const { return source && source->pictureStream() >= 0; }
  std::unique_ptr<platform::FrameGenerator> generator(const platform::FrameOptions& options = {}) const {
    return platform::makeFrameGenerator(source, source->pictureStream(), options);
  }
};

}  // namespace vistrelle::testing
