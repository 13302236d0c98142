#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "vistrelle/platform/media/asset.h"
#include "vistrelle/platform/media/confined/nursery.h"
#include "vistrelle/platform/media/confined/worker.h"

namespace vistrelle::platform {

struct ConfinedOptions {
  WorkerOptions worker;
  /// A worker that shows no sign of life for so long is ended.
  std::chrono::milliseconds silence{60000};
  /// No single answer may take longer, signs of life or not.
  std::chrono::milliseconds longestAnswer{1800000};
  /// Called once, when the process that workers come from has been made and the first worker has yet to get ready:
  /// from now on this process may have further threads. May be empty.
  std::function<void()> whenStarted;
  /// For tests: what a worker does instead of serving. Empty: it serves.
  WorkerBody body;
};

/// Opens movies in processes that can do nothing but decode them, one a movie; pictures come back as planes and are
/// the same as those of FfmpegMediaLibrary to the last bit.
///
/// A worker that crashes, loops or talks nonsense while it opens a movie leaves an unreadable movie, with a log line;
/// while it makes a picture, a picture that could not be made, and a fresh worker serves the next ones. Lines that a
/// worker logs are logged here.
///
/// The first movie is opened, or prepare() called, while the process has one thread. Otherwise, and where the system
/// refuses processes, one log line says so and movies are read in this process; one line as well where the kernel
/// cannot build all the walls around a worker.
class ConfinedMediaLibrary : public MediaLibrary, public std::enable_shared_from_this<ConfinedMediaLibrary> {
 public:
  explicit ConfinedMediaLibrary(ConfinedOptions options = {});
  ~ConfinedMediaLibrary() override;

  std::shared_ptr<Asset> openAsset(const std::string& path, const OpenOptions& options) override;
  /// Makes the process that workers come from, unless that has been done. False when movies are read in this process.
  bool prepare();
  /// That process; empty without one.
  std::shared_ptr<Nursery> nursery() const;

 private:
  ConfinedOptions options_;
  mutable std::mutex mutex_;
  bool isPrepared_ = false;
  std::shared_ptr<Nursery> nursery_;
  std::shared_ptr<MediaLibrary> fallback_;
};

}  // namespace vistrelle::platform
