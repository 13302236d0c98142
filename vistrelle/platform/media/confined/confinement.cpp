#include "vistrelle/platform/media/confined/confinement.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace vistrelle::platform {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kHasShadowMemory = true;  // terabytes of it: limits of memory make no sense
#else
constexpr bool kHasShadowMemory = false;
#endif

// The kernel's interface of Landlock, later versions included, which an older linux/landlock.h does not know.
struct LandlockRules {
  std::uint64_t files;
  std::uint64_t network;  // from version 4
  std::uint64_t scopes;   // from version 6
};

constexpr unsigned kAskVersion = 1;
constexpr int kNetworkVersion = 4;
constexpr int kScopeVersion = 6;

std::uint64_t bits(int count) {
  return (std::uint64_t{1} << count) - 1;
}

/// All acts on files that a version can refuse.
std::uint64_t fileActs(int version) {
  switch (version) {
    case 1:
      return bits(13);
    case 2:
      return bits(14);  // moving between folders
    case 3:
    case 4:
      return bits(15);  // truncating
    default:
      return bits(16);  // ioctl on devices
  }
}

bool lower(__rlimit_resource resource, std::uint64_t value) {
  rlimit limit{};
  if (::getrlimit(resource, &limit) != 0) return false;
  limit.rlim_max = std::min<rlim_t>(limit.rlim_max, value);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_cur, limit.rlim_max);
  return ::setrlimit(resource, &limit) == 0;
}

/// An administrator's rights are of no use to a decoder.
void dropCapabilities() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> none{};
  (void)::syscall(SYS_capset, &header, none.data());
}

void list(std::string* text, const char* item) {
  if (!text->empty()) *text += ", ";
  *text += item;
}

}  // namespace

std::string ConfinementReport::missing() const {
  std::string text;
  if (noNewPrivileges == 0) list(&text, "no_new_privs");
  if (limits == 0) list(&text, "resource limits");
  if (landlockAbi < 1) list(&text, "Landlock");
  if (calls == 0) list(&text, "seccomp");
  return text;
}

bool forbidNewPrivileges() {
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

bool applyLimits(const ConfinementLimits& limits) {
  bool applied = lower(RLIMIT_CORE, 0) && lower(RLIMIT_FSIZE, limits.fileBytes) &&
                 lower(RLIMIT_NOFILE, limits.descriptors) && lower(RLIMIT_CPU, limits.cpuSeconds);
  if (!kHasShadowMemory) {
    applied = lower(RLIMIT_DATA, limits.dataBytes) && lower(RLIMIT_AS, limits.addressBytes) && applied;
  }
  return applied;
}

std::int32_t forbidFilesByLandlock() {
  const long version = ::syscall(SYS_landlock_create_ruleset, nullptr, 0, kAskVersion);
  if (version < 1) return 0;
  // Everything is handled and no rule allows any of it.
  LandlockRules rules{fileActs(static_cast<int>(version)), 0, 0};
  std::size_t size = offsetof(LandlockRules, network);
  if (version >= kNetworkVersion) {
    rules.network = bits(2);  // binding and connecting TCP
    size = offsetof(LandlockRules, scopes);
  }
  if (version >= kScopeVersion) {
    rules.scopes = bits(2);  // abstract sockets and signals of others
    size = sizeof rules;
  }
  const long ruleset = ::syscall(SYS_landlock_create_ruleset, &rules, size, 0);
  if (ruleset < 0) return 0;
  const bool restricted = ::syscall(SYS_landlock_restrict_self, ruleset, 0) == 0;
  ::close(static_cast<int>(ruleset));
  return restricted ? static_cast<std::int32_t>(version) : 0;
}

ConfinementReport confineProcess(const ConfinementLimits& limits, Refusal refusal) {
  ConfinementReport report;
  report.noNewPrivileges = forbidNewPrivileges() ? 1 : 0;
  dropCapabilities();
  report.landlockAbi = forbidFilesByLandlock();
  report.limits = applyLimits(limits) ? 1 : 0;
  report.calls = allowListedCallsOnly(refusal) ? 1 : 0;  // last: it forbids the rest of this function
  return report;
}

}  // namespace vistrelle::platform
