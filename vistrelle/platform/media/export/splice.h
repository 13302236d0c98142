#pragma once

#include <cstdint>
#include <span>

namespace vistrelle::platform {

/// Makes a clean random access picture of HEVC, at which a stretch begins that does not follow what lies before it, a
/// broken link access one (ISO/IEC 23008-2, 7.4.2.2: what splicing does): decoders then neither mix both stretches nor
/// drop what is still to be shown. `sample` holds units behind length fields of `lengthBytes`. Whether anything
/// changed.
bool markSplice(std::span<std::uint8_t> sample, int lengthBytes);

}  // namespace vistrelle::platform
