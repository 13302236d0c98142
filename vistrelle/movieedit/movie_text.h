#pragma once

#include <string>

#include "vistrelle/movie/queries.h"

namespace vistrelle {

/// A movie as log lines show it.
inline std::string movieText(const Movie& movie) {
  return movie ? movie->description() : "(null)";
}

}  // namespace vistrelle
