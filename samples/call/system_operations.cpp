#include "registry.h"
#include "vistrelle/system/commands.h"
#include "vistrelle/system/preferences.h"
#include "vistrelle/system/probes.h"
#include "vistrelle/system/property_lists.h"
#include "vistrelle/system/text_files.h"
#include "vistrelle/system/web.h"

namespace call {

using namespace vistrelle;

void addSystemOperations(Registry& registry) {
  registry.add("taskArray", &taskArray);
  registry.add("taskWithStr", &taskWithStr);
  registry.add("taskLaunchNoWait", &taskLaunchNoWait);
  registry.add("isStringSafeForTask", &isStringSafeForTask);
  registry.add("readContentsTxtViaCat", &readContentsTxtViaCat);

  registry.add("prefRead", &prefRead);
  registry.add("prefObject", &prefObject);
  registry.add("prefReadString", &prefReadString);
  registry.add("prefReadChild", &prefReadChild);
  registry.add("prefWrite", &prefWrite);
  registry.add("prefWriteBool", &prefWriteBool);
  registry.add("prefWriteDico", &prefWriteDico);
  registry.add("prefWriteChildDico", &prefWriteChildDico);
  registry.add("prefDeleteChildDico", &prefDeleteChildDico);
  registry.add("prefDelete", &prefDelete);
  registry.add("isDeveloperMachine", &isDeveloperMachine);
  registry.add("readPlist", &readPlist);
  registry.add("writePlist", &writePlist);
  registry.add("creationDateOfPath", &creationDateOfPath);
  registry.add("sourceOfWebPage", &sourceOfWebPage);

  registry.add("encodingCharsetTable", &encodingCharsetTable);
  registry.add("encodingOfTextFile", &encodingOfTextFile);
  registry.add("convertFromEncoding", &convertFromEncoding);
  registry.add("readContentsTxtFirst", &readContentsTxtFirst);
  registry.add("ecrit", &ecrit);
  registry.add("ecritNoBom", &ecritNoBom);
  registry.add("ecritWithBom", &ecritWithBom);
  registry.add("ecritWithEncoding", &ecritWithEncoding);
  registry.add("ecritureFichier", &ecritureFichier);
  registry.add("prependToFile", &prependToFile);
  registry.add("writeUtf8Bom", &writeUtf8Bom);

  registry.add("dvdToolVersion", &dvdToolVersion);
  registry.add("versionOS", &versionOS);
  registry.add("versionQT", &versionQT);
  registry.add("isQuartzExtreme", &isQuartzExtreme);
  registry.add("cpuG3", &cpuG3);
  registry.add("processorCount", &processorCount);
  registry.add("isInternetReachable", &isInternetReachable);
  registry.add("colorHexaRgb", &colorHexaRgb);
  registry.add("openURLText", &openURLText);
  registry.add("runAppleScript", &runAppleScript);
}

}  // namespace call
