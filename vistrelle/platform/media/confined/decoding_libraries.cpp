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
  // Names of programs in transport streams. Kept open, so that its tables stay.
  [[maybe_unused]] static const iconv_t kept = ::iconv_open("UTF-8", "ISO6937");
  // Titles of chapters and metadata are in the encodings of old systems.
  (void)decodeText("a", kMacRomanEncoding);
  (void)decodeText("a", kShiftJisEncoding);
}

}  // namespace vistrelle::platform
