#include "vistrelle/cli/diagnostics.h"

#include <array>
#include <atomic>
#include <cstdio>

#include "vistrelle/platform/files/path.h"

namespace vistrelle {
namespace {

constexpr int kReferences = 7;

std::atomic<bool> verboseSwitch{false};
std::atomic<bool> exportFinishedFlag{false};
std::atomic<bool> generalFlagValue{true};
std::array<const void*, kReferences> references{};
std::FILE* newStdout = nullptr;
std::FILE* newStderr = nullptr;

/// A stream that cannot be reopened is closed, and the next file that is opened would take its descriptor and receive
/// the log: so the path is tried first.
bool canAppend(const std::string& path) {
  std::FILE* const trial = std::fopen(path.c_str(), "a+");
  return trial && std::fclose(trial) == 0;
}

}  // namespace

bool isVerbose() {
  return verboseSwitch;
}
void setVerbose(bool verbose) {
  verboseSwitch = verbose;
}
bool isVerboseLevel(int /*level*/) {
  return false;
}

bool exportFinished() {
  return exportFinishedFlag;
}
void setExportFinished(bool finished) {
  exportFinishedFlag = finished;
}

bool generalFlag() {
  return generalFlagValue;
}
void setGeneralFlag(bool flag) {
  generalFlagValue = flag;
}

const void* objectReference(int index) {
  return index >= 0 && index < kReferences ? references[static_cast<std::size_t>(index)] : nullptr;
}

void setObjectReference(int index, const void* object) {
  if (index >= 0 && index < kReferences) references[static_cast<std::size_t>(index)] = object;
}

void redirectStdoutToFile(const std::string& path) {
  if (newStdout || newStderr) {
    log("if (newStdout || newStderr)");
    return;
  }
  log("redirectStdoutToFile…");
  const std::string expanded = platform::expandingTilde(path);
  if (!canAppend(expanded)) {
    log("redirectStdoutToFile:-( '{}'", path);
    return;
  }
  newStdout = std::freopen(expanded.c_str(), "a+", stdout);
  newStderr = std::freopen(expanded.c_str(), "a+", stderr);
  // A reopened stream is buffered; the lines of both streams and of the log would change places.
  if (newStderr) std::setvbuf(newStderr, nullptr, _IONBF, 0);
}

const char* markerTime() {
  return "time=";
}
const char* markerSteps() {
  return "steps          : ";
}
const char* markerPourcentage() {
  return "pourcentage    : ";
}
const char* markerBatch() {
  return "(batch ";
}
const char* markerProcessing() {
  return "Processing (";
}
const char* markerBar() {
  return "| (";
}

bool alwaysTrue() {
  return true;
}
void noOperation() {}
void noOperation2() {}

// Everything is a multiple of -1; the machine's own division would fail for the lowest number.
bool isMultipleOf(std::int64_t a, std::int64_t b) {
  return b == -1 || a % b == 0;
}

bool areMultiplesOf(std::int64_t a, std::int64_t b, std::int64_t c) {
  return isMultipleOf(a, c) && isMultipleOf(b, c);
}

}  // namespace vistrelle
