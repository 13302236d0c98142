#include "vistrelle/movieedit/joining.h"

#include <cmath>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movieedit/cut.h"
#include "vistrelle/movieedit/export.h"
#include "vistrelle/movieedit/movie_text.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/whole_numbers.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using platform::OptionalText;
using platform::TimeRange;

constexpr double kGreatestDifference = 1.0;

TimeRange wholeOf(const platform::Asset& movie) {
  return {MediaTime::zero(), movie.duration()};
}

/// in / out without its fraction; the greatest number where the processor has none.
std::int64_t wholeFactor(std::int64_t in, std::int64_t out) {
  return out == -1 ? saturatingProduct(in, -1) : in / out;
}

Composition joined(const Movie& first, const Movie& second) {
  const Composition composition = mutableCompositionOf(first);
  if (!composition) return nullptr;
  const bool inserted = composition->insertTimeRange(wholeOf(*second), second, composition->duration(), nullptr);
  return inserted ? composition : nullptr;
}

Composition repeated(const Movie& movie, std::int64_t count, double seconds) {
  const Composition composition = mutableCompositionOf(movie);
  log("moviesConcatenate   - mutableComposition: {}", movieText(composition));
  if (!composition) return nullptr;
  // A composition grows itself; what is repeated is what it was.
  const Movie unit = composition == movie ? composition->copy() : movie;
  const TimeRange whole = wholeOf(*unit);
  for (std::int64_t pass = 1; pass < count; ++pass) {
    log("pass #{} : {:.3f}", pass, composition->duration().seconds());
    composition->insertTimeRange(whole, unit, composition->duration(), nullptr);
  }
  const double length = composition->duration().seconds();
  log("pass #+1 : {:.3f}", length);
  log("moviesConcatenate   - final duration (*{})={:.3f}", count, length);
  const float expected = static_cast<float>(seconds) * static_cast<float>(count);
  return std::abs(length - static_cast<double>(expected)) > kGreatestDifference ? nullptr : composition;
}

}  // namespace

Composition movieToRescale(const Movie& movie, std::int64_t in, std::int64_t out) {
  if (!movie || in == 0 || out == 0) return nullptr;
  log("movieToRescale     ts : in={} dst={}", in, out);
  const Composition composition = mutableCompositionOf(movie);
  log("mutableComposition : {}", movieText(composition));
  if (!composition) return nullptr;
  const MediaTime length = composition->duration();
  // Intended: a whole number, so that most rates have no effect.
  const MediaTime wanted = MediaTime::make(saturatingProduct(length.value, wholeFactor(in, out)), length.scale);
  composition->scaleTimeRange(wholeOf(*composition), wanted);
  logVerbose("movies duration     : in={:.3f} -> rescaled={:.3f}", length.seconds(), composition->duration().seconds());
  return composition;
}

bool movieToRescaleExport(const Movie& movie, std::int64_t in, std::int64_t out, const OptionalText& destination) {
  return qtAvExport(movieToRescale(movie, in, out), destination, kExportPassthrough);
}

bool moviesConcatenate(const Movie& first, const Movie& second, std::int64_t count, const OptionalText& destination) {
  log("moviesConcatenate   - begin");
  if (!first || (!second && count == 0)) return false;
  const double seconds = movieDuration(first);
  const Composition composition = second ? joined(first, second) : repeated(first, count, seconds);
  if (!composition) return false;
  log("moviesConcatenate   - end->export…({})", destination.value_or("(null)"));
  const std::string extension = platform::pathExtension(destination.value_or(""));
  // Sound under the name "wav" is M4A nevertheless: the mode has no other form.
  if (extension == "wav") return qtAvExport(composition, destination, -2);
  if (extension == "mov") return qtAvExport(composition, destination, kExportPassthrough);
  return false;
}

}  // namespace vistrelle
