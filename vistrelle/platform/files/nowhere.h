#pragma once

namespace vistrelle::platform {

/// A descriptor, which the caller owns, that gives no byte and keeps none: /dev/null or, where there is no such device
/// (a bare chroot), the reading end of a pipe that nobody writes into. It stays open over exec; -1 when the system
/// refuses. Has the lowest free number.
int openNowhere();

}  // namespace vistrelle::platform
