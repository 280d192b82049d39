#include "confine.h"

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <vector>

namespace {

constexpr int kNice = 10;  // the same as for the virtual television's background threads

bool limit(int what, std::size_t most) {
  const rlimit limits{.rlim_cur = most, .rlim_max = most};
  return setrlimit(static_cast<__rlimit_resource>(what), &limits) == 0;
}

#ifndef DTV_UNCONFINED

// Bytes that are mapped now; 0: unknown.
std::size_t mapped() {
  std::FILE* const file = std::fopen("/proc/self/statm", "re");
  if (file == nullptr) return 0;
  unsigned long pages = 0;
  const bool read = std::fscanf(file, "%lu", &pages) == 1;  // NOLINT(cert-err34-c): the kernel writes the number
  std::fclose(file);
  return read ? pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) : 0;
}

#if defined(__x86_64__)
constexpr std::uint32_t kMachine = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t kMachine = AUDIT_ARCH_AARCH64;
#else
#error "the filter of system calls does not know this machine"
#endif

// The system calls that the process may make. Every other one fails with EPERM, so that a library that tries to open a
// file or to start a thread can go on without it.
constexpr std::uint32_t kAllowed[] = {
    SYS_read,
    SYS_pread64,
    SYS_lseek,
    SYS_fstat,
    SYS_close,
    SYS_recvmsg,
    SYS_sendto,
    SYS_sendmsg,
    SYS_munmap,
    SYS_mremap,
    SYS_brk,
    SYS_madvise,
    SYS_futex,
    SYS_exit,
    SYS_exit_group,
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_clock_gettime,
    SYS_clock_nanosleep,
    SYS_gettimeofday,
    SYS_getrandom,
    SYS_setitimer,
    SYS_sched_yield,
    SYS_sched_getaffinity,
    SYS_getpid,
    SYS_gettid,
    SYS_tgkill,
    SYS_restart_syscall,
#ifdef SYS_alarm
    SYS_alarm,
#endif
};
// Allowed only for memory that is not executable.
constexpr std::uint32_t kMapping[] = {SYS_mmap, SYS_mprotect};

bool filter_calls() {
  constexpr auto kNumberAt = static_cast<std::uint32_t>(offsetof(seccomp_data, nr));
  constexpr auto kMachineAt = static_cast<std::uint32_t>(offsetof(seccomp_data, arch));
  constexpr auto kProtectionAt = static_cast<std::uint32_t>(offsetof(seccomp_data, args) + 2 * sizeof(std::uint64_t));
  std::vector<sock_filter> program = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kMachineAt),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kMachine, 1, 0),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kNumberAt),
  };
  for (const std::uint32_t call : kAllowed) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  }
  for (const std::uint32_t call : kMapping) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 4));
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kProtectionAt));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, PROT_EXEC, 1, 0));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM));
  const sock_fprog filter{.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
  return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

bool take_all() {
  const std::size_t now = mapped();
  return now > 0 && limit(RLIMIT_AS, now + kMostMemory) && filter_calls();
}

#else

bool take_all() { return true; }

#endif

}  // namespace

const char* confine() {
  errno = 0;
  if (nice(kNice) == -1 && errno != 0) return "its priority cannot be lowered";
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) return "its privileges cannot be limited";
  if (!limit(RLIMIT_CORE, 0) || !limit(RLIMIT_FSIZE, 0) || !limit(RLIMIT_NOFILE, kMostFiles))
    return "its files cannot be limited";
  if (!take_all()) return "its memory or its system calls cannot be limited";
  return nullptr;
}
