#include "registry.h"
#include "vistrelle/files/bundles.h"
#include "vistrelle/files/guarded.h"
#include "vistrelle/files/listing.h"
#include "vistrelle/files/queries.h"
#include "vistrelle/system/tmp_folder.h"

namespace call {

using namespace vistrelle;

void addFilesOperations(Registry& registry) {
  registry.add("testPresenceCocoa", &testPresenceCocoa);
  registry.add("noteFsChanged", &noteFsChanged);
  registry.add("isDirCocoa", &isDirCocoa);
  registry.add("isWritableCocoa", &isWritableCocoa);
  registry.add("fileNameOfPath", &fileNameOfPath);
  registry.add("fileBaseNameOfPath", &fileBaseNameOfPath);
  registry.add("listAllPathsCocoa", &listAllPathsCocoa);
  registry.add("symlinkDestinationCocoa", &symlinkDestinationCocoa);
  registry.add("poidsFile", &poidsFile);
  registry.add("poidsFileMo", &poidsFileMo);
  registry.add("folderSizeMo", &folderSizeMo);
  registry.add("poidsFileC", &poidsFileC);
  registry.add("freeDiskSpaceMo", &freeDiskSpaceMo);
  registry.add("setModificationDate", &setModificationDate);
  registry.add("openFolderOfPath", &openFolderOfPath);
  registry.add("openFileCocoa", &openFileCocoa);
  registry.add("trashCocoa", &trashCocoa);
  registry.add("resolveAliasPath", &resolveAliasPath);

  registry.add("rmCocoa", &rmCocoa);
  registry.add("mv", &mv);
  registry.add("cpCocoa", &cpCocoa);
  registry.add("mkdirCocoa", &mkdirCocoa);
  registry.add("chmodCocoa", &chmodCocoa);
  registry.add("ln_sCocoa", &ln_sCocoa);
  registry.add("droitsAcces", &droitsAcces);
  registry.add("toolPathSafe", &toolPathSafe);

  registry.add("lsCocoa", &lsCocoa);
  registry.add("lsGrepCocoa", &lsGrepCocoa);
  registry.add("findCocoa", &findCocoa);

  registry.add("EyetvBundle", &EyetvBundle);
  registry.add("fichier_nom", &fichier_nom);
  registry.add("fichier_dirname", &fichier_dirname);
  registry.add("bundleTitleOfPath", &bundleTitleOfPath);
  registry.add("fileFromFolder", &fileFromFolder);
  registry.add("eyetvBundleDuration", &eyetvBundleDuration);

  registry.add("tmpFolderPath", &tmpFolderPath);
  registry.add("tmpFolderSet", &tmpFolderSet);
}

}  // namespace call
