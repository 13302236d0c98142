#pragma once

namespace vistrelle::platform {

/// Has every library loaded that opening and decoding movies may call. Libraries are loaded at the first call into
/// them, and a confined process can load none.
void loadDecodingLibraries();

}  // namespace vistrelle::platform
