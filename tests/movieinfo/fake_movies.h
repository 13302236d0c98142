#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/fake_movie.h"
#include "tests/support/recording_log.h"
#include "tests/support/scratch_folder.h"
#include "vistrelle/movie/loader.h"

namespace vistrelle::testing {

/// Files that open as the movies a test gives them; the log from the start of the test on.
class FakeMovies : public ::testing::Test {
 protected:
  ~FakeMovies() override {
    MYMOVIEset(nullptr);
    MYMOVIEpathSet(std::nullopt);
  }

  /// The path of a movie.
  std::string add(std::shared_ptr<platform::Asset> movie, const std::string& name = "a.mov") {
    const std::string path = folder.write(name, "movie");
    library->movies[path] = std::move(movie);
    return path;
  }
  /// The path of a movie of ten seconds with these tracks.
  std::string add(std::vector<std::shared_ptr<platform::Track>> tracks) {
    auto movie = std::make_shared<FakeAsset>();
    movie->trackList = std::move(tracks);
    return add(std::move(movie));
  }
  /// The path of a file that is no movie.
  std::string addUnreadable() { return folder.write("broken.mov", "nothing"); }

  /// What was logged from the first line that is exactly `line` on; empty without it.
  std::vector<std::string> linesFrom(const std::string& line) const {
    auto lines = record().lines();
    std::size_t skipped = 0;
    while (skipped < lines.size() && lines[skipped] != line) ++skipped;
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(skipped));
    return lines;
  }
  RecordingLog& record() const { return *record_; }
  void beVerbose() {
    record_.reset();
    record_ = std::make_unique<RecordingLog>(true);
  }

  ScratchFolder folder;
  std::shared_ptr<FakeLibrary> library = std::make_shared<FakeLibrary>();

 private:
  platform::Installed<platform::MediaLibrary> libraryInstalled_{platform::mediaLibrary(), library};
  platform::Installed<platform::Clock> clockInstalled_{platform::clock(), std::make_shared<CountingClock>()};
  std::unique_ptr<RecordingLog> record_ = std::make_unique<RecordingLog>();
};

}  // namespace vistrelle::testing
