#pragma once

#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle {

/// Seconds of a timecode: "S", "S.fff", "H:M:S" and "D:H:M:S", the last piece with a fraction after "." or "," or with
/// frames over a rate ("02.12/25"). Never fails: what it cannot read is 0, "M:S" included. A 0 from a text that holds
/// another number raises an alert of 60 seconds in verbose mode and on developers' machines.
float timecodeStr2Float(const platform::OptionalText& text);

/// What timecodeStr2Float answers, without its log lines and its alert.
float timecodeSeconds(const platform::OptionalText& text);

}  // namespace vistrelle

#pragma GCC visibility pop
