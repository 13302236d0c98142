#include "vistrelle/platform/media/id3.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vistrelle/platform/media/mov/box_reader.h"
#include "vistrelle/platform/text/encoding.h"

namespace vistrelle::platform {
namespace {

using Bytes = std::vector<std::uint8_t>;
using View = std::span<const std::uint8_t>;

constexpr std::size_t kHeaderBytes = 10;
constexpr std::uint32_t kMaxTagBytes = std::uint32_t{16} << 20;
constexpr std::size_t kMaxFrameBytes = std::size_t{1} << 20;
constexpr int kMaxFrames = 1000;

/// Seven bits a byte.
std::uint32_t synchsafe(std::uint32_t stored) {
  return (stored & 0x7f) | (stored & 0x7f00) >> 1 | (stored & 0x7f0000) >> 2 | (stored & 0x7f000000) >> 3;
}

Bytes readBytes(std::int64_t offset, std::size_t length, const mov::ReadAt& readAt) {
  Bytes bytes(length);
  std::size_t present = 0;
  while (present < length) {
    const std::int64_t count = readAt(offset + static_cast<std::int64_t>(present), std::span(bytes).subspan(present));
    if (count <= 0) break;
    present += static_cast<std::size_t>(count);
  }
  bytes.resize(present);
  return bytes;
}

/// ID3v2.4 structure, 6.1: a zero put in behind 0xff is taken out again.
Bytes withoutUnsynchronisation(View bytes) {
  Bytes plain;
  plain.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    plain.push_back(bytes[i]);
    if (bytes[i] == 0xff && i + 1 < bytes.size() && bytes[i + 1] == 0) ++i;
  }
  return plain;
}

bool isWide(std::uint8_t encoding) {
  return encoding == 1 || encoding == 2;
}

std::string decoded(View bytes, std::uint8_t encoding) {
  const std::string_view view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  constexpr std::array kEncodings = {kLatin1Encoding, kUtf16Encoding, kUtf16BeEncoding, kUtf8Encoding};
  if (encoding >= kEncodings.size()) return std::string(view);
  return decodeText(view, kEncodings[encoding]).value_or(std::string(view));
}

/// Takes a text that ends with a zero, or with the end, from the front.
std::string takeText(View& bytes, std::uint8_t encoding) {
  const std::size_t step = isWide(encoding) ? 2 : 1;
  std::size_t end = 0;
  while (end + step <= bytes.size() && (bytes[end] != 0 || bytes[end + step - 1] != 0)) end += step;
  end = std::min(end, bytes.size());
  std::string text = decoded(bytes.first(end), encoding);
  bytes = bytes.subspan(std::min(bytes.size(), end + step));
  return text;
}

class TagReader {
 public:
  TagReader(int version, MovieMetadata& metadata) : version_(version), metadata_(metadata) {}

  void read(View frames) {
    const std::size_t nameBytes = version_ == 2 ? 3 : 4;
    mov::Cursor cursor(frames);
    for (int count = 0; count < kMaxFrames; ++count) {
      const View name = cursor.bytes(nameBytes);
      if (name.empty() || name[0] == 0) return;  // the end, or padding
      std::uint32_t size = version_ == 2 ? std::uint32_t{cursor.u8()} << 16 | cursor.u16() : cursor.u32();
      if (version_ == 4) size = synchsafe(size);
      const std::uint16_t flags = version_ == 2 ? std::uint16_t{0} : cursor.u16();
      if (!cursor.isGood() || size > cursor.remaining()) return;
      const View content = cursor.bytes(size);
      if (size > 0 && size <= kMaxFrameBytes) readFrame(std::string(name.begin(), name.end()), flags, content);
    }
  }

 private:
  void readFrame(const std::string& name, std::uint16_t flags, View content) {
    // Compressed and encrypted frames are left out (ID3v2.4 structure, 4.1.2; ID3v2.3, 3.3.1).
    const bool isUnreadable = version_ == 4 ? (flags & 0x0c) != 0 : (flags & 0xc0) != 0;
    if (isUnreadable) return;
    Bytes plain;
    if (version_ == 4 && (flags & 0x02) != 0) {
      plain = withoutUnsynchronisation(content);
      content = plain;
    }
    if (version_ == 4 && (flags & 0x01) != 0) content = content.subspan(std::min<std::size_t>(4, content.size()));
    if (content.empty()) return;
    const std::uint8_t encoding = content[0];
    content = content.subspan(1);
    if (name == "COMM" || name == "COM" || name == "USLT" || name == "ULT") {
      readComment(name, encoding, content);
    } else if (name == "TXXX" || name == "TXX") {
      const std::string key = takeText(content, encoding);
      add(name + ":" + key, {}, takeText(content, encoding));
    } else if (name == "APIC" || name == "PIC") {
      readPicture(name, encoding, content);
    } else if (name[0] == 'T') {
      add(name, {}, takeText(content, encoding));
    }
  }

  void readComment(const std::string& name, std::uint8_t encoding, View content) {
    if (content.size() < 3) return;
    std::string language(content.begin(), content.begin() + 3);
    content = content.subspan(3);
    takeText(content, encoding);  // what it is about
    if (language == "XXX" || language == "und" || language[0] == '\0') language.clear();
    add(name, language, takeText(content, encoding));
  }

  void readPicture(const std::string& name, std::uint8_t encoding, View content) {
    if (version_ == 2) {
      content = content.subspan(std::min<std::size_t>(3, content.size()));  // "JPG" or "PNG"
    } else {
      takeText(content, 0);  // the MIME type
    }
    content = content.subspan(std::min<std::size_t>(1, content.size()));  // what it shows
    takeText(content, encoding);
    const std::span<const std::byte> picture = std::as_bytes(content);
    add(name, {}, Data(picture.begin(), picture.end()));
  }

  void add(const std::string& key, const std::string& locale, Value value) {
    addMetadata(metadata_, {"id3", key, locale, std::move(value)});
  }

  int version_;
  MovieMetadata& metadata_;
};

/// ID3v2.4 structure, 3.2, ID3v2.3, 3.2: the size counts itself from 2.4 on.
View withoutExtendedHeader(View tag, int version) {
  mov::Cursor cursor(tag);
  const std::uint32_t stored = cursor.u32();
  const std::size_t size = version == 4 ? synchsafe(stored) : std::size_t{4} + stored;
  return tag.subspan(std::min(size, tag.size()));
}

}  // namespace

bool readId3(std::int64_t size, const mov::ReadAt& readAt, MovieMetadata& metadata) {
  if (size < static_cast<std::int64_t>(kHeaderBytes)) return false;
  const Bytes head = readBytes(0, kHeaderBytes, readAt);
  if (head.size() < kHeaderBytes || head[0] != 'I' || head[1] != 'D' || head[2] != '3') return false;
  const int version = head[3];
  const std::uint8_t flags = head[5];
  mov::Cursor cursor(View(head).subspan(6));
  const std::uint32_t length = synchsafe(cursor.u32());
  if (version < 2 || version > 4 || length > kMaxTagBytes) return false;
  Bytes tag = readBytes(static_cast<std::int64_t>(kHeaderBytes), length, readAt);
  if (version < 4 && (flags & 0x80) != 0) tag = withoutUnsynchronisation(tag);
  View frames = tag;
  if (version > 2 && (flags & 0x40) != 0) frames = withoutExtendedHeader(frames, version);
  TagReader(version, metadata).read(frames);
  return true;
}

}  // namespace vistrelle::platform
