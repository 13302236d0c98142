#pragma once

#include <cstdint>

#include "vistrelle/platform/dialogs/dialog.h"

/// The waits of the alerts, on the clock seam.
namespace vistrelle {

struct SessionEnd {
  bool timedOut = true;
  platform::ModalResponse response = platform::kModalContinue;
};

/// Lays out and wires the alert, runs it until somebody answers or `seconds` are counted, and closes it. Only the
/// waits between the passes are counted, 0.1 each, in single precision: 3 seconds are 31 passes.
SessionEnd runAlertSession(platform::AlertDialog& alert, std::int64_t seconds);

/// Blocks for `seconds` + 1 passes, logging each: the first takes a second, every other one two.
void holdSheet(std::int64_t seconds);

}  // namespace vistrelle
