#include "registry.h"
#include "vistrelle/cli/diagnostics.h"
#include "vistrelle/cli/entry.h"

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
  // The seven references are plain numbers here: the host never looks behind them.
  registry.add("objectReference", [](int index) { return reinterpret_cast<std::intptr_t>(objectReference(index)); });
  registry.add("setObjectReference", [](int index, std::intptr_t object) {
    setObjectReference(index, reinterpret_cast<const void*>(object));
  });
  registry.add("redirectStdoutToFile", &redirectStdoutToFile);
  registry.add("bannerPrint", &bannerPrint);
  registry.add("stderrPrint", &stderrPrint);
  registry.add("vistrelleMain", [](const std::vector<std::string>& arguments) {
    std::vector<const char*> pointers{"vistrelle"};
    for (const std::string& each : arguments) pointers.push_back(each.c_str());
    pointers.push_back(nullptr);
    return vistrelleMain(static_cast<int>(pointers.size()) - 1, pointers.data());
  });
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
