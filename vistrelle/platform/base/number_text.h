#pragma once

#include <string>

namespace vistrelle::platform {

/// The fewest digits that read back as the same number, laid out as printf's %g does: "0.1", "1", "1e+30", "inf",
/// "nan".
std::string shortestText(double number);
std::string shortestText(float number);

}  // namespace vistrelle::platform
