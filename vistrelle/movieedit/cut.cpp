#include "vistrelle/movieedit/cut.h"

#include <cmath>
#include <limits>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movieedit/export.h"
#include "vistrelle/movieedit/movie_text.h"
#include "vistrelle/platform/files/file_manager.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/whole_numbers.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using platform::OptionalText;
using platform::TimeRange;

constexpr double kGreatestCopyDifference = 0.1;
constexpr double kGreatestCutDifference = 1.0;
constexpr std::int64_t kTenths = 10;
constexpr double kSmallestHeadCut = 0.1;

/// A copy of the whole movie, kept only when its length is the movie's.
struct WholeCopy {
  bool isMade = false;
  Composition composition;  ///< empty when refused
};

WholeCopy copyWhole(const Movie& movie) {
  const double sourceSeconds = movie->duration().seconds();
  logVerbose("src duration        : {:.3f}", sourceSeconds);
  const Composition composition = platform::Composition::make();
  std::string error;
  const TimeRange whole{MediaTime::zero(), movie->duration()};
  if (!composition->insertTimeRange(whole, movie, MediaTime::zero(), &error)) {
    log("error : {}", error);
    return {};
  }
  const double seconds = composition->duration().seconds();
  logVerbose("dst duration        : {:.3f}", seconds);
  if (std::abs(sourceSeconds - seconds) < kGreatestCopyDifference) return {true, composition};
  return {true, nullptr};
}

/// A time in 1/scale seconds; invalid for a scale that 32 bits cannot hold.
MediaTime timeIn(std::int64_t value, std::int64_t scale) {
  const bool fits = scale > 0 && scale <= std::numeric_limits<std::int32_t>::max();
  return fits ? MediaTime::make(value, static_cast<std::int32_t>(scale)) : MediaTime::invalid();
}

double editSeconds() {
  return movieDuration(MYMOVIEEDITget());
}

/// The end of movieCutForceSize that releases a slot and fails.
bool failWith(platform::FormatLiteral line, void (*release)()) {
  release();
  log(line);
  log("----------");
  return false;
}

/// A source that counts as too short is cut only when it begins before zero.
bool cutShortSource(float seconds, std::int64_t keep, double start) {
  log("movieCutForceSize   - src too short to be cutted!");
  if (!(start <= static_cast<double>(seconds) && static_cast<double>(seconds) > static_cast<double>(keep))) return true;
  log("movieCutForceSize   …");
  // `keep` is taken for tenths of a second here.
  if (!movieCut(MYMOVIEEDITget(), 0, keep, kTenths)) {
    return failWith("movieCutForceSize   :-( end (cut failure)", MYMOVIErelease);
  }
  if (isVerbose()) log("Duration after cut  : {:.3f}", editSeconds());
  return true;
}

bool cutHead(double start) {
  const double cutStart = start >= kSmallestHeadCut ? start : 0.0;
  if (!(cutStart > 0)) return true;
  if (isVerbose()) {
    log("cutDebutDouble      : {:f}", cutStart);
    log("Duration before cut : {:.3f}", editSeconds());
  }
  if (!movieCut(MYMOVIEEDITget(), 0, truncatedInteger(cutStart * kTenths), kTenths)) {
    return failWith("movieCutForceSize   :-( end (failure)", MYMOVIEEDITrelease);
  }
  if (isVerbose()) log("Duration after cut  : {:.3f}", editSeconds());
  return true;
}

bool cutTail(std::int64_t keep) {
  if (keep == 0) return true;
  logVerbose("la_fin_a_conserver   : {}", keep);
  const MediaTime length = MYMOVIEEDITget()->duration();
  if (isVerbose()) log("Duration before cut2: {:.3f}", editSeconds());
  // The duration is the length of the range too, which so runs past the end.
  if (!movieCut(MYMOVIEEDITget(), saturatingProduct(keep, length.scale), length.value, length.scale)) {
    return failWith("movieCutForceSize   :-( end (complementary cut failure)", MYMOVIEEDITrelease);
  }
  if (isVerbose()) log("Duration after cut2 : {:.3f}", editSeconds());
  return true;
}

bool cutLongSource(std::int64_t keep, double start) {
  log("movieCutForceSize   :-) src long enough: {:.3f} (cut from:{:.2f} to:{:.2f})", editSeconds(), start,
      static_cast<double>(keep) + start);
  return cutHead(start) && cutTail(keep);
}

