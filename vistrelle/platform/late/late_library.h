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

}  // namespace vistrelle::platform

/// Called by a doorway that is passed for the first time: loads the library where that has not happened, puts the
/// function's address in place and returns it. Any thread. A library or function that is missing ends the process with
/// a line on standard error and status 127, as it does for a library that is needed at the start.
extern "C" void* vistrelleLateResolve(vistrelle::platform::LateFunction* function);
