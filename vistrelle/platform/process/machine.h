#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "vistrelle/platform/base/seam.h"

#pragma GCC visibility push(default)

namespace vistrelle::platform {

/// What the operating system says about the machine.
class Machine {
 public:
  virtual ~Machine() = default;
  /// The answer to a four-letter question ("sysv", "qtim"). This system knows none: nothing.
  virtual std::optional<std::int64_t> answer(std::string_view question) = 0;
  /// A named number of the hardware ("hw.cpusubtype"). This system knows none: nothing.
  virtual std::optional<std::int64_t> hardwareNumber(std::string_view name) = 0;
  /// "Version 12 (Build 6.1.0-18-amd64)": the version of the operating system's release file (VERSION_ID in os-release)
  /// and its build, or the kernel's release where it names none. Empty when the release file has no version.
  virtual std::string systemVersion() = 0;
  virtual std::int64_t processorCount() = 0;
};

/// Passes every call on; a test overrides the answers it needs.
class ForwardingMachine : public Machine {
 public:
  explicit ForwardingMachine(std::shared_ptr<Machine> target) : target_(std::move(target)) {}
  std::optional<std::int64_t> answer(std::string_view question) override { return target_->answer(question); }
  std::optional<std::int64_t> hardwareNumber(std::string_view name) override { return target_->hardwareNumber(name); }
  std::string systemVersion() override { return target_->systemVersion(); }
  std::int64_t processorCount() override { return target_->processorCount(); }

 private:
  std::shared_ptr<Machine> target_;
};

/// This machine, with the release file at `releaseFile`; empty: /etc/os-release, else /usr/lib/os-release.
std::shared_ptr<Machine> localMachine(std::string releaseFile = {});

Seam<Machine>& machine();

}  // namespace vistrelle::platform

#pragma GCC visibility pop