/// The movie that is being cut must not go before it is written: the export replaces it at its end.
bool isSameFile(const OptionalText& a, const OptionalText& b) {
  if (!a || !b) return false;
  const auto files = platform::fileManager().get();
  const auto first = files->attributes(*a, true);
  const auto second = files->attributes(*b, true);
  return first && second && first->sameFile(*second);
}

/// Whether removing `folder` would take the file at `path` with it.
bool isInside(const OptionalText& path, const OptionalText& folder) {
  if (!path || !folder) return false;
  const std::string place = platform::fileManager().get()->resolvedPath(*path).value_or(*path);
  return place.starts_with(platform::canonicalPath(*folder) + "/");
}

OptionalText expanded(const OptionalText& path) {
  return path ? OptionalText(platform::expandingTilde(*path)) : std::nullopt;
}

bool isThere(const OptionalText& path) {
  return path && testPresenceCocoa(platform::Value(*path));
}

}  // namespace

bool getMYMOVIEEDIT(const Movie& movie) {
  if (!movie) return false;
  const WholeCopy copy = copyWhole(movie);
  if (!copy.isMade) return false;
  if (copy.composition) MYMOVIEEDITset(copy.composition);
  const Composition held = MYMOVIEEDITget();
  if (isVerbose()) log("getMYMOVIEEDIT()    : {} (duration={:.3f})", movieText(held), movieDuration(held));
  return held != nullptr;
}

Composition mutableCompositionOf(const Movie& movie) {
  if (!movie) return nullptr;
  if (auto composition = std::dynamic_pointer_cast<platform::Composition>(movie)) return composition;
  return copyWhole(movie).composition;
}

bool movieCut(const Movie& movie, std::int64_t first, std::int64_t second, std::int64_t timescale) {
  log("movieCut            - begin");
  if (!movie) return false;
  // The values print as numbers without sign.
  logVerbose("movieCut            - from: {}/{} to: {}/{}", static_cast<std::uint64_t>(first), timescale,
             static_cast<std::uint64_t>(second), timescale);
  const double before = movie->duration().seconds();
  log("src duration        : {:f}", before);
  const auto composition = std::dynamic_pointer_cast<platform::Composition>(movie);
  if (!composition) return false;
  composition->removeTimeRange({timeIn(first, timescale), timeIn(second, timescale)});
  const double after = composition->duration().seconds();
  logVerbose("dst duration        : {:.3f}", after);
  // Intended: `second`, a length above, is an end here.
  const std::int64_t difference =
      static_cast<std::int64_t>(static_cast<std::uint64_t>(second) - static_cast<std::uint64_t>(first));
  const float removed = static_cast<float>(difference) / static_cast<float>(timescale);
  log("{:.3f} - {:.3f}    =? {:.3f}", before, removed, after);
  return std::abs(before - (static_cast<double>(removed) + after)) <= kGreatestCutDifference;
}

bool movieCutForceSize(const OptionalText& source, const OptionalText& destination, std::int64_t keep, double start) {
  log("----------");
  log("movieCutForceSize   - begin");
  if (!movieLoad(source)) return false;
  const OptionalText from = expanded(source);
  const OptionalText to = expanded(destination);
  logVerbose("src -> dst          : '{}' -> '{}'", from.value_or("(null)"), to.value_or("(null)"));
  if (!getMYMOVIEEDIT(MYMOVIEget())) return false;
  log("getMYMOVIEEDIT()    : {}", movieText(MYMOVIEEDITget()));
  const auto seconds = static_cast<float>(editSeconds());
  log("srcDurationFloat     = {:f}", seconds);
  // Intended: the start is taken off, not added.
  const bool isTooShort = static_cast<double>(keep) - start > static_cast<double>(seconds);
  if (!(isTooShort ? cutShortSource(seconds, keep, start) : cutLongSource(keep, start))) return false;
  if (isThere(to) && isInside(from, to)) {
    return failWith("movieCutForceSize   :-( destination holds the source", MYMOVIEEDITrelease);
  }
  if (isThere(to) && !isSameFile(from, to)) rmCocoa(to);
  if (!qtAvExport(MYMOVIEEDITget(), to, kExportPassthrough)) {
    return failWith("movieCutForceSize   :-( fin (echec Export)", MYMOVIEEDITrelease);
  }
  MYMOVIErelease();
  log("movieCutForceSize   :-) fin");
  log("----------");
  return isThere(to);
}

}  // namespace vistrelle
