#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vistrelle/platform/base/value.h"

namespace vistrelle {

bool testPresenceCocoa(const platform::OptionalValue& object);
void noteFsChanged(const std::string& path);
bool isDirCocoa(const platform::OptionalText& path);
double poidsFile(const platform::OptionalText& path, const platform::OptionalText& unit);
float folderSizeMo(const platform::OptionalText& path);
std::string fileNameOfPath(const platform::OptionalText& path);
bool trashCocoa(const std::string& path);

}  // namespace vistrelle
