#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include "vistrelle/cli/entry.h"

namespace vistrelle {

void prepareProcess() {
  // open() gives the lowest free descriptor, so every gap below 3 is filled and the first one above goes away again.
  int descriptor = ::open("/dev/null", O_RDWR);
  while (descriptor >= 0 && descriptor <= STDERR_FILENO) descriptor = ::open("/dev/null", O_RDWR);
  if (descriptor > STDERR_FILENO) ::close(descriptor);
  // Writing fails instead: to a reader that has gone, beyond a limit of file sizes.
  ::signal(SIGPIPE, SIG_IGN);
  ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace vistrelle
