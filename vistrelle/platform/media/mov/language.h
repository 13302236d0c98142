#pragma once

#include <cstdint>
#include <string>

namespace vistrelle::platform::mov {

/// The language of a 16-bit code: a number of the QuickTime File Format's table below 0x400, else three letters of
/// five bits (ISO/IEC 14496-12, 8.4.2: ISO 639-2/T). "und" for what neither gives.
std::string languageText(std::uint16_t code);

}  // namespace vistrelle::platform::mov
