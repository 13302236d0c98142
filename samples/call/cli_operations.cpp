#include "registry.h"
#include "vistrelle/cli/diagnostics.h"

namespace call {

using namespace vistrelle;

void addCliOperations(Registry& registry) {
  registry.add("isVerbose", &isVerbose);
  registry.add("setVerbose", &setVerbose);
  registry.add("isVerboseLevel", &isVerboseLevel);
  registry.add("exportFinished", &exportFinished);
  registry.add("setExportFinished", &setExportFinished);
  registry.add("generalFlag", &generalFlag);
  registry.add("setGeneralFlag", &setGeneralFlag);
  registry.add("markerTime", [] { return std::string(markerTime()); });
  registry.add("markerSteps", [] { return std::string(markerSteps()); });
  registry.add("markerPourcentage", [] { return std::string(markerPourcentage()); });
  registry.add("markerBatch", [] { return std::string(markerBatch()); });
  registry.add("markerProcessing", [] { return std::string(markerProcessing()); });
  registry.add("markerBar", [] { return std::string(markerBar()); });
  registry.add("alwaysTrue", &alwaysTrue);
  registry.add("noOperation", &noOperation);
  registry.add("noOperation2", &noOperation2);
  registry.add("isMultipleOf", &isMultipleOf);
  registry.add("areMultiplesOf", &areMultiplesOf);
}

}  // namespace call
