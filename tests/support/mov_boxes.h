#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace vistrelle::testing {

inline std::string bigEndian(std::uint64_t value, int bytes) {
  std::string text;
  for (int shift = 8 * (bytes - 1); shift >= 0; shift -= 8) text += static_cast<char>(value >> shift & 0xFF);
  return text;
}

/// A box of ISO/IEC 14496-12 with a 32-bit size.
inline std::string movBox(const std::string& type, const std::string& content) {
  return bigEndian(content.size() + 8, 4) + type + content;
}

/// One line of an edit list; a media time of -1 shows nothing, a rate of 0 stands still.
struct MovEdit {
  std::int64_t duration = 0;
  std::int64_t mediaTime = 0;
  int rate = 1;
};

inline std::string editListBox(const std::vector<MovEdit>& edits) {
  std::string list = bigEndian(0, 4) + bigEndian(edits.size(), 4);
  for (const MovEdit& edit : edits) {
    list += bigEndian(static_cast<std::uint64_t>(edit.duration), 4) +
            bigEndian(static_cast<std::uint64_t>(edit.mediaTime), 4) +
            bigEndian(static_cast<std::uint64_t>(edit.rate), 2) + bigEndian(0, 2);
  }
  return movBox("edts", movBox("elst", list));
}

/// Puts a box at the end of the one that `path` leads to, the first of each name. False when there is none. The movie's
/// samples must stand before what grows.
inline bool insertMovBox(std::string& movie, const std::vector<std::string>& path, const std::string& box) {
  std::vector<std::size_t> grown;
  std::size_t at = 0;
  std::size_t end = movie.size();
  for (const std::string& type : path) {
    const auto sizeAt = [&movie](std::size_t place) {
      std::uint32_t size = 0;
      for (std::size_t i = 0; i < 4; ++i) size = size << 8 | static_cast<std::uint8_t>(movie[place + i]);
      return size;
    };
    while (at + 8 <= end && movie.compare(at + 4, 4, type) != 0) at += std::max<std::size_t>(sizeAt(at), 8);
    if (at + 8 > end) return false;
    grown.push_back(at);
    end = at + sizeAt(at);
    at += type == "stsd" ? 16 : 8;
  }
  movie.insert(end, box);
  for (const std::size_t place : grown) {
    std::uint32_t size = 0;
    for (std::size_t i = 0; i < 4; ++i) size = size << 8 | static_cast<std::uint8_t>(movie[place + i]);
    movie.replace(place, 4, bigEndian(size + box.size(), 4));
  }
  return true;
}

}  // namespace vistrelle::testing
