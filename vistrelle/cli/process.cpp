#include <signal.h>
#include <unistd.h>

#include "vistrelle/cli/entry.h"
#include "vistrelle/platform/files/nowhere.h"

namespace vistrelle {

void prepareProcess() {
  // It is the lowest free descriptor, so every gap below 3 is filled and the first one above goes away again.
  int descriptor = platform::openNowhere();
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = platform::openNowhere();
  if (descriptor > STDERR_FILENO) ::close(descriptor);
  // Writing fails instead: to a reader that has gone, beyond a limit of file sizes.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace vistrelle
