#include "vistrelle/movieinfo/inventory.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/movie/loader.h"
#include "vistrelle/movieinfo/classification.h"
#include "vistrelle/movieinfo/codec_names.h"
#include "vistrelle/movieinfo/geometry.h"
#include "vistrelle/movieinfo/timing.h"
#include "vistrelle/platform/files/path.h"
#include "vistrelle/text/scanning.h"
#include "vistrelle/text/text.h"

namespace vistrelle {
namespace {

using platform::Dictionary;
using platform::OptionalText;
using platform::Track;

// Every video (audio) track writes the same key, so the last one counts: intended.
constexpr const char* kVideoKey = "v0_codec";
constexpr const char* kAudioKey = "a0_codec";

std::string describe(const Dictionary& dictionary) {
  return platform::description(platform::Value(dictionary));
}

bool isVideoType(const std::string& type) {
  constexpr std::array<const char*, 4> types{"vide", "MPEG", "flsh", "movi"};
  return std::ranges::find(types, type) != types.end();
}

bool isProtectedCode(const std::string& code) {
  const std::vector<std::string> codes = drmFourCcList();
  return std::ranges::find(codes, code) != codes.end();
}

/// Walks the tracks into the dictionary.
class Inventory {
 public:
  explicit Inventory(Dictionary& infos) : infos_(infos) {}

  /// False when the track is protected.
  bool add(std::size_t index, const Track& track) {
    index_ = index;
    if (isVerbose()) log("currTrack #{}        : {}", index, track.description());
    readCode(track);
    const OptionalText type = track.mediaTypeCode();
    log("currTrackTypeStr    : {}", type.value_or("(null)"));
    if (!type) return true;
    if (isVideoType(*type)) return addVideo(track, *type);
    if (*type == "soun") return addAudio();
    if (*type == "twen") {
      log("track {} format      : {}", index, *type);
      return true;
    }
    log("QTTrackMediaTypeAttr- {} : {}", index, *type);
    log("track {} format      : {}", index, *type);
    infos_.insert_or_assign(platform::format("toto{}_mediaAttributes", index), *type);
    return true;
  }

  /// Of the track added last.
  const OptionalText& code() const { return code_; }

 private:
  /// The code of the last format description; absent without one.
  void readCode(const Track& track) {
    code_.reset();
    std::size_t pass = 0;
    for (const platform::FormatDescription& format : track.formatDescriptions()) {
      log("pass {}#{}", index_, pass++);
      code_ = findAndReplace(format.code, "'", "", false);
      log("fourCc              : {}", code_.value_or("(null)"));
      const platform::Rect& clean = format.cleanAperture;
      log("CGRect x={:f} y={:f} w={:f} h={:f}", clean.x, clean.y, clean.width, clean.height);
      log("trackDim            : w={} h={}", format.width, format.height);
    }
  }

  bool addVideo(const Track& track, const std::string& type) {
    log("video track…");
    if (code_) {
      logVerbose("c:v                 : {}", *code_);
      if (isProtectedCode(*code_)) return false;
      const std::string name = videoCodecName(*code_);
      logVerbose("c:v                 : '{}'", name);
      infos_.insert_or_assign(kVideoKey, name);
    }
    logVerbose("QTTrackMediaTypeAttr- {} :-) {}", index_, type);
    if (isVerbose()) {
      const platform::Size size = track.naturalSize();
      log("size WrapperCompute : ({},{}) :-/", truncatedInteger(size.width), truncatedInteger(size.height));
    }
    return true;
  }

  bool addAudio() {
    log("audio track…");
    if (!code_) return true;
    log("c:a                 : {}", *code_);
    if (isProtectedCode(*code_)) return false;
    const std::string name = audioCodecName(*code_);
    logVerbose("c:a                 : {}", name);
    infos_.insert_or_assign(kAudioKey, name);
    return true;
  }

  Dictionary& infos_;
  std::size_t index_ = 0;
  OptionalText code_;
};

void addTiming(Dictionary& infos, const Movie& movie) {
  const std::int64_t seconds = truncatedInteger(movieDuration(movie));
  log("Duree en secondes   : {}", seconds);
  infos.insert_or_assign("w_duration", seconds);
  const float rate = movieFramerate(movie);
  log("movieFps >fpsWrapper= {:.3f}", rate);
  infos.insert_or_assign("v0_fps", rate);
  log("movieFps > infosDico: {}", describe(infos));
}

void merge(Dictionary& into, const Dictionary& entries) {
  for (const auto& [key, value] : entries) into.insert_or_assign(key, value);
}

}  // namespace

Dictionary infosQtMovieTrack(const OptionalText& path) {
  log("qt infosQtMovieTrack- begin");
  const OptionalText source = path ? OptionalText(platform::expandingTilde(*path)) : std::nullopt;
  logVerbose("srcPathStr          : {}", source.value_or("(null)"));
  if (!MYMOVIEinstantiate(source, false, false)) {
    log("Error               : non-readable movie");
    log("qt infosQtMovieTrack- end \n----------");
    return {};
  }
  const Movie movie = MYMOVIEget();
  Dictionary infos;
  addTiming(infos, movie);
  const auto tracks = movieTracks(movie);
  if (!tracks) {
    log("echec                :-( code pas bon ou source non compatible QT (= pas trouve de track!!!)");
    log("qt infosQtMovieTrack- end\n----------");
    return infos;
  }
  if (isVerbose()) log("tracksMArray {}tracks: {}", tracks->size(), tracksDescription(*tracks));
  Inventory inventory(infos);
  for (std::size_t i = 0; i < tracks->size(); ++i) {
    if (inventory.add(i, *(*tracks)[i])) continue;
    log("movie protected     : DRM ({})", inventory.code().value_or("(null)"));
    log("qt infosQtMovieTrack- end \n----------");
    return {};
  }
  // Movies named .mov or .qtl get no "w_qtasync" entry, like all others: intended.
  if (isVerbose()) log("infosQtMovieTrack   : {}", describe(infos));
  log("qt > infosQtMovieTr - end\n----------");
  return infos;
}

Dictionary qtInfos(const OptionalText& path) {
  Dictionary infos = infosQtMovieTrack(path);
  if (isVerbose()) log("qt infos            : {}", describe(infos));
  if (infos.size() <= 1) return infos;
  if (const auto offsets = qtOffsetMs(path)) {
    log("qtAudioOffsetMsDico : {}", describe(*offsets));
    merge(infos, *offsets);
  }
  log("qtDico 1            : {}", describe(infos));
  if (const auto sizes = movieSize(path)) {
    log("videoSizesDico : {}", describe(*sizes));
    merge(infos, *sizes);
  }
  log("qtDico 2            : {}", describe(infos));
  if (isVerbose()) log("qtDico              : {}", describe(infos));
  return infos;
}

}  // namespace vistrelle
