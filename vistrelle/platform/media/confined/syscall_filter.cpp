#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <vector>

#include "vistrelle/platform/media/confined/confinement.h"

namespace vistrelle::platform {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kArchitecture = AUDIT_ARCH_AARCH64;
#else
constexpr std::uint32_t kArchitecture = 0;  // unknown: no filter, and the report says so
#endif

// What decoding over open descriptors takes. Whatever names a file, a socket, a program or another process is absent.
constexpr int kAllowed[] = {
    // the movie, the waiting room and the messages
    SYS_read, SYS_pread64, SYS_write, SYS_pwrite64, SYS_pwritev, SYS_recvmsg, SYS_sendmsg, SYS_close,
    // memory
    SYS_munmap, SYS_mremap, SYS_brk, SYS_madvise, SYS_sysinfo,
    // threads
    SYS_futex, SYS_set_robust_list, SYS_rseq, SYS_sched_getaffinity, SYS_sched_yield, SYS_rt_sigprocmask,
    SYS_rt_sigaction, SYS_rt_sigreturn, SYS_rt_sigtimedwait, SYS_getpid, SYS_gettid, SYS_exit, SYS_exit_group,
    SYS_restart_syscall,
    // time and randomness
    SYS_clock_gettime, SYS_clock_nanosleep, SYS_gettimeofday, SYS_getrandom,
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    // what a sanitizer's runtime does for a new thread and for a report
    SYS_sigaltstack, SYS_prlimit64, SYS_readlinkat, SYS_mincore, SYS_nanosleep, SYS_getrusage,
    SYS_pipe2,  // to find out whether memory can be read
#endif
};

/// Builds a filter from checks that end in an answer or fall through to the next one.
class FilterProgram {
 public:
  explicit FilterProgram(std::uint32_t refusal) : refusal_(refusal) {
    load(offsetof(seccomp_data, arch));
    add(BPF_JMP | BPF_JEQ | BPF_K, kArchitecture, 1, 0);
    answer(SECCOMP_RET_KILL_PROCESS);
    loadNumber();
  }

  void allow(int number) {
    add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1);
    answer(SECCOMP_RET_ALLOW);
  }

  void refuseWith(int number, int error) {
    add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1);
    answer(SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error));
  }

  /// Allows it when the bits of `mask` in the lower half of an argument are exactly `wanted`.
  void allowWhen(int number, int argument, std::uint32_t mask, std::uint32_t wanted) {
    add(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 5);
    load(static_cast<std::uint32_t>(offsetof(seccomp_data, args) + sizeof(std::uint64_t) * argument));
    add(BPF_ALU | BPF_AND | BPF_K, mask, 0, 0);
    add(BPF_JMP | BPF_JEQ | BPF_K, wanted, 0, 1);
    answer(SECCOMP_RET_ALLOW);
    loadNumber();
  }

  bool install() {
    answer(refusal_);
    const sock_fprog program{static_cast<unsigned short>(code_.size()), code_.data()};
    return ::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, 0, &program) == 0;
  }

 private:
  void add(unsigned code, std::uint32_t value, std::uint8_t onTrue, std::uint8_t onFalse) {
    code_.push_back({static_cast<std::uint16_t>(code), onTrue, onFalse, value});
  }
  // Both architectures are little-endian: the lower half of an argument comes first.
  void load(std::uint32_t offset) { add(BPF_LD | BPF_W | BPF_ABS, offset, 0, 0); }
  void loadNumber() { load(offsetof(seccomp_data, nr)); }
  void answer(std::uint32_t value) { add(BPF_RET | BPF_K, value, 0, 0); }

  std::uint32_t refusal_;
  std::vector<sock_filter> code_;
};

constexpr std::uint32_t kThreadFlags = CLONE_VM | CLONE_FS | CLONE_FILES | CLONE_SIGHAND | CLONE_THREAD;
constexpr std::uint32_t kNamespaceFlags = CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWUSER |
                                          CLONE_NEWPID | CLONE_NEWNET | CLONE_PTRACE | CLONE_UNTRACED;
constexpr std::uint32_t kAllBits = 0xffffffffU;

}  // namespace

bool allowListedCallsOnly(Refusal refusal) {
  if (kArchitecture == 0) return false;
  FilterProgram program(refusal == Refusal::kill ? SECCOMP_RET_KILL_PROCESS
                                                 : SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(EPERM));
  for (const int number : kAllowed) program.allow(number);
  program.allowWhen(SYS_mmap, 2, PROT_EXEC, 0);
  program.allowWhen(SYS_mprotect, 2, PROT_EXEC, 0);
  program.allowWhen(SYS_clone, 0, kThreadFlags | kNamespaceFlags, kThreadFlags);
  // Its flags lie in memory, where a filter cannot look: the C library falls back to clone.
  program.refuseWith(SYS_clone3, ENOSYS);
  program.allowWhen(SYS_prctl, 0, kAllBits, PR_SET_NAME);
  return program.install();
}

}  // namespace vistrelle::platform
