#pragma once

#include <memory>
#include <vector>

#include "vistrelle/platform/media/composition.h"

namespace vistrelle::platform {

/// Delivers the pictures of a composition track from the generators of its sources: a time is looked up among the
/// segments and asked for on the source's own timeline, stretched where the piece is. Before the first piece its first
/// frame is delivered, after the last piece its last, in an empty stretch at either end too, as a movie whose pictures
/// begin late does it; an empty stretch between two pieces has no picture and is an error. A frame that began before a
/// piece does is reported at the beginning of the piece. Nothing when no piece has pictures.
std::unique_ptr<ImageGenerator> makeCompositionGenerator(std::vector<Segment> segments);

}  // namespace vistrelle::platform
