#include "vistrelle/platform/media/export/damage_log.h"

#include <algorithm>

#include "vistrelle/platform/base/log.h"

namespace vistrelle::platform {
namespace {

constexpr int kMostLines = 20;

}  // namespace

void DamageLog::add(const MediaTime& from, const MediaTime& to) {
  if (from_.isValid() && from <= to_) {
    to_ = std::max(to_, to);
    return;
  }
  flush();
  from_ = from;
  to_ = to;
}

void DamageLog::flush() {
  if (!from_.isValid()) return;
  if (++stretches_ <= kMostLines) {
    log("movie export        :-( damaged {} from {:.3f} to {:.3f} s", what_, from_.seconds(), to_.seconds());
  }
  from_ = to_ = MediaTime::invalid();
}

void DamageLog::finish() {
  flush();
  if (stretches_ > kMostLines)
    log("movie export        :-( damaged {} at {} more places", what_, stretches_ - kMostLines);
  stretches_ = 0;
}

}  // namespace vistrelle::platform
