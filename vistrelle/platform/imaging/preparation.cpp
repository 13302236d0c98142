#include "vistrelle/platform/imaging/preparation.h"

extern "C" {
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include <new>

#include "vistrelle/platform/imaging/icc_profile.h"
#include "vistrelle/platform/imaging/jpeg_library.h"

namespace vistrelle::platform {

void prepareForPictures() {
  // Each call goes into another library; what it answers does not matter.
  (void)av_get_pix_fmt("yuv420p");
  (void)swscale_version();
  jpeg_error_mgr errors{};
  (void)jpeg_std_error(&errors);
  try {
    (void)srgbProfile();
  } catch (const std::bad_alloc&) {
  }
}

}  // namespace vistrelle::platform
