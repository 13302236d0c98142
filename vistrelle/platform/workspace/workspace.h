#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// The user's desktop: its Trash, its applications, its display. Every call answers without a display, without a
/// message bus and without HOME; then nothing is opened.
class Workspace {
 public:
  virtual ~Workspace() = default;
  /// A file or folder changed. Called before every existence test: cheap, and it must never matter to the caller.
  virtual void noteFileSystemChanged(const std::string& path) = 0;
  /// Moves the items of a folder to the Trash; true when all of them went there.
  virtual bool recycle(const std::string& folder, const std::vector<std::string>& names) = 0;
  /// Opens a file with an application, brought forward; an empty name means the default one. True when it was started.
  virtual bool openFile(const std::string& path, const std::string& application) = 0;
  /// Opens what a URL names (a file, a folder, a page) with its default application. True when it was started.
  virtual bool openUrl(const Url& url) = 0;
  /// Whether there is a display, and a device that accelerates drawing on it.
  virtual bool displayIsAccelerated() = 0;
};

/// The default speaks to the desktop through GIO, which nothing touches before the first item is recycled or opened.
/// Desktops watch files themselves, so that it tells them of no change.
Seam<Workspace>& workspace();

/// Passes everything on; a test overrides the call it looks at.
class ForwardingWorkspace : public Workspace {
 public:
  explicit ForwardingWorkspace(std::shared_ptr<Workspace> next) : next_(std::move(next)) {}
  void noteFileSystemChanged(const std::string& path) override { next_->noteFileSystemChanged(path); }
  bool recycle(const std::string& folder, const std::vector<std::string>& names) override {
    return next_->recycle(folder, names);
  }
  bool openFile(const std::string& path, const std::string& application) override {
    return next_->openFile(path, application);
  }
  bool openUrl(const Url& url) override { return next_->openUrl(url); }
  bool displayIsAccelerated() override { return next_->displayIsAccelerated(); }

 private:
  std::shared_ptr<Workspace> next_;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
