#pragma once

#include <functional>
#include <memory>
#include <string>

#include "vistrelle/platform/media/asset.h"

namespace vistrelle::platform {

/// What a writer of movies tells and asks while it works; called from the writer's thread.
struct ExportControl {
  std::function<void(double)> progress;  ///< from 0 to 1, never falling
  std::function<bool()> isCancelled;     ///< asked between samples
};

/// Whether every sound and picture sample of `asset` has a registered sample entry in a QuickTime movie; `reason`
/// names the first that has none.
bool canPassThrough(const Asset& asset, std::string* reason);

/// Writes the timeline of `asset` (a movie or a composition) as a QuickTime movie into the open file `fd`, samples
/// unchanged. False with an error text; the file's content is then worthless.
///
/// Edits say every cut exactly. libavformat (5.1) honours them so: pictures exactly, but for jumps between open groups
/// of H.264, where a few in a thousand lose a frame; uncompressed sound to the sample; coded sound to the sample
/// at the first edit, and behind it in whole packets that begin at the edit's very time: what is heard is up to a
/// packet early there, and never adds up for readers that go by the packets' times. AC-3 and its like lose a further
/// packet at each seam in libavformat's parser. Silent stretches between sound are real silence in the sound's own
/// coding, without which libavformat would play the track's beginning there; they also bring readers that only count
/// samples back to within a packet. Other empty stretches are empty edits. User data and metadata are those of the
/// source where there is one only. Samples that lie in further files are refused.
bool writePassthrough(Asset& asset, int fd, const ExportControl& control, std::string* error);

}  // namespace vistrelle::platform
