#pragma once

#include <cstdint>
#include <span>

namespace vistrelle::platform {

/// An sRGB profile of about 2,200 bytes (version 2, tabulated curve), the same bytes in every run. Made once a process;
/// empty only when memory was short then.
std::span<const std::uint8_t> srgbProfile();

}  // namespace vistrelle::platform
