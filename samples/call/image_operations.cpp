#include "registry.h"
#include "vistrelle/image/export.h"
#include "vistrelle/image/rescale.h"

namespace call {

using namespace vistrelle;

void addImageOperations(Registry& registry) {
  registry.add("imgRescale", &imgRescale);
  registry.add("imgSizes", &imgSizes);
  registry.add("cropFill", &cropFill);
  registry.add("letterbox", &letterbox);
  registry.add("stretch", &stretch);
  registry.add("fitCanvas", &fitCanvas);
  registry.add("coverCanvas", &coverCanvas);
  registry.add("imgExport", &imgExport);
  registry.add("imgFillColor", &imgFillColor);
  registry.add("imgColorSwatchPng", &imgColorSwatchPng);
}

}  // namespace call
