#include "vistrelle/movieinfo/classification.h"

#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/platform/text/unicode.h"
#include "vistrelle/text/scanning.h"

namespace vistrelle {
namespace {

constexpr float kAudioRate = 192.0F;  // kilobits a second

}  // namespace

std::vector<std::string> drmFourCcList() {
  return {"drmi", "drms"};
}

std::vector<std::string> ffmpegUnsupportedVideoList(const platform::OptionalText& kind) {
  const bool isKindA = kind && platform::equalsIgnoringCase(*kind, "A");
  return {isKindA ? "dv" : "ffts", "mov", "3ivx", "unsupportedVideoCodecFfmpeg"};
}

std::vector<std::string> mpegAudioExtensionList() {
  return {"ac3", "mp2", "mpa", "m1a"};
}

std::vector<std::string> pcmAudioExtensionList() {
  return {"wav", "wave", "aif", "aiff"};
}

std::vector<std::string> mpeg2ElementaryExtensionList() {
  return {"m2v", "mpv"};
}

std::vector<std::string> mpegElementaryExtensionList() {
  return {"m2v", "mpv", "m1v"};
}

std::vector<std::string> mpegProgramExtensionList() {
  return {"mpg", "mpeg", "mod", "ts", "vob"};
}

std::vector<std::string> mpegProgramExtensionListAll() {
  return {"mpg", "mpeg", "mod", "ts", "vob", "tod", "vro"};
}

std::vector<float> standardFrameRateList() {
  return {12.5F, 25.0F, 11.99F, 23.98F, 12.0F, 24.0F, 14.98F, 29.97F, 15.0F, 30.0F};
}

bool infoDicoHasDrm(const std::optional<platform::Dictionary>& dico) {
  if (!dico) return false;
  for (const auto& [key, value] : *dico) {
    if (key.find("_codec") == std::string::npos) continue;
    for (const std::string& code : drmFourCcList()) {
      if (value == platform::Value(code)) {
        log("dicoContainsItunesDR:-( DRM protected file ({}={})", key, code);
        return true;
      }
    }
  }
  return false;
}

std::int64_t bitrateLimit(std::int64_t maxMB, float seconds) {
  logVerbose("duration            : {:.2f}\"", seconds);
  // Double precision within a step, single precision from step to step: the rounding is part of the result.
  const auto budget = static_cast<float>(static_cast<double>(static_cast<float>(maxMB)) * 1024 * 1024 * 8 / 1000);
  logVerbose("poidsAVMax          : {} MB > {:.0f} bits", maxMB, budget);
  const float audio = kAudioRate * seconds;
  logVerbose("poidsA              : {:.0f} MB ({:.0f} bits)", static_cast<double>(audio) * 0.125 / 1024 / 1024 * 1000,
             audio);
  const float video = budget - audio;
  logVerbose("poidsV              : {:.0f}", video);
  const std::int64_t rate = truncatedInteger(static_cast<double>(video / seconds));
  logVerbose("bitrate Limited     : {} kb/s", rate);
  return rate;
}

}  // namespace vistrelle
