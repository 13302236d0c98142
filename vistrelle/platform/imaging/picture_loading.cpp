#include <algorithm>
#include <array>
#include <new>
#include <string_view>

#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/picture.h"

namespace vistrelle::platform {
namespace {

using namespace std::string_view_literals;

constexpr std::int64_t kMostFileBytes = std::int64_t{1} << 30;

struct Reader {
  std::string_view start;
  std::shared_ptr<Bitmap> (*decode)(EncodedBytes);
};

constexpr std::array<Reader, 10> kReaders{{{"\xFF\xD8\xFF"sv, decodeJpeg},
                                           {"\x89PNG\r\n\x1A\n"sv, decodePng},
                                           {"II*\0"sv, decodeTiff},
                                           {"MM\0*"sv, decodeTiff},
                                           {"II+\0"sv, decodeTiff},
                                           {"MM\0+"sv, decodeTiff},
                                           {"GIF8"sv, decodeGif},
                                           {"BM"sv, decodeBmp},
                                           {"\0\0\0\x0CjP  \r\n\x87\n"sv, decodeJpeg2000},
                                           {"\xFF\x4F\xFF\x51"sv, decodeJpeg2000}}};

}  // namespace

std::shared_ptr<Bitmap> decodePicture(EncodedBytes bytes) {
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  for (const Reader& reader : kReaders) {
    if (text.starts_with(reader.start)) return reader.decode(bytes);
  }
  return nullptr;
}

std::shared_ptr<const Picture> Picture::load(const std::string& path) {
  try {
    const auto content = fileManager().get()->contents(path, kMostFileBytes);
    if (!content) return nullptr;
    auto bitmap = decodePicture({reinterpret_cast<const std::uint8_t*>(content->data()), content->size()});
    if (!bitmap) return nullptr;
    return std::make_shared<Picture>(std::move(bitmap));
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

}  // namespace vistrelle::platform
