#pragma once

#include <string>

#include "vistrelle/platform/media/export/passthrough.h"

namespace vistrelle::platform {

/// Writes the sound of `asset` (a movie or a composition) as an M4A file into the empty open file `fd`: AAC-LC, 256
/// kb/s stereo (128 kb/s mono), all sound tracks mixed into one, each at full volume; where the sum leaves the range it
/// stops at the limit. More than two channels are mixed down to two. Sample rates that AAC has are kept; of several the
/// highest is taken. Priming and padding are declared, so that a decoder gives exactly the samples of the timeline.
/// False with an error text, also for a movie without sound; the file's content is then worthless.
bool writeM4a(Asset& asset, int fd, const ExportControl& control, std::string* error);

}  // namespace vistrelle::platform
