#pragma once

#include <string>
#include <vector>

#include "vistrelle/platform/media/mov/movie_header.h"

namespace vistrelle::platform {

/// The languages of a Matroska file's chapter titles, in their order, repeats included (RFC 9559, 5.1.7: ISO 639-2,
/// or BCP 47 where that is stated; English where nothing is). Empty without chapters. Reads the elements before the
/// first cluster, and the chapters where the file's index of elements says that they lie behind it.
std::vector<std::string> matroskaChapterLanguages(std::int64_t size, const mov::ReadAt& readAt);

}  // namespace vistrelle::platform
