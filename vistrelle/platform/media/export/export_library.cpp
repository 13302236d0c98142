#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/media/export/export_session.h"
#include "vistrelle/platform/media/export/export_work.h"
#include "vistrelle/platform/media/export/m4a_export.h"
#include "vistrelle/platform/media/export/passthrough.h"
#include "vistrelle/platform/media/export/prores_export.h"

namespace vistrelle::platform {
namespace {

ExportWork passthroughWork(const Asset& asset) {
  ExportWork work;
  std::string reason;
  if (canPassThrough(asset, &reason)) {
    work.fileTypes = {kFileTypeQuickTimeMovie};
  } else {
    log("movie pass-through  :-( {}", reason);
  }
  work.write = &writePassthrough;
  return work;
}

class DefaultExportLibrary : public ExportLibrary {
 public:
  std::shared_ptr<ExportSession> makeSession(const std::shared_ptr<Asset>& asset,
                                             const std::string& presetName) override {
    if (!asset) return nullptr;
    if (presetName == kPresetPassthrough) return makeExportSession(asset, presetName, passthroughWork(*asset));
    if (presetName == kPresetAppleM4A) return makeExportSession(asset, presetName, {{kFileTypeAppleM4A}, &writeM4a});
    if (presetName == kPresetAppleProRes422) {
      return makeExportSession(asset, presetName, {{kFileTypeQuickTimeMovie}, &writeProRes});
    }
    return nullptr;
  }
};

}  // namespace

Seam<ExportLibrary>& exportLibrary() {
  static Seam<ExportLibrary> seam(
      []() -> std::shared_ptr<ExportLibrary> { return std::make_shared<DefaultExportLibrary>(); });
  return seam;
}

}  // namespace vistrelle::platform
