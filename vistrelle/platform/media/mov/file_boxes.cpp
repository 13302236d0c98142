#include "vistrelle/platform/media/mov/file_boxes.h"

#include <algorithm>
#include <array>

#include "vistrelle/platform/media/mov/box_reader.h"

namespace vistrelle::platform::mov {

bool FileBoxes::readFully(std::int64_t offset, std::span<std::uint8_t> buffer) {
  while (!buffer.empty()) {
    const std::int64_t count = readAt_(offset, buffer);
    if (count < 0) failed_ = true;
    if (count <= 0 || count > std::ssize(buffer)) return false;
    buffer = buffer.subspan(static_cast<std::size_t>(count));
    offset += count;
  }
  return true;
}

std::optional<FileBox> FileBoxes::next() {
  std::array<std::uint8_t, 16> bytes{};
  const std::int64_t present = std::min<std::int64_t>(size_ - offset_, bytes.size());
  if (failed_ || present < 8 || boxesLeft_-- == 0) return std::nullopt;
  const std::span<std::uint8_t> head(bytes.data(), static_cast<std::size_t>(present));
  if (!readFully(offset_, head)) return std::nullopt;
  Cursor cursor(head);
  std::uint64_t size = cursor.u32();
  FileBox box;
  box.type = cursor.u32();
  std::int64_t headerBytes = 8;
  if (size == 1) {
    size = cursor.u64();
    headerBytes = 16;
  }
  const auto room = static_cast<std::uint64_t>(size_ - offset_);
  if (size == 0) size = room;
  if (!cursor.isGood() || size < static_cast<std::uint64_t>(headerBytes)) return std::nullopt;
  box.start = offset_;
  box.content = offset_ + headerBytes;
  box.end = offset_ + static_cast<std::int64_t>(std::min(size, room));
  offset_ = box.end;
  return box;
}

std::optional<std::vector<std::uint8_t>> FileBoxes::load(const FileBox& box) {
  const std::int64_t length = box.end - box.content;
  if (length > left_) {
    failed_ = true;
    return std::nullopt;
  }
  left_ -= length;
  std::vector<std::uint8_t> content(static_cast<std::size_t>(length));
  if (!readFully(box.content, content)) return std::nullopt;
  return content;
}

}  // namespace vistrelle::platform::mov
