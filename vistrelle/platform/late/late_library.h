#pragma once

namespace vistrelle::platform {

/// A shared library that is loaded at the first call into it. Its memory is laid out in doorway_<processor>.S.
struct LateLibrary {
  void* handle;      ///< null until it has been loaded
  const char* name;  ///< what the loader looks for, e.g. "libz.so.1"
};

/// A function of such a library. Its memory is laid out in doorway_<processor>.S.
struct LateFunction {
  void* address;  ///< where a call goes: first to the loading, then to the function itself
  const char* name;
  LateLibrary* library;
};

/// What is done when a library or function is missing, with the loader's own words; meant not to return.
using LateFailure = void (*)(const char* reason);

/// Installs it; null: a line on standard error and status 127, as for a library that is needed at the start. Once,
/// before other threads run.
void onLateFailure(LateFailure failure);

}  // namespace vistrelle::platform

/// Called by a doorway that is passed for the first time: loads the library where that has not happened, puts the
/// function's address in place and returns it. Any thread. A library or function that is missing ends the process:
/// onLateFailure.
extern "C" void* vistrelleLateResolve(vistrelle::platform::LateFunction* function);
