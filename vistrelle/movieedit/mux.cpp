#include "vistrelle/movieedit/mux.h"

#include <limits>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/movie/queries.h"
#include "vistrelle/movieedit/cut.h"
#include "vistrelle/movieedit/export.h"
#include "vistrelle/movieedit/movie_text.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/system/tmp_folder.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::MediaTime;
using platform::MediaType;
using platform::TimeRange;
using platform::Value;

constexpr std::int64_t kNoNumber = std::numeric_limits<std::int64_t>::max();
constexpr std::int32_t kMilliseconds = 1000;

const Value* entry(const Dictionary& dictionary, const std::string& key) {
  const auto found = dictionary.find(key);
  return found == dictionary.end() ? nullptr : &found->second;
}

std::string entryText(const Dictionary& dictionary, const std::string& key) {
  const Value* value = entry(dictionary, key);
  return value != nullptr ? platform::description(*value) : "nil";
}

std::vector<std::string> presentOf(const std::vector<std::string>& paths) {
  std::vector<std::string> present;
  for (const std::string& path : paths) {
    if (testPresenceCocoa(Value(path))) present.push_back(path);
  }
  return present;
}

void logTrack(platform::FormatLiteral line, std::size_t index, const platform::Track& track, const MediaTime& length) {
  if (isVerbose()) log(line, index, track.description(), length.value, length.scale, length.seconds());
}

/// A new track of the composition with all of `track`, as far as `movie` lasts.
bool lay(platform::Composition& composition, MediaType type, const Movie& movie, std::int64_t typeNumber,
         std::size_t index, const MediaTime& at, std::string* error) {
  const auto target = composition.addMutableTrack(type, 0);
  const TrackList tracks = movieTrackTypes(movie, typeNumber).value_or(TrackList());
  if (index >= tracks.size()) {
    *error = "the movie has no such track";
    return false;
  }
  return target->insertTimeRange({MediaTime::zero(), movie->duration()}, tracks[index], at, error);
}

/// What the dictionary says of the next audio track.
struct Offset {
  std::string key;  ///< empty without a number
  std::int64_t milliseconds = 0;
};

Offset offsetIn(const Dictionary& offsets) {
  Offset offset;
  const Value* number = entry(offsets, "a0_id");
  if (number == nullptr || integerOf(*number) == kNoNumber) return offset;
  offset.key = platform::format("a{}_offsetMs", integerOf(*number));
  logVerbose("offsetAKey          : {}", offset.key);
  if (const Value* found = entry(offsets, offset.key)) offset.milliseconds = integerOf(*found);
  return offset;
}

/// MYMOVIEEDIT written to the temporary folder and read again; empty on failure.
Movie cutSound() {
  if (!tmpFolderReady()) return nullptr;
  const std::string path = platform::appendingPathComponent(tmpFolderPath(), "audioCutted.mov");
  rmCocoa(path);
  if (!qtAvExport(MYMOVIEEDITget(), path, kExportPassthrough)) return nullptr;
  if (!MYMOVIEinstantiate(path, false, true)) return nullptr;
  const Movie cut = MYMOVIEVIEWget();
  MYMOVIEVIEWrelease();
  return cut;
}

/// Takes the beginning of the sound away: `sound` becomes the shortened movie, `offset` nothing. A cut that fails
/// leaves both as they are.
void cutBeginning(Offset& offset, Dictionary& offsets, Movie& sound) {
  logVerbose("offsetMsAInt        = {}", offset.milliseconds);
  // One millisecond more than asked for, intended.
  const std::int64_t length = offset.milliseconds > std::numeric_limits<std::int64_t>::min() + 1
                                  ? 1 - offset.milliseconds
                                  : std::numeric_limits<std::int64_t>::max();
  if (getMYMOVIEEDIT(MYMOVIEget()) && movieCut(MYMOVIEEDITget(), 0, length, kMilliseconds)) {
    log("movieCut()          :-)");
    offsets.erase(offset.key);
    if (const Movie cut = cutSound()) sound = cut;
    MYMOVIEEDITrelease();
    offset.milliseconds = 0;
  }
  if (isVerbose()) {
    log("offsetAKey:{}, v_offsetMs:{}", entryText(offsets, offset.key), entryText(offsets, "v_offsetMs"));
  }
}

void layPictures(platform::Composition& composition) {
  const Movie movie = MYMOVIEget();
  const TrackList tracks = movieTrackTypes(movie, kVideoTracks).value_or(TrackList());
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    logTrack("vTracks #{} : {} ({} / {} = {:f}) ", i, *tracks[i], movie->duration());
    std::string error;
    if (!lay(composition, MediaType::video, movie, kVideoTracks, i, MediaTime::zero(), &error)) {
      log("muxAvQt vTrack error:-( {}", error);
    }
  }
}

void laySound(platform::Composition& composition, Dictionary& offsets) {
  const TrackList tracks = movieTrackTypes(MYMOVIEget(), kAudioTracks).value_or(TrackList());
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    logTrack("aTracks #{} : {} ({} / {} = {:f}) ", i, *tracks[i], MYMOVIEget()->duration());
    Movie sound = MYMOVIEget();
    Offset offset = offsetIn(offsets);
    if (offset.milliseconds < 0) cutBeginning(offset, offsets, sound);
    if (isVerbose()) {
      log("aTracks #{}          : {} ({:f}) ", i, tracks[i]->description(), sound->duration().seconds());
    }
    const MediaTime at =
        offset.milliseconds > 0 ? MediaTime::make(offset.milliseconds, kMilliseconds) : MediaTime::zero();
    std::string error;
    if (!lay(composition, MediaType::audio, sound, kAudioTracks, i, at, &error)) {
      log("muxAvQt aTrack error:-( {}", error);
    }
  }
}

}  // namespace

Composition muxAvQt(const std::optional<std::vector<std::string>>& paths, const std::optional<Dictionary>& offsets) {
  if (isVerbose()) {
    log("muxAvQt             : {}\n{}", paths ? platform::description(*paths) : "nil",
        offsets ? platform::description(Value(*offsets)) : "nil");
  }
  const std::vector<std::string> present = presentOf(paths.value_or(std::vector<std::string>()));
  log("ma : {}", platform::description(present));
  if (present.empty()) return nullptr;
  Dictionary remaining = offsets.value_or(Dictionary());
  const Composition composition = platform::Composition::make();
  for (const std::string& path : present) {
    MYMOVIErelease();
    MYMOVIEVIEWrelease();
    if (!MYMOVIEinstantiate(path, false, false)) continue;
    if (isVerbose()) log("MYMOVIE : {}", movieText(MYMOVIEget()));
    layPictures(*composition);
    laySound(*composition, remaining);
    if (isVerbose()) log("mutableCompo… tmp   : {}", movieText(composition));
  }
  return composition;
}

bool muxAvQtExport(const std::optional<std::vector<std::string>>& paths, const platform::OptionalText& destination,
                   const std::optional<Dictionary>& offsets) {
  const Composition composition = muxAvQt(paths, offsets);
  if (isVerbose()) log("mutableCompo… final : {}", movieText(composition));
  return qtAvExport(composition, destination, kExportPassthrough);
}

}  // namespace vistrelle
