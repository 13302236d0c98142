#include <zlib.h>

#include <new>
#include <string>
#include <string_view>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/imaging/formats.h"
#include "vistrelle/platform/imaging/icc_profile.h"

// Written here and not by a drawing library's PDF surface: those leave the picture in device colours, name no
// profile, and stamp the time of day. Structure after ISO 32000-1, 7.5.

namespace vistrelle::platform {
namespace {

constexpr int kCompression = 4;

/// Compresses rows as they come.
class Deflater {
 public:
  Deflater() { good_ = deflateInit(&stream_, kCompression) == Z_OK; }
  ~Deflater() {
    if (good_) deflateEnd(&stream_);
  }
  Deflater(const Deflater&) = delete;
  Deflater& operator=(const Deflater&) = delete;

  bool add(const std::uint8_t* bytes, std::size_t size, bool last) {
    if (!good_) return false;
    stream_.next_in = const_cast<Bytef*>(bytes);
    stream_.avail_in = static_cast<uInt>(size);
    std::uint8_t chunk[1 << 14];
    do {
      stream_.next_out = chunk;
      stream_.avail_out = sizeof chunk;
      if (deflate(&stream_, last ? Z_FINISH : Z_NO_FLUSH) == Z_STREAM_ERROR) return false;
      output_.append(reinterpret_cast<const char*>(chunk), sizeof chunk - stream_.avail_out);
    } while (stream_.avail_out == 0);
    return true;
  }
  const std::string& output() const { return output_; }

 private:
  z_stream stream_{};
  bool good_ = false;
  std::string output_;
};

/// Numbers objects from 1 as they are added and remembers where each begins.
class PdfFile {
 public:
  PdfFile() { text_ = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n"; }

  void addObject(const std::string& body) {
    offsets_.push_back(text_.size());
    text_ += format("{} 0 obj\n", offsets_.size()) + body + "\nendobj\n";
  }
  void addStream(const std::string& entries, const std::string& content) {
    addObject(format("<< {} /Length {} >>\nstream\n", entries, content.size()) + content + "\nendstream");
  }
  /// Ends the file; the first object is the catalogue.
  std::string finish() {
    const std::size_t table = text_.size();
    text_ += format("xref\n0 {}\n0000000000 65535 f \n", offsets_.size() + 1);
    for (const std::size_t offset : offsets_) text_ += format("{:010} 00000 n \n", offset);
    text_ += format("trailer\n<< /Size {} /Root 1 0 R >>\nstartxref\n{}\n%%EOF\n", offsets_.size() + 1, table);
    return std::move(text_);
  }

 private:
  std::string text_;
  std::vector<std::size_t> offsets_;
};

}  // namespace

EncodedPicture encodePdf(const Bitmap& raster) {
  try {
    Deflater pixels;
    std::vector<std::uint8_t> row(static_cast<std::size_t>(raster.width()) * 3);
    for (int y = 0; y < raster.height(); ++y) {
      onBlack(raster.row(y), raster.width(), row.data());
      if (!pixels.add(row.data(), row.size(), y == raster.height() - 1)) return std::nullopt;
    }
    Deflater profile;
    const auto srgb = srgbProfile();
    if (!profile.add(srgb.data(), srgb.size(), true)) return std::nullopt;

    const std::string width = format("{:.4f}", raster.pointWidth());
    const std::string height = format("{:.4f}", raster.pointHeight());
    PdfFile file;
    file.addObject("<< /Type /Catalog /Pages 2 0 R >>");
    file.addObject("<< /Type /Pages /Kids [3 0 R] /Count 1 >>");
    file.addObject(
        format("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 {} {}] /Contents 4 0 R "
               "/Resources << /XObject << /Picture 5 0 R >> >> >>",
               width, height));
    file.addStream("", format("{} 0 0 {} 0 0 cm /Picture Do", width, height));
    file.addStream(format("/Type /XObject /Subtype /Image /Width {} /Height {} /BitsPerComponent 8 "
                          "/ColorSpace [/ICCBased 6 0 R] /Filter /FlateDecode",
                          raster.width(), raster.height()),
                   pixels.output());
    file.addStream("/N 3 /Alternate /DeviceRGB /Filter /FlateDecode", profile.output());
    const std::string text = file.finish();
    if (text.size() >= 10'000'000'000) return std::nullopt;  // offsets have ten digits
    return dataOf({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
  } catch (const std::bad_alloc&) {
    return std::nullopt;
  }
}

}  // namespace vistrelle::platform
