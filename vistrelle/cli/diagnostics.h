#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "vistrelle/platform/base/format.h"
#include "vistrelle/platform/base/log.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

/// The verbose switch, the progress markers and the other values that every module shares.
namespace vistrelle {

using platform::log;

/// Whether detailed log lines are written; off at start.
bool isVerbose();
void setVerbose(bool verbose);

/// The finer debug levels are fixed off: always false, whatever the level.
bool isVerboseLevel(int level);

/// Logs only when verbose. Arguments are evaluated either way: guard costly ones with isVerbose().
template <typename... Arguments>
void logVerbose(platform::FormatLiteral literal, const Arguments&... arguments) {
  if (isVerbose()) log(literal, arguments...);
}

/// The second half of a mood mark written as ":-%@".
inline const char* mood(bool good) {
  return good ? ")" : "(";
}

/// Set by the export completion handler, looked at by the exporting thread.
bool exportFinished();
void setExportFinished(bool finished);

/// Free for hosts; true at start. Nothing in the system reads or writes it.
bool generalFlag();
void setGeneralFlag(bool flag);

/// Seven references free for hosts (index 0 to 6); the setter stores a plain reference and owns nothing, so the host
/// keeps the object alive. An index outside gives nothing and stores nothing.
const void* objectReference(int index);
void setObjectReference(int index, const void* object);

/// Sends standard output and standard error to the end of the file at `path` from now on. A second call changes
/// nothing, and neither does, with a log line, a path that cannot be written.
void redirectStdoutToFile(const std::string& path);

/// Texts before a number in the output of the system's tools and of tools it reads.
const char* markerTime();         ///< "time="
const char* markerSteps();        ///< "steps          : "
const char* markerPourcentage();  ///< "pourcentage    : "
const char* markerBatch();        ///< "(batch "
const char* markerProcessing();   ///< "Processing ("
const char* markerBar();          ///< "| ("

/// Always true.
bool alwaysTrue();
/// Two places for a host's debugger to stop; they do nothing.
void noOperation();
void noOperation2();

/// Whether a is divisible by b. A zero b ends the process, as every integer division by zero does.
bool isMultipleOf(std::int64_t a, std::int64_t b);
/// Whether both a and b are divisible by c.
bool areMultiplesOf(std::int64_t a, std::int64_t b, std::int64_t c);

}  // namespace vistrelle

#pragma GCC visibility pop
