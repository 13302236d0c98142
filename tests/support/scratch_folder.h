#pragma once

#include <string>

namespace vistrelle::testing {

/// A fresh empty folder under the system's temporary folder, removed with all it holds at the end.
class ScratchFolder {
 public:
  enum class Place {
    temporary,
    memory,  ///< in memory where the system has such a place: for tests with very many files
  };
  explicit ScratchFolder(Place place = Place::temporary);
  ~ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  const std::string& path() const { return path_; }
  /// Full path of an entry: path() + "/" + name.
  std::string file(const std::string& name) const { return path_ + "/" + name; }
  /// Writes a file (its folders are made) and returns its full path.
  std::string write(const std::string& name, const std::string& content) const;
  std::string makeFolder(const std::string& name) const;

 private:
  std::string path_;
};

/// The whole content of a file; empty when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace vistrelle::testing
