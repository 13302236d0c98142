#include "registry.h"
#include "vistrelle/movieedit/cut.h"
#include "vistrelle/movieedit/export.h"
#include "vistrelle/movieedit/joining.h"
#include "vistrelle/movieedit/mux.h"
#include "vistrelle/movieedit/probe.h"

namespace call {

using namespace vistrelle;

void addMovieeditOperations(Registry& registry) {
  registry.add("getMYMOVIEEDIT", &getMYMOVIEEDIT);
  registry.add("mutableCompositionOf", &mutableCompositionOf);
  registry.add("movieCut", &movieCut);
  registry.add("movieCutForceSize", &movieCutForceSize);
  registry.add("qtAvExport", &qtAvExport);
  registry.add("movieToRescale", &movieToRescale);
  registry.add("movieToRescaleExport", &movieToRescaleExport);
  registry.add("moviesConcatenate", &moviesConcatenate);
  registry.add("muxAvQt", &muxAvQt);
  registry.add("muxAvQtExport", &muxAvQtExport);
  registry.add("qtDecodingProbe", &qtDecodingProbe);
  registry.add("ffmpegRemuxMov", &ffmpegRemuxMov);
  registry.add("progressPercentFromLog", &progressPercentFromLog);
}

}  // namespace call
