#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"
#include "vistrelle/platform/media/asset.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// What a session can be asked for; see ExportLibrary::makeSession.
inline constexpr const char* kPresetPassthrough = "AVAssetExportPresetPassthrough";
inline constexpr const char* kPresetAppleM4A = "AVAssetExportPresetAppleM4A";
inline constexpr const char* kPresetAppleProRes422 = "AVAssetExportPresetAppleProRes422LPCM";

/// File types, as log lines print them.
inline constexpr const char* kFileTypeQuickTimeMovie = "AVFileTypeQuickTimeMovie";
inline constexpr const char* kFileTypeAppleM4A = "AVFileTypeAppleM4A";
inline constexpr const char* kFileTypeWave = "AVFileTypeWAVE";

/// The numbers are the ones that log lines print.
enum class ExportStatus : std::int64_t {
  unknown = 0,
  waiting = 1,
  exporting = 2,
  completed = 3,
  failed = 4,
  cancelled = 5
};

/// Writes a movie to a file, once: a session that was started cannot be started again. Set up and started from one
/// thread; progress, status and cancel from any. Dropping a session that is still at work cancels it and waits for its
/// thread.
///
/// The work goes to a hidden temporary in the output's folder, is flushed to the disk and then takes the output's name
/// in one step: a file that was there before is whole until then, and a session that failed or was cancelled leaves it
/// as it is and nothing beside it. A file that another program makes under the name meanwhile is not replaced: the
/// session fails.
class ExportSession : public Opaque {
 public:
  virtual void setOutputUrl(const Url& url) = 0;
  virtual void setOutputFileType(const std::string& type) = 0;
  virtual std::string outputFileType() const = 0;
  virtual std::vector<std::string> supportedFileTypes() const = 0;
  /// Starts and returns at once. `completion` is called exactly once, on the session's own thread, when the file is
  /// in place, when the work failed or was cancelled; status and error are final by then. A second call does nothing.
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
  /// A session for a loaded movie; empty when the preset is unknown or there is no movie. What each preset writes:
  /// pass-through into a QuickTime movie, samples unchanged (no file type is supported when one of the movie's codecs
  /// has no place there); AAC sound into M4A; ProRes 422 with 16-bit PCM sound into a QuickTime movie.
  virtual std::shared_ptr<ExportSession> makeSession(const std::shared_ptr<Asset>& asset,
                                                     const std::string& presetName) = 0;
};

Seam<ExportLibrary>& exportLibrary();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
