#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/asset.h"

namespace vistrelle::platform {

/// The numbers are the ones that log lines print.
enum class ExportStatus : std::int64_t {
  unknown = 0,
  waiting = 1,
  exporting = 2,
  completed = 3,
  failed = 4,
  cancelled = 5
};

/// Writes a movie to a file. Set up and started from one thread; progress, status and cancel from any.
/// Dropping a session that is still at work cancels it and waits for its thread.
class ExportSession : public Opaque {
 public:
  virtual void setOutputUrl(const Url& url) = 0;
  virtual void setOutputFileType(const std::string& type) = 0;
  virtual std::string outputFileType() const = 0;
  virtual std::vector<std::string> supportedFileTypes() const = 0;
  /// Starts and returns at once. `completion` is called exactly once, on the session's own thread, when the file is
  /// in place, when the work failed or was cancelled; status and error are final by then.
  virtual void exportAsynchronously(std::function<void()> completion) = 0;
  /// From 0 to 1.
  virtual float progress() const = 0;
  virtual ExportStatus status() const = 0;
  virtual OptionalText error() const = 0;
  virtual void cancelExport() = 0;
};

/// Makes export sessions.
class ExportLibrary {
 public:
  virtual ~ExportLibrary() = default;
  /// Empty when the preset is unknown.
  virtual std::shared_ptr<ExportSession> makeSession(const std::shared_ptr<Asset>& asset,
                                                     const std::string& presetName) = 0;
};

Seam<ExportLibrary>& exportLibrary();

}  // namespace vistrelle::platform
