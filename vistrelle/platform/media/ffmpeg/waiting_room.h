#pragma once

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/files/unique_fd.h"

namespace vistrelle::platform {

/// Where decoded frames wait that memory has no room for.
class WaitingRooms {
 public:
  virtual ~WaitingRooms() = default;
  /// A temporary file without a name, open for reading and writing; nothing where none can be had.
  virtual UniqueFd open() = 0;
};

/// The default opens one in the system's folder for temporary files.
Seam<WaitingRooms>& waitingRooms();

}  // namespace vistrelle::platform
