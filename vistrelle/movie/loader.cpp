#include "vistrelle/movie/loader.h"

#include <chrono>
#include <utility>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movie/slots.h"
#include "vistrelle/platform/base/clock.h"
#include "vistrelle/platform/files/path.h"

namespace vistrelle {
namespace {

using platform::MediaTime;
using platform::MediaType;
using platform::OptionalText;
using platform::TimeRange;

constexpr int kWaitPasses = 30;
constexpr std::chrono::microseconds kWaitSlice{333'333};
constexpr double kSecondsPerPass = 0.3333333333333333;

bool isPresent(const std::string& path) {
  return testPresenceCocoa(platform::Value(path));
}

/// Waits for the end of a loading. Two waits a pass, the flag looked at after the first only; the reported figure
/// counts one third of a second a pass, about half of the time spent: that is the report intended. False when the
/// passes ran out.
bool waitForLoading(const platform::Signal& loaded) {
  const auto clock = platform::clock().get();
  for (int pass = 0; pass < kWaitPasses; ++pass) {
    if (clock->wait(loaded, kWaitSlice)) {
      log("      loading ended : after {:.1f} seconds", static_cast<float>(pass) * kSecondsPerPass);
      return true;
    }
    clock->wait(loaded, kWaitSlice);
  }
  return false;
}

/// Whether the video tracks alone can be played, tried on a composition that is thrown away afterwards.
bool videoTracksAlonePlayable(const Movie& asset) {
  const Composition composition = platform::Composition::make();
  const auto target = composition ? composition->addMutableTrack(MediaType::video, 0) : nullptr;
  std::string error;
  bool inserted = true;
  for (const auto& track : movieTrackTypes(asset, kVideoTracks).value_or(TrackList())) {
    const TimeRange whole{MediaTime::zero(), asset->duration()};
    inserted = target && target->insertTimeRange(whole, track, MediaTime::zero(), &error) && error.empty();
    if (!inserted) break;
  }
  const bool playable = composition && composition->isPlayable();
  if (inserted && playable) {
    const MediaTime length = composition->duration();
    const double seconds = static_cast<double>(length.value) / static_cast<double>(length.scale);
    log("mutableComposition  : isPlayable ? {} (duration={:.3f})", playable, seconds);
    return true;
  }
  if (!error.empty()) {
    log("init v tracks only  :-( {}", error);
  } else if (!composition) {
    log("init v tracks only  :-( {}", "!mutableComposition");
  } else {
    log("init v tracks only  :-( {}", platform::format("mutableComposition playable={}", playable));
  }
  return false;
}

bool isUsable(const Movie& asset) {
  if (!movieTrackTypes(asset, kAllTracks)) {
    log("Error instantiate   :-( no (usable) track");
    return false;
  }
  if (asset->hasProtectedContent()) {
    log("Error instantiate   :-/ protected file (DRM={}), keep loaded to collect its informations…", true);
    return true;
  }
  if (asset->isPlayable()) return true;
  log("Error instantiate   :-/ file is not (yet?) readable, try to load v tracks only… (isPlayable={})", false);
  return videoTracksAlonePlayable(asset);
}

/// Starts the loading of `asset`. Each loading has a flag of its own, so that one that was given up and ends late
/// cannot be taken for the end of a later one.
std::shared_ptr<LoadRequest> startLoading(const Movie& asset) {
  auto request = std::make_shared<LoadRequest>();
  setCurrentLoad(request);
  asset->loadValuesAsynchronously(movieLoadKeys(), [asset, request] {
    // Nobody waits for a loading that was called off; its end is not a loaded movie.
    if (request->abandoned) return;
    log("load(ed)Movie !");
    request->loaded.set();
  });
  log("loadMovie           : asynchronously loading…");
  return request;
}

void abandon(const Movie& asset, LoadRequest& request) {
  request.abandoned = true;
  asset->cancelLoading();
}

/// The part of the loader that opens a file: `slot` is empty by now.
bool openInto(MovieSlot& slot, const std::string& path, bool precise) {
  log("     movie new path : '{}'…", path);
  const Movie asset = platform::mediaLibrary().get()->openAsset(path, {.preciseTiming = precise});
  if (!asset) {
    log("MYMOVIEinstantiate  :-( end (error instantiate)");
    return false;
  }
  const auto request = startLoading(asset);
  const bool ended = waitForLoading(request->loaded);
  if (!isUsable(asset)) {
    // A loading that goes on would keep the asset, its file and the process alive for nothing.
    if (!ended) abandon(asset, *request);
    return false;
  }
  const TrackList tracks = movieTrackTypes(asset, kAllTracks).value_or(TrackList());
  log("[loadMovie tracks]  : ({}) {}", tracks.size(), tracksDescription(tracks));
  slot.movie = asset;
  slot.path = path;
  slot.unfinished = ended ? nullptr : request;
  logVerbose("nouveau             :-) {}", path);
  log("MYMOVIEinstantiate  :-) fin");
  return true;
}

}  // namespace

const std::vector<std::string>& movieLoadKeys() {
  static const std::vector<std::string> keys{"playable", "hasProtectedContent", "tracks", "duration"};
  return keys;
}

bool MYMOVIEinstantiate(const OptionalText& path, bool precise, bool view) {
  log("MYMOVIEinstantiate  - deb : {}", path.value_or("-"));
  if (!path) return false;
  MovieSlot& slot = view ? viewSlot() : currentSlot();
  const auto release = view ? MYMOVIEVIEWrelease : MYMOVIErelease;
  if (!isPresent(*path)) {
    log("MYMOVIEinstantiate  :-( fin - no file at path : {}", *path);
    release();
    return false;
  }
  const std::string standardized = platform::standardizedPath(*path);
  if (slot.movie) {
    if (slot.path == standardized) {
      log("         same movie : re-use '{}'", *slot.path);
      return true;
    }
    log("          new movie : replace old '{}'", slot.path.value_or("nil"));
    release();
  }
  return openInto(slot, standardized, precise);
}

bool MYMOVIEVIEWinstantiate(const OptionalText& path) {
  return MYMOVIEinstantiate(path, false, true);
}
bool MYMOVIEinstantiateCurrent(const OptionalText& path) {
  return MYMOVIEinstantiate(path, false, false);
}

bool movieLoad(const OptionalText& path) {
  if (!path) {
    log("movie no input      :-( nil");
    return false;
  }
  const std::string standardized = platform::standardizedPath(*path);
  if (currentSlot().movie && currentSlot().path == standardized) {
    log("movie re-used       :-) {}", *path);
    return true;
  }
  if (!isPresent(standardized)) {
    log("movie no valid path :-( {}", standardized);
    return false;
  }
  const bool loaded = MYMOVIEinstantiateCurrent(standardized);
  if (loaded) {
    log("movie loaded        :-) {}", standardized);
  } else {
    log("movie not readable  :-( {}", standardized);
  }
  return loaded;
}

float movieFramerateAtPath(const OptionalText& path, signed char /*unused*/) {
  return MYMOVIEinstantiateCurrent(path) ? movieFramerate(MYMOVIEget()) : 0.0F;
}

}  // namespace vistrelle
