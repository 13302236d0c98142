#pragma once

#include <string>

#include "vistrelle/platform/media/media_time.h"

namespace vistrelle::platform {

/// Says where an export is not what was recorded, because its source is damaged there: one line for each stretch of the
/// timeline, of the first twenty, then how many more there were.
class DamageLog {
 public:
  /// `what` is damaged: "pictures", "sound".
  explicit DamageLog(std::string what) : what_(std::move(what)) {}

  /// Stretches come in order; one that touches the last is a part of it.
  void add(const MediaTime& from, const MediaTime& to);
  /// No more comes.
  void finish();

 private:
  void flush();

  std::string what_;
  MediaTime from_ = MediaTime::invalid();
  MediaTime to_ = MediaTime::invalid();
  int stretches_ = 0;
};

}  // namespace vistrelle::platform
