#pragma once

#include <string>

namespace vistrelle {

std::string tmpFolderPath();
void tmpFolderSet(const std::string& path);

}  // namespace vistrelle
