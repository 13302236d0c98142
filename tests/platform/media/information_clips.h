#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/scratch_folder.h"
#include "tests/support/tool_run.h"

/// Clips that ffmpeg makes for tests of information, and edits of their boxes.
namespace vistrelle::testing {

/// ffmpeg with these arguments and an output file of this name.
inline std::string makeClip(const ScratchFolder& folder, const std::string& name,
                            const std::vector<std::string>& arguments) {
  std::vector<std::string> command{"ffmpeg", "-v", "error", "-nostdin", "-y"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  command.push_back(folder.file(name));
  const RunResult run = runProgram(command);
  if (run.status != 0) throw std::runtime_error("ffmpeg could not make " + name + ": " + run.error);
  return folder.file(name);
}

/// A test pattern as input: "720x576", frames a second, seconds.
inline std::vector<std::string> patternInput(const std::string& size, const std::string& rate = "25",
                                             const std::string& seconds = "0.4") {
  return {"-f", "lavfi", "-i", "testsrc2=size=" + size + ":rate=" + rate + ":duration=" + seconds};
}

inline std::vector<std::string> operator+(std::vector<std::string> list, const std::vector<std::string>& more) {
  list.insert(list.end(), more.begin(), more.end());
  return list;
}

inline std::string bigEndian(std::uint64_t value, int bytes = 4) {
  std::string text;
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xff);
  return text;
}

inline std::string boxOf(const std::string& type, const std::string& content) {
  return bigEndian(content.size() + 8) + type + content;
}

/// A movie file's bytes, whose header stands behind its media, so that the header may grow.
class MovieBytes {
 public:
  explicit MovieBytes(const std::string& path) : bytes_(readFile(path)) {
    const std::size_t found = bytes_.rfind("moov");
    if (found == std::string::npos || bytes_.find("mdat") > found) throw std::runtime_error("no header at the end");
    header_ = found - 4;
  }

  const std::string& bytes() const { return bytes_; }

  /// The n-th place (from 0) of a text in the header.
  std::size_t find(const std::string& text, int n = 0) const {
    std::size_t at = bytes_.find(text, header_);
    for (; n > 0 && at != std::string::npos; --n) at = bytes_.find(text, at + 1);
    if (at == std::string::npos) throw std::runtime_error("the header has no " + text);
    return at;
  }
  bool has(const std::string& text) const { return bytes_.find(text, header_) != std::string::npos; }

  MovieBytes& replace(const std::string& text, const std::string& other, int n = 0) {
    bytes_.replace(find(text, n), other.size(), other);
    return *this;
  }
  /// Renames a box to one that nobody reads, if there is one.
  MovieBytes& hide(const std::string& type) { return has(type) ? replace(type, "skip") : *this; }
  MovieBytes& overwrite(std::size_t at, const std::string& other) {
    bytes_.replace(at, other.size(), other);
    return *this;
  }

  /// Puts `boxes` at the end of the innermost box of `path`, the first one of each type. Behind "stsd" comes the type
  /// of a sample entry.
  MovieBytes& append(const std::vector<std::string>& path, const std::string& boxes) {
    std::size_t begin = header_;
    std::size_t end = bytes_.size();
    std::vector<std::size_t> sizes;
    for (const std::string& type : path) {
      bool found = false;
      for (std::size_t at = begin; at + 8 <= end && !found; at += found ? 0 : size(at)) {
        found = bytes_.compare(at + 4, 4, type) == 0;
        if (!found) continue;
        sizes.push_back(at);
        end = at + size(at);
        begin = at + 8 + (type == "stsd" ? 8 : 0);
        break;
      }
      if (!found) throw std::runtime_error("the header has no " + type);
    }
    bytes_.insert(end, boxes);
    for (const std::size_t at : sizes) bytes_.replace(at, 4, bigEndian(size(at) + boxes.size()));
    return *this;
  }

  std::string write(const ScratchFolder& folder, const std::string& name) const { return folder.write(name, bytes_); }

 private:
  std::size_t size(std::size_t at) const {
    std::size_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes_[at + i]);
    return value;
  }

  std::string bytes_;
  std::size_t header_ = 0;
};

/// 'clap' of a width and height, and whole offsets of the centre.
inline std::string clapBox(int width, int height, int right = 0, int down = 0) {
  const auto whole = [](int value) { return bigEndian(static_cast<std::uint32_t>(value)) + bigEndian(1); };
  return boxOf("clap", whole(width) + whole(height) + whole(right) + whole(down));
}

inline std::string paspBox(std::uint32_t horizontal, std::uint32_t vertical) {
  return boxOf("pasp", bigEndian(horizontal) + bigEndian(vertical));
}

}  // namespace vistrelle::testing
