#pragma once

#include <string>

namespace vistrelle {

/// The short name under which transcoders know the codec of a track with this four-character code; the code itself in
/// lower case where there is none.
std::string videoCodecName(const std::string& code);
/// The same for sound. One blank at the end of the code is dropped first.
std::string audioCodecName(const std::string& code);

}  // namespace vistrelle
