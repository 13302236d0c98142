#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vistrelle/platform/dialogs/dialog.h"

/// Windows come from a plug-in, the only part that knows a GUI library. It is loaded
///  - by the helper program, one process for each alert, so that a display that is lost takes nobody else down and no
///    GUI library comes into this process; this is what `dialogs()` does by itself;
///  - into this process, only when a host asks for it that has windows of the same toolkit and runs its event loop.
/// Helper and plug-in lie in the folder that the variable VISTRELLE_DIALOGS names, else beside the executable or the
/// library, else in the folder they were installed to.
namespace vistrelle::platform {

/// A toolkit in this process. The host's application object exists before it is used and outlives it; a lost display
/// ends the host as it ends any program of that toolkit.
class Toolkit : public Dialogs {
 public:
  /// The host's widget as a window or a view. `widget` is a QWidget and outlives the answer's use, which notices its
  /// end; empty for a null pointer.
  virtual std::shared_ptr<Window> window(void* widget) = 0;
  virtual std::shared_ptr<View> view(void* widget) = 0;
};

/// Loads the plug-in into this process (once); empty, with a log line, when it is not there or cannot be loaded, or
/// the host has no application object yet.
std::shared_ptr<Toolkit> loadToolkit();

struct DialogFiles {
  std::string helper;
  std::string plugin;
};
/// Where helper and plug-in lie; absent unless both are there.
std::optional<DialogFiles> findDialogFiles();

/// What the plug-in exports with C linkage.
inline constexpr const char* kServeSymbol = "vistrelleDialogsServe";      ///< int(int socket): the helper's whole life
inline constexpr const char* kToolkitSymbol = "vistrelleDialogsToolkit";  ///< Toolkit*(), owned by the caller, or null

}  // namespace vistrelle::platform
