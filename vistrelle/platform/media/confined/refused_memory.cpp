#include "vistrelle/platform/media/confined/refused_memory.h"

namespace vistrelle::platform {

bool endsOnRefusedMemory = false;

}  // namespace vistrelle::platform
