#include "vistrelle/cli/entry.h"

int main(int argc, char** argv) {
  vistrelle::prepareProcess();
  return vistrelle::vistrelleMain(argc, argv);
}
