#include "vistrelle/platform/media/confined/decoding_libraries.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
}

#ifdef VISTRELLE_STATIC_FFMPEG
#include <bzlib.h>
#include <dav1d/dav1d.h>
#include <lzma.h>
#include <vpx/vpx_codec.h>
#include <zlib.h>
#endif

#include <iconv.h>

#include <ctime>

#include "vistrelle/platform/text/encoding.h"

namespace vistrelle::platform {
namespace {

/// A conversion that is open, so that its tables stay, until the process ends.
class OpenConversion {
 public:
  explicit OpenConversion(const char* from) : handle_(::iconv_open("UTF-8", from)) {}
  ~OpenConversion() {
    if (handle_ != reinterpret_cast<iconv_t>(-1)) ::iconv_close(handle_);
  }
  OpenConversion(const OpenConversion&) = delete;
  OpenConversion& operator=(const OpenConversion&) = delete;

 private:
  iconv_t handle_;
};

}  // namespace

void loadDecodingLibraries() {
  // Each call goes into another library; what it answers does not matter.
  (void)avutil_version();
  (void)avcodec_version();
  (void)avformat_version();
#ifdef VISTRELLE_STATIC_FFMPEG
  (void)dav1d_version();
  (void)vpx_codec_version();
  (void)zlibVersion();
  (void)lzma_version_string();
  (void)BZ2_bzlibVersion();
#endif
  // Calendar functions read the time zone's file at first.
  ::tzset();
  // Names of programs in transport streams.
  static const OpenConversion kept("ISO6937");
  // Titles of chapters and metadata are in the encodings of old systems.
  (void)decodeText("a", kMacRomanEncoding);
  (void)decodeText("a", kShiftJisEncoding);
}

}  // namespace vistrelle::platform
