#include "registry.h"
#include "vistrelle/movieinfo/classification.h"
#include "vistrelle/movieinfo/geometry.h"
#include "vistrelle/movieinfo/inventory.h"
#include "vistrelle/movieinfo/report.h"
#include "vistrelle/movieinfo/timing.h"

namespace call {

using namespace vistrelle;

void addMovieinfoOperations(Registry& registry) {
  registry.add("infosQtMovieTrack", &infosQtMovieTrack);
  registry.add("qtInfos", &qtInfos);
  registry.add("movieInfosJson", &movieInfosJson);

  registry.add("qtDarPar", &qtDarPar);
  registry.add("qtDarParDico", &qtDarParDico);
  registry.add("movieSize", &movieSize);
  registry.add("movieApertureSize", [](const Movie& movie) {
    const platform::Size size = movieApertureSize(movie);
    return std::pair(size.width, size.height);
  });

  registry.add("dureeMovie", &dureeMovie);
  registry.add("qtOffsetMs", &qtOffsetMs);
  registry.add("timecodeTrackSampleCount", &timecodeTrackSampleCount);
  registry.add("movieInfosLog", &movieInfosLog);
  registry.add("isBigFileOfListedType", &isBigFileOfListedType);

  registry.add("drmFourCcList", &drmFourCcList);
  registry.add("ffmpegUnsupportedVideoList", &ffmpegUnsupportedVideoList);
  registry.add("mpegAudioExtensionList", &mpegAudioExtensionList);
  registry.add("pcmAudioExtensionList", &pcmAudioExtensionList);
  registry.add("mpeg2ElementaryExtensionList", &mpeg2ElementaryExtensionList);
  registry.add("mpegElementaryExtensionList", &mpegElementaryExtensionList);
  registry.add("mpegProgramExtensionList", &mpegProgramExtensionList);
  registry.add("mpegProgramExtensionListAll", &mpegProgramExtensionListAll);
  registry.add("standardFrameRateList", &standardFrameRateList);
  registry.add("infoDicoHasDrm", &infoDicoHasDrm);
  registry.add("streamHeaderProbe", &streamHeaderProbe);
  registry.add("bitrateLimit", &bitrateLimit);
}

}  // namespace call
