#include "vistrelle/platform/media/ffmpeg/protection.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "vistrelle/platform/media/ffmpeg/av_version.h"
#include "vistrelle/platform/media/ffmpeg/ebml.h"

namespace vistrelle::platform {
namespace {

bool isEncryptedAsf(const AVFormatContext& context) {
  return av_dict_get(context.metadata, "ASF_Protection_Type", nullptr, 0) != nullptr ||
         av_dict_get(context.metadata, "ASF_Key_ID", nullptr, 0) != nullptr;
}

std::vector<std::uint8_t> readHead(InputBytes& bytes, std::size_t length) {
  std::vector<std::uint8_t> head(length);
  std::size_t present = 0;
  while (present < head.size()) {
    const std::int64_t count = bytes.readAt(static_cast<std::int64_t>(present), std::span(head).subspan(present));
    if (count <= 0) break;
    present += static_cast<std::size_t>(count);
  }
  head.resize(present);
  return head;
}

/// ISO/IEC 13818-1, 2.4.3.2: transport_scrambling_control is not zero. Packets have 188 bytes, 192 with the time
/// codes of recorders or 204 with error correction.
bool isScrambledTransportStream(InputBytes& bytes) {
  constexpr std::size_t kHeadBytes = std::size_t{256} << 10;
  constexpr std::uint8_t kSync = 0x47;
  constexpr unsigned kNullPacket = 0x1fff;
  constexpr std::size_t kSyncsWanted = 4;
  const std::vector<std::uint8_t> head = readHead(bytes, kHeadBytes);
  for (const std::size_t size : {std::size_t{188}, std::size_t{192}, std::size_t{204}}) {
    for (std::size_t first = 0; first < size && first + kSyncsWanted * size < head.size(); ++first) {
      bool inStep = true;
      for (std::size_t i = 0; i <= kSyncsWanted; ++i) inStep = inStep && head[first + i * size] == kSync;
      if (!inStep) continue;
      for (std::size_t at = first; at + 4 <= head.size() && head[at] == kSync; at += size) {
        const unsigned pid = (head[at + 1] & 0x1fU) << 8 | head[at + 2];
        if (pid != kNullPacket && (head[at + 3] & 0xc0U) != 0) return true;
      }
      return false;
    }
  }
  return false;
}

// RFC 9559, 5.1: the way from the segment to a track's encryption.
constexpr std::array<std::uint32_t, 6> kWayToEncryption = {0x18538067, 0x1654ae6b, 0xae, 0x6d80, 0x6240, 0x5035};

bool hasEncryption(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t limit, std::size_t depth) {
  constexpr std::uint32_t kCluster = 0x1f43b675;
  while (const std::optional<EbmlElement> element = ebmlElementAt(bytes, at, limit)) {
    if (element->id == kCluster) return false;  // the tracks stand before the media
    if (element->id == kWayToEncryption[depth]) {
      if (depth + 1 == kWayToEncryption.size()) return true;
      if (hasEncryption(bytes, element->content, element->end, depth + 1)) return true;
    }
    at = element->end;
  }
  return false;
}

bool isEncryptedMatroska(InputBytes& bytes) {
  constexpr std::size_t kHeadBytes = std::size_t{1} << 20;
  const std::vector<std::uint8_t> head = readHead(bytes, kHeadBytes);
  return hasEncryption(head, 0, head.size(), 0);
}

}  // namespace

bool isStreamProtected(const AVStream& stream) {
  return !streamSideData(stream, AV_PKT_DATA_ENCRYPTION_INIT_INFO).empty() ||
         !streamSideData(stream, AV_PKT_DATA_ENCRYPTION_INFO).empty() ||
         av_dict_get(stream.metadata, "enc_key_id", nullptr, 0) != nullptr;
}

bool isWholeMovieProtected(const AVFormatContext& context, InputBytes& bytes) {
  const std::string_view name = context.iformat->name;
  if (name == "asf") return isEncryptedAsf(context);
  if (name == "mpegts") return isScrambledTransportStream(bytes);
  if (name.starts_with("matroska")) return isEncryptedMatroska(bytes);
  return false;
}

}  // namespace vistrelle::platform
