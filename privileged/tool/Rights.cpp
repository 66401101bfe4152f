#include "privileged/tool/Rights.h"

#include <linux/audit.h>
#include <linux/capability.h>
#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <vector>

#include "privileged/tool/Failure.h"

namespace AssistantTool {
namespace {

constexpr std::array needed{CAP_CHOWN, CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH, CAP_FOWNER, CAP_SETGID, CAP_SETUID};

// The numbers of the system calls differ between processors. On one that is not named here there is no filter.
#if defined(__x86_64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
// The same processor has a second set of numbers from here on, which nobody uses.
constexpr std::uint32_t firstForeignNumber = 0x40000000;
#elif defined(__aarch64__)
constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
constexpr std::uint32_t firstForeignNumber = 0xFFFFFFFF;
#else
#define KELTO_WITHOUT_FILTER
#endif

#ifndef KELTO_WITHOUT_FILTER
constexpr std::uint32_t noCall = 0xFFFFFFFF;

// The system calls of no job. Numbers, because the names of the newest are not in every header.
constexpr std::array forbidden{
    SYS_ptrace, SYS_process_vm_readv, SYS_process_vm_writev, SYS_kcmp, SYS_pidfd_getfd,
    // mounts and namespaces
    SYS_mount, SYS_umount2, SYS_pivot_root, SYS_chroot, SYS_move_mount, SYS_open_tree, SYS_fsopen, SYS_fsconfig,
    SYS_fsmount, SYS_fspick, SYS_mount_setattr, SYS_setns, SYS_unshare,
    // the machine
    SYS_reboot, SYS_swapon, SYS_swapoff, SYS_kexec_load, SYS_kexec_file_load, SYS_init_module, SYS_finit_module,
    SYS_delete_module, SYS_acct, SYS_quotactl, SYS_syslog, SYS_sethostname, SYS_setdomainname, SYS_vhangup,
    SYS_settimeofday, SYS_clock_settime, SYS_clock_adjtime, SYS_adjtimex,
    // large interfaces of the kernel
    SYS_bpf, SYS_perf_event_open, SYS_userfaultfd, SYS_io_uring_setup, SYS_io_uring_enter, SYS_io_uring_register,
    SYS_keyctl, SYS_add_key, SYS_request_key, SYS_fanotify_init, SYS_fanotify_mark, SYS_personality, SYS_lookup_dcookie,
    // files past their folders, devices, other users for good
    SYS_open_by_handle_at, SYS_name_to_handle_at, SYS_mknodat, SYS_setuid, SYS_setgid, SYS_setreuid, SYS_setregid,
    SYS_setresuid, SYS_setresgid,
    // memory of programs, and their limits
    SYS_mbind, SYS_set_mempolicy, SYS_migrate_pages, SYS_move_pages, SYS_remap_file_pages, SYS_msgget, SYS_shmget,
    SYS_semget};

constexpr std::array startingOrConnecting{
    SYS_socket, SYS_socketpair, SYS_execve, SYS_execveat, SYS_clone, SYS_clone3,
#ifdef SYS_fork
    SYS_fork,   SYS_vfork,
#endif
};

constexpr std::uint32_t newNamespaces =
    CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS | CLONE_NEWIPC | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET;

// A filter put together line by line; the first verdict that is reached holds.
class Filter {
 public:
  Filter() {
    load(offsetof(seccomp_data, arch));
    add({BPF_JMP | BPF_JEQ | BPF_K, 1, 0, architecture});
    verdict(SECCOMP_RET_KILL_PROCESS);
    load(offsetof(seccomp_data, nr));
    // No call at all: a tracer has taken it away, and answers in the kernel's place.
    add({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, noCall});
    verdict(SECCOMP_RET_ALLOW);
    add({BPF_JMP | BPF_JGE | BPF_K, 0, 1, firstForeignNumber});
    verdict(SECCOMP_RET_KILL_PROCESS);
  }

