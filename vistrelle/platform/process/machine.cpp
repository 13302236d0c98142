#include "vistrelle/platform/process/machine.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "vistrelle/platform/base/format.h"

namespace vistrelle::platform {
namespace {

/// The value without the quotes that os-release(5) allows, and without the backslashes inside them.
std::string unquoted(std::string_view value) {
  if (value.size() < 2 || (value.front() != '"' && value.front() != '\'') || value.back() != value.front()) {
    return std::string(value);
  }
  std::string text;
  for (std::size_t i = 1; i + 1 < value.size(); ++i) {
    if (value[i] == '\\' && i + 2 < value.size()) ++i;
    text.push_back(value[i]);
  }
  return text;
}

std::string kernelRelease() {
  utsname names{};
  return ::uname(&names) == 0 ? names.release : "";
}

class LocalMachine : public Machine {
 public:
  explicit LocalMachine(std::string releaseFile) : releaseFile_(std::move(releaseFile)) {}

  std::optional<std::int64_t> answer(std::string_view) override { return std::nullopt; }
  std::optional<std::int64_t> hardwareNumber(std::string_view) override { return std::nullopt; }

  std::string systemVersion() override {
    std::string version;
    std::string build;
    std::ifstream file = openReleaseFile();
    for (std::string line; std::getline(file, line);) {
      const auto equals = line.find('=');
      if (equals == std::string::npos) continue;
      const std::string value = unquoted(std::string_view(line).substr(equals + 1));
      if (line.starts_with("VERSION_ID=")) version = value;
      if (line.starts_with("BUILD_ID=")) build = value;
    }
    if (version.empty()) return {};
    return format("Version {} (Build {})", version, build.empty() ? kernelRelease() : build);
  }

  std::int64_t processorCount() override { return std::max(1L, ::sysconf(_SC_NPROCESSORS_CONF)); }

 private:
  std::ifstream openReleaseFile() const {
    if (!releaseFile_.empty()) return std::ifstream(releaseFile_);
    std::ifstream file("/etc/os-release");
    return file ? std::move(file) : std::ifstream("/usr/lib/os-release");
  }

  std::string releaseFile_;
};

}  // namespace

std::shared_ptr<Machine> localMachine(std::string releaseFile) {
  return std::make_shared<LocalMachine>(std::move(releaseFile));
}

Seam<Machine>& machine() {
  static Seam<Machine> seam([] { return localMachine(); });
  return seam;
}

}  // namespace vistrelle::platform
