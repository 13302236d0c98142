#include "vistrelle/platform/files/file_manager.h"

#include <cstring>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/files/posix_file_manager.h"

namespace vistrelle::platform {

std::string FileError::description() const {
  const char* words = ::strerrordesc_np(code);  // the same in every locale
  return format("{} ({}): '{}'", words ? words : "Unknown error", code, path);
}

Seam<FileManager>& fileManager() {
  static Seam<FileManager> seam(+[]() -> std::shared_ptr<FileManager> { return std::make_shared<PosixFileManager>(); });
  return seam;
}

}  // namespace vistrelle::platform
