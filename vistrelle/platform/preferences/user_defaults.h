#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "vistrelle/platform/base/seam.h"
#include "vistrelle/platform/base/value.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// The running program's preferences: property-list values by key. Any thread may use them.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  /// False when the machine offers no place to keep preferences; the other calls then find and store nothing.
  virtual bool available() = 0;
  /// The value stored under `key`, with what other processes wrote in the meantime; nothing when there is none.
  virtual OptionalValue object(std::string_view key) = 0;
  /// Stores `value` at once. A value that a property list cannot hold, or that would not be read back within
  /// PropertyListLimits, is left out with a log line.
  virtual void set(std::string_view key, const Value& value) = 0;
  virtual void remove(std::string_view key) = 0;
  /// Whether a change could not be written yet. It is visible in this process and tried again with the next change.
  virtual bool hasUnappliedChanges() = 0;
};

/// Passes every call on; a test overrides what it wants to see fail.
class ForwardingDefaults : public UserDefaults {
 public:
  explicit ForwardingDefaults(std::shared_ptr<UserDefaults> target) : target_(std::move(target)) {}
  bool available() override { return target_->available(); }
  OptionalValue object(std::string_view key) override { return target_->object(key); }
  void set(std::string_view key, const Value& value) override { target_->set(key, value); }
  void remove(std::string_view key) override { target_->remove(key); }
  bool hasUnappliedChanges() override { return target_->hasUnappliedChanges(); }

 private:
  std::shared_ptr<UserDefaults> target_;
};

/// Preferences in the file at `path`, a property list with a dictionary. The file is read at the first use and again
/// when another process has changed it. A change takes a lock ("<path>.lock"), reads the file, changes the one key
/// and replaces the file, so that processes which write different keys lose nothing of each other. A file that is no
/// such property list is renamed to "<path>.damaged" (".damaged-2" and so on) with a log line, never overwritten.
/// An empty path makes defaults that are not available.
std::shared_ptr<UserDefaults> fileDefaults(std::string path);

/// "$XDG_CONFIG_HOME/vistrelle/<program>.plist", with "~/.config" where the variable is not an absolute path; empty
/// when no home folder is known.
std::string defaultsPath();

/// The defaults in use: those of the file at defaultsPath().
Seam<UserDefaults>& userDefaults();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