  void refuse(std::uint32_t call, int error = EPERM) {
    add({BPF_JMP | BPF_JEQ | BPF_K, 0, 1, call});
    refusal(error);
  }
  // Only with this first argument.
  void allowOnly(std::uint32_t call, std::uint32_t argument) {
    add({BPF_JMP | BPF_JEQ | BPF_K, 0, 4, call});
    load(firstArgument);
    add({BPF_JMP | BPF_JEQ | BPF_K, 1, 0, argument});
    refusal(EPERM);
    verdict(SECCOMP_RET_ALLOW);
  }
  // Not with any of these bits in the first argument.
  void refuseBits(std::uint32_t call, std::uint32_t bits) {
    add({BPF_JMP | BPF_JEQ | BPF_K, 0, 4, call});
    load(firstArgument);
    add({BPF_JMP | BPF_JSET | BPF_K, 0, 1, bits});
    refusal(EPERM);
    verdict(SECCOMP_RET_ALLOW);
  }

  void install() {
    verdict(SECCOMP_RET_ALLOW);
    const sock_fprog program{.len = static_cast<unsigned short>(_lines.size()), .filter = _lines.data()};
    if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program, 0, 0) != 0) failWithSystemError("cannot give up rights");
  }

 private:
  // Both processors are little-endian, and the arguments looked at are of 32 bits.
  static constexpr std::uint32_t firstArgument = offsetof(seccomp_data, args);

  void add(sock_filter line) { _lines.push_back(line); }
  void load(std::uint32_t offset) { add({BPF_LD | BPF_W | BPF_ABS, 0, 0, offset}); }
  void verdict(std::uint32_t what) { add({BPF_RET | BPF_K, 0, 0, what}); }
  void refusal(int error) { verdict(SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)); }

  std::vector<sock_filter> _lines;
};

#endif

void keepCapabilities(std::uint64_t kept) {
  if (::prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) != 0) failWithSystemError("cannot give up rights");
  // A process that may not lower the bound has no use of it: nothing can be gained by running a program any more.
  for (int each = 0; ::prctl(PR_CAPBSET_READ, each, 0, 0, 0) >= 0; ++each) {
    if ((kept >> each & 1U) == 0) ::prctl(PR_CAPBSET_DROP, each, 0, 0, 0);
  }
  __user_cap_header_struct header{.version = _LINUX_CAPABILITY_VERSION_3, .pid = 0};
  std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3> sets{};
  if (::syscall(SYS_capget, &header, sets.data()) != 0) failWithSystemError("cannot give up rights");
  for (std::size_t i = 0; i < sets.size(); ++i) {
    sets[i].permitted &= static_cast<std::uint32_t>(kept >> (32 * i));
    sets[i].effective = sets[i].permitted;
    sets[i].inheritable = 0;
  }
  if (::syscall(SYS_capset, &header, sets.data()) != 0) failWithSystemError("cannot give up rights");
}

}  // namespace

std::uint64_t neededCapabilities() {
  std::uint64_t bits = 0;
  for (const int each : needed) bits |= std::uint64_t{1} << each;
  return bits;
}

void giveUpRights() {
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) failWithSystemError("cannot give up rights");
  keepCapabilities(neededCapabilities());
#ifdef KELTO_WITHOUT_FILTER
  ::syslog(LOG_WARNING, "No filter of system calls is known for this processor: the tool keeps the right to all of them");
#else
  Filter filter;
  for (const int call : forbidden) filter.refuse(static_cast<std::uint32_t>(call));
  filter.refuse(SYS_clone3, ENOSYS);  // its arguments cannot be looked at; everybody has the older call to fall back on
  filter.refuseBits(SYS_clone, newNamespaces);
  filter.allowOnly(SYS_socket, AF_UNIX);
  filter.install();
#endif
}

void giveUpProgramsAndSockets() {
#ifndef KELTO_WITHOUT_FILTER
  Filter filter;
  for (const int call : startingOrConnecting) filter.refuse(static_cast<std::uint32_t>(call));
  filter.install();
#endif
}

void giveUpCapabilitiesAndSockets() {
  keepCapabilities(0);
#ifndef KELTO_WITHOUT_FILTER
  Filter filter;
  for (const int call : {SYS_socket, SYS_socketpair}) filter.refuse(static_cast<std::uint32_t>(call));
  filter.install();
#endif
}

}  // namespace AssistantTool
