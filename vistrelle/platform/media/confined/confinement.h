#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

namespace vistrelle::platform {

/// What a confined process may use at most.
struct ConfinementLimits {
  std::uint64_t dataBytes = std::uint64_t{5} << 29;     ///< private memory: 2.5 GiB
  std::uint64_t addressBytes = std::uint64_t{8} << 30;  ///< addresses, reservations that are not memory included
  std::uint64_t fileBytes = std::uint64_t{4} << 30;     ///< of a file handed in for writing
  std::uint64_t descriptors = 160;                      ///< handed in; none can be opened
  std::uint64_t cpuSeconds = 4 * 3600;
};

/// What happens to a system call that is not allowed.
enum class Refusal : std::uint32_t {
  error,  ///< it fails with EPERM
  kill    ///< the process ends by SIGSYS: for tests, which must not miss one
};

/// Which walls stand around a process. Plain data, so that it can be told to another process.
struct ConfinementReport {
  std::uint32_t noNewPrivileges = 0;
  std::uint32_t limits = 0;
  std::uint32_t calls = 0;       ///< only listed system calls (seccomp)
  std::int32_t landlockAbi = 0;  ///< 0: no Landlock; files are refused from 1 on, TCP from 4, signals from 6

  /// What the kernel would not give, for a log line; empty when nothing is missing.
  std::string missing() const;
};
static_assert(std::has_unique_object_representations_v<ConfinementReport>);

/// Confines this process for good: it goes on with the descriptors that it has, memory, threads and nothing else. It
/// opens no file, makes no socket, starts no program, signals nobody. Called while it has one thread. Each wall is
/// built for itself: where one cannot be, the others stand.
ConfinementReport confineProcess(const ConfinementLimits& limits, Refusal refusal);

/// The walls, for tests that try them one by one.
bool forbidNewPrivileges();
bool applyLimits(const ConfinementLimits& limits);
/// The interface version of Landlock in force afterwards; 0 where there is none.
std::int32_t forbidFilesByLandlock();
bool allowListedCallsOnly(Refusal refusal);

}  // namespace vistrelle::platform
