#include "vistrelle/platform/media/ffmpeg/container_signature.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vistrelle::platform {
namespace {

struct Signature {
  std::size_t offset;
  std::string_view word;
  const char* container;
};

constexpr std::array kSignatures{
    Signature{4, "ftyp", "mov"},
    Signature{4, "moov", "mov"},
    Signature{4, "mdat", "mov"},
    Signature{4, "wide", "mov"},
    Signature{0, "\x1a\x45\xdf\xa3", "matroska"},
    Signature{8, "AVI ", "avi"},
    Signature{0, "OggS", "ogg"},
    Signature{0, "FLV\x01", "flv"},
    Signature{0, "\x30\x26\xb2\x75\x8e\x66\xcf\x11", "asf"},
};

}  // namespace

const char* containerOf(InputBytes& bytes) {
  std::array<char, 16> head{};
  const auto room = std::span(reinterpret_cast<std::uint8_t*>(head.data()), head.size());
  if (bytes.readAt(0, room) < std::ssize(head)) return nullptr;
  for (const Signature& each : kSignatures) {
    if (std::string_view(head.data() + each.offset, each.word.size()) == each.word) return each.container;
  }
  return nullptr;
}

}  // namespace vistrelle::platform
