#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/media/export/export_session.h"
#include "vistrelle/platform/media/export/passthrough.h"

namespace vistrelle::platform {

/// What a preset does: the file types it can write, the preferred one first, and its writer. The writer gets an empty
/// file open for reading and writing, and answers false with an error text; it may throw.
struct ExportWork {
  std::vector<std::string> fileTypes;
  std::function<bool(Asset& asset, int fd, const ExportControl& control, std::string* error)> write;
};

/// A session that has `work` done for `asset`.
std::shared_ptr<ExportSession> makeExportSession(std::shared_ptr<Asset> asset, std::string presetName, ExportWork work);

}  // namespace vistrelle::platform
