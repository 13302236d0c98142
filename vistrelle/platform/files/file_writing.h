#pragma once

#include <string>

#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {

/// FileManager::writeInPlace; an errno value or 0.
int writeFileInPlace(const std::string& path, Bytes bytes);
/// FileManager::writeByReplacing; an errno value or 0.
int writeFileByReplacing(const std::string& path, Bytes bytes);
/// A link chain followed by its texts to the place where the file is, or would be made.
std::string behindLinks(std::string path);

}  // namespace vistrelle::platform
