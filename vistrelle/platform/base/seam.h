#pragma once

#include <memory>
#include <mutex>
#include <utility>

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// One replaceable process-wide object. The first use makes the default; a test or a host installs another.
/// `get` and `install` may be called on any thread; whoever holds the returned pointer keeps that object alive.
template <typename Interface>
class Seam {
 public:
  using Factory = std::shared_ptr<Interface> (*)();
  explicit Seam(Factory makeDefault) : makeDefault_(makeDefault) {}

  std::shared_ptr<Interface> get() {
    std::lock_guard lock(mutex_);
    if (!object_) object_ = makeDefault_();
    return object_;
  }

  /// Installs `object` (empty: the default again) and returns what was there before, perhaps nothing.
  std::shared_ptr<Interface> install(std::shared_ptr<Interface> object) {
    std::lock_guard lock(mutex_);
    return std::exchange(object_, std::move(object));
  }

 private:
  Factory makeDefault_;
  std::mutex mutex_;
  std::shared_ptr<Interface> object_;
};

/// Keeps `object` installed in `seam` while it lives, then puts the former object back.
template <typename Interface>
class Installed {
 public:
  Installed(Seam<Interface>& seam, std::shared_ptr<Interface> object)
      : seam_(seam), former_(seam.install(std::move(object))) {}
  ~Installed() { seam_.install(std::move(former_)); }
  Installed(const Installed&) = delete;
  Installed& operator=(const Installed&) = delete;

 private:
  Seam<Interface>& seam_;
  std::shared_ptr<Interface> former_;
};

}  // namespace vistrelle::platform

#pragma GCC visibility pop
