#pragma once

#include <string>

#include "vistrelle/platform/files/file_manager.h"

namespace vistrelle::platform {

/// FileManager::writeInPlace; an errno value or 0.
int writeFileInPlace(const std::string& path, Bytes bytes);
/// FileManager::writeByReplacing; an errno value or 0.
int writeFileByReplacing(const std::string& path, Bytes bytes);

}  // namespace vistrelle::platform
