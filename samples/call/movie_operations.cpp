#include "registry.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movie/thumbnails.h"
#include "vistrelle/movie/timecode.h"

namespace call {

using namespace vistrelle;
namespace p = vistrelle::platform;

namespace {

/// movieDuration takes any object; texts and numbers are none.
double durationOf(const p::OptionalValue& object) {
  if (!object) return movieDuration(nullptr);
  const auto* opaque = object->get<std::shared_ptr<const p::Opaque>>();
  if (!opaque) throw WrongArgument("a movie, a picture or another object is needed");
  return movieDuration(*opaque);
}

void addSlots(Registry& registry) {
  registry.add("MYMOVIEget", &MYMOVIEget);
  registry.add("MYMOVIEset", &MYMOVIEset);
  registry.add("MYMOVIErelease", &MYMOVIErelease);
  registry.add("MYMOVIEpathGet", &MYMOVIEpathGet);
  registry.add("MYMOVIEpathSet", &MYMOVIEpathSet);
  registry.add("MYMOVIEVIEWget", &MYMOVIEVIEWget);
  registry.add("MYMOVIEVIEWset", &MYMOVIEVIEWset);
  registry.add("MYMOVIEVIEWrelease", &MYMOVIEVIEWrelease);
  registry.add("MYMOVIEVIEWpathGet", &MYMOVIEVIEWpathGet);
  registry.add("MYMOVIEVIEWpathSet", &MYMOVIEVIEWpathSet);
  registry.add("MYMOVIEEDITget", &MYMOVIEEDITget);
  registry.add("MYMOVIEEDITset", &MYMOVIEEDITset);
  registry.add("MYMOVIEEDITrelease", &MYMOVIEEDITrelease);
}

}  // namespace

void addMovieOperations(Registry& registry) {
  addSlots(registry);
  registry.add("movieLoadedFlag", &movieLoadedFlag);
  registry.add("movieLoadedFlagSet", &movieLoadedFlagSet);
  registry.add("movieLoadKeys", [] { return movieLoadKeys(); });
  registry.add("MYMOVIEinstantiate", &MYMOVIEinstantiate);
  registry.add("MYMOVIEinstantiateCurrent", &MYMOVIEinstantiateCurrent);
  registry.add("MYMOVIEVIEWinstantiate", &MYMOVIEVIEWinstantiate);
  registry.add("movieLoad", &movieLoad);
  registry.add("movieFramerateAtPath", &movieFramerateAtPath);
  registry.add("movieTracks", &movieTracks);
  registry.add("movieTrackTypes", &movieTrackTypes);
  registry.add("movieDuration", [](const p::OptionalValue& object) { return durationOf(object); });
  registry.add("movieTracksTimeRange", &movieTracksTimeRange);
  registry.add("movieFramerate", &movieFramerate);
  registry.add("timecodeStr2Float", &timecodeStr2Float);
  registry.add("timecodeSeconds", &timecodeSeconds);
  registry.add("Mirelund", &Mirelund);
  registry.add("mirelundInFormat", &mirelundInFormat);
}

}  // namespace call
