#pragma once

// The edit list of a movie's first picture track, read straight from the file's boxes and with nothing of ours.

#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace vistrelle::testing {

struct ReferenceEdits {
  struct Entry {
    std::uint64_t duration = 0;  // movie time scale
    std::int64_t mediaTime = 0;  // track time scale; -1: nothing is shown
    int rate = 1;
  };
  std::uint32_t movieScale = 0;
  std::vector<Entry> entries;
  bool isFragmented = false;
};

class EditListReader {
 public:
  static ReferenceEdits read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EditListReader reader;
    reader.walk(bytes, true);
    return reader.edits_;
  }

 private:
  static std::uint64_t number(std::string_view bytes, std::size_t at, std::size_t count) {
    std::uint64_t value = 0;
    for (std::size_t i = 0; i < count && at + i < bytes.size(); ++i) {
      value = value << 8 | static_cast<std::uint8_t>(bytes[at + i]);
    }
    return value;
  }

  void walk(std::string_view bytes, bool isTop) {
    for (std::size_t at = 0; at + 8 <= bytes.size();) {
      std::uint64_t size = number(bytes, at, 4);
      std::size_t header = 8;
      if (size == 1) {
        size = number(bytes, at + 8, 8);
        header = 16;
      }
      if (size == 0) size = bytes.size() - at;
      if (size < header) return;
      const std::string_view type = bytes.substr(at + 4, 4);
      const std::string_view body = bytes.substr(at + header, static_cast<std::size_t>(size) - header);
      if (type == "moof" && isTop) edits_.isFragmented = true;
      if (type == "moov" || type == "mdia" || type == "edts") walk(body, false);
      if (type == "trak") readTrack(body);
      if (type == "mvhd") edits_.movieScale = static_cast<std::uint32_t>(number(body, body[0] == 1 ? 20 : 12, 4));
      if (type == "hdlr" && isTrackOpen_) isPicture_ = body.substr(8, 4) == "vide";
      if (type == "elst") readEntries(body);
      if (at + size < at) return;
      at += static_cast<std::size_t>(size);
    }
  }

  void readTrack(std::string_view body) {
    if (found_) return;
    entries_.clear();
    isPicture_ = false;
    isTrackOpen_ = true;
    walk(body, false);
    isTrackOpen_ = false;
    found_ = isPicture_;
    if (found_) edits_.entries = entries_;
  }

  void readEntries(std::string_view body) {
    const std::size_t width = body[0] == 1 ? 8 : 4;
    const std::uint64_t count = number(body, 4, 4);
    for (std::uint64_t i = 0; i < count && 8 + (i + 1) * (2 * width + 4) <= body.size(); ++i) {
      const std::size_t at = 8 + static_cast<std::size_t>(i) * (2 * width + 4);
      ReferenceEdits::Entry entry;
      entry.duration = number(body, at, width);
      const std::uint64_t media = number(body, at + width, width);
      entry.mediaTime = width == 8 ? static_cast<std::int64_t>(media) : static_cast<std::int32_t>(media);
      entry.rate = static_cast<int>(number(body, at + 2 * width, 2));
      entries_.push_back(entry);
    }
  }

  ReferenceEdits edits_;
  std::vector<ReferenceEdits::Entry> entries_;
  bool isTrackOpen_ = false;
  bool isPicture_ = false;
  bool found_ = false;
};

}  // namespace vistrelle::testing
