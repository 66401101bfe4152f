#pragma once
// For tests: one run of the tool in which one system call of its job fails, or does not happen because the tool is killed
// there. The calls are counted from the moment the instruction has been read, so that a number means the same call again.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/user.h>

#include <cstddef>
#include <functional>
#include <optional>

#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {

struct Fault {
  std::size_t at = 0;               // which of the counted calls, from 1; 0 for none
  int error = 0;                    // what the call answers without being made; 0 when the tool is killed before it
  bool countsLooks = false;         // the calls that only look are counted in place of those that change something
  bool withoutRenameFlags = false;  // no file system here knows RENAME_EXCHANGE or RENAME_NOREPLACE
  bool withoutTreeSync = false;     // the new tree is not brought to the disk although the calls say so
};

// Somebody else's interference at that moment, instead of a fault: `meddle` before the call, `undo` before the one after
// it. Both kinds of calls are counted then. With `thenDiskFails` every sync from that call on fails.
struct Meddler {
  std::function<void()> meddle;
  std::function<void()> undo = [] {};
  bool thenDiskFails = false;
  std::string opening{};  // with a fault at 0: the moment is when the tool first opens this name, for more than a look
};

struct Traced {
  Answer answer;
  std::size_t calls = 0;  // how many were counted
  long hit = -1;          // the number of the system call that the fault hit
};

// The registers of a call that is not made are known for one processor only.
#if defined(__x86_64__)
inline bool isTracingPossible() { return true; }
inline void setRegister(pid_t child, std::size_t offset, long value) {
  ::ptrace(PTRACE_POKEUSER, child, offsetof(user, regs) + offset, value);
}
inline void leaveOutCall(pid_t child) { setRegister(child, offsetof(user_regs_struct, orig_rax), -1); }
inline void setAnswer(pid_t child, long answer) { setRegister(child, offsetof(user_regs_struct, rax), answer); }
#else
inline bool isTracingPossible() { return false; }
inline void leaveOutCall(pid_t /*child*/) {}
inline void setAnswer(pid_t /*child*/, long /*answer*/) {}
#endif

// Calls that change something on a disk, or bring it there.
inline bool changesDisk(const __ptrace_syscall_info& call) {
  const auto& arguments = call.entry.args;
  switch (call.entry.nr) {
    case SYS_openat:
      return (arguments[2] & (O_CREAT | O_TRUNC)) != 0;
    case SYS_write:
      return arguments[0] > STDERR_FILENO;
    case SYS_ioctl:
      return arguments[1] == FICLONE;
    case SYS_mkdirat:
    case SYS_unlinkat:
    case SYS_renameat:
    case SYS_renameat2:
    case SYS_linkat:
    case SYS_symlinkat:
    case SYS_fchmod:
    case SYS_fchmodat:
    case SYS_fchown:
    case SYS_fchownat:
    case SYS_utimensat:
    case SYS_fsetxattr:
    case SYS_fremovexattr:
    case SYS_pwrite64:
    case SYS_ftruncate:
    case SYS_fallocate:
    case SYS_copy_file_range:
    case SYS_fsync:
    case SYS_fdatasync:
    case SYS_syncfs:
    case SYS_flock:
      return true;
#if defined(__x86_64__)
    case SYS_open:
      return (arguments[1] & (O_CREAT | O_TRUNC)) != 0;
    case SYS_mkdir:
    case SYS_rmdir:
    case SYS_unlink:
    case SYS_rename:
    case SYS_link:
    case SYS_symlink:
    case SYS_chmod:
    case SYS_chown:
    case SYS_lchown:
      return true;
#endif
    default:
      return false;
  }
}

inline bool looksOnly(const __ptrace_syscall_info& call) {
  const auto& arguments = call.entry.args;
  switch (call.entry.nr) {
    case SYS_openat:
      return (arguments[2] & (O_CREAT | O_TRUNC)) == 0;
    case SYS_read:
      return arguments[0] > STDERR_FILENO;
    case SYS_openat2:
    case SYS_newfstatat:
    case SYS_fstat:
    case SYS_getdents64:
    case SYS_readlinkat:
    case SYS_lseek:
    case SYS_pread64:
    case SYS_fgetxattr:
    case SYS_flistxattr:
      return true;
    default:
      return false;
  }
}

inline bool bringsToDisk(long call) { return call == SYS_fsync || call == SYS_syncfs; }

class Injector {
 public:
  Injector(pid_t child, const Fault& fault, const Meddler* meddler) : _child(child), _fault(fault), _meddler(meddler) {}

  // Until the child has ended; its wait status.
  int follow() {
    int status = 0;
    if (::waitpid(_child, &status, 0) != _child || !WIFSTOPPED(status)) return status;
    ::ptrace(PTRACE_SETOPTIONS, _child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL | PTRACE_O_TRACEEXEC);
    int signal = 0;
    for (;;) {
      ::ptrace(PTRACE_SYSCALL, _child, nullptr, signal);
      if (::waitpid(_child, &status, 0) != _child || !WIFSTOPPED(status)) return status;
      const int stop = WSTOPSIG(status);
      if (stop == (SIGTRAP | 0x80)) atCall();
      signal = stop == (SIGTRAP | 0x80) || stop == SIGTRAP ? 0 : stop;
    }
  }
  [[nodiscard]] std::size_t calls() const { return _calls; }
  [[nodiscard]] long hit() const { return _hit; }

 private:
  void atCall() {
    __ptrace_syscall_info call{};
    ::ptrace(PTRACE_GET_SYSCALL_INFO, _child, sizeof call, &call);
    if (call.op == PTRACE_SYSCALL_INFO_ENTRY) entry(call);
    if (call.op == PTRACE_SYSCALL_INFO_EXIT && _answer) {
      setAnswer(_child, *_answer);
      _answer.reset();
    }
  }
  void entry(const __ptrace_syscall_info& call) {
    const auto number = static_cast<long>(call.entry.nr);
    if (number == SYS_read && call.entry.args[0] == STDIN_FILENO) _started = true;
    if (!_started) return;
    // Nobody waits for a time that nothing needs.
    if (number == SYS_clock_nanosleep) return notMade(0);
    const bool isFlagged = number == SYS_renameat2 && call.entry.args[4] != 0;
    if (_meddler != nullptr) {
      if (!looksOnly(call) && !changesDisk(call)) return;
      ++_calls;
      if (_fault.at == 0 && opensTheName(call)) _fault.at = _calls;
      if (_fault.at == 0) return;
      if (_calls == _fault.at) _meddler->meddle();
      if (_calls == _fault.at + 1) _meddler->undo();
      if (_meddler->thenDiskFails && _calls >= _fault.at && bringsToDisk(number)) notMade(-EIO);
      return;
    }
    if (_fault.countsLooks ? looksOnly(call) : changesDisk(call)) {
      if (++_calls == _fault.at) return strike(number);
    }
    if (_fault.withoutRenameFlags && isFlagged) notMade(-EINVAL);
    if (number == SYS_renameat2 && call.entry.args[4] == RENAME_EXCHANGE) _exchanged = true;
    if (_fault.withoutTreeSync && !_exchanged && bringsToDisk(number)) notMade(0);
  }
  [[nodiscard]] bool opensTheName(const __ptrace_syscall_info& call) const {
    if (_meddler->opening.empty() || call.entry.nr != SYS_openat || (call.entry.args[2] & O_PATH) != 0) return false;
    std::string name(_meddler->opening.size() + 1, ' ');
    const iovec here{.iov_base = name.data(), .iov_len = name.size()};
    const iovec there{.iov_base = reinterpret_cast<void*>(call.entry.args[1]), .iov_len = name.size()};
    const auto length = ::process_vm_readv(_child, &here, 1, &there, 1, 0);
    return length == static_cast<ssize_t>(name.size()) && name == _meddler->opening + '\0';
  }
  void strike(long number) {
    _hit = number;
    if (_fault.error != 0) return notMade(-_fault.error);
    ::kill(_child, SIGKILL);
  }
  void notMade(long answer) {
    leaveOutCall(_child);
    _answer = answer;
  }

  pid_t _child;
  Fault _fault;
  const Meddler* _meddler;
  bool _started = false;
  bool _exchanged = false;
  std::size_t _calls = 0;
  long _hit = -1;
  std::optional<long> _answer;
};

// Like runWithBytes(), for an instruction that fits into the stream's buffer.
inline Traced runWithFault(const std::vector<std::string>& command, const std::string& bytes,
                           std::vector<std::string> environment, const Fault& fault, const Meddler* meddler = nullptr) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return {};
  environment.emplace_back("PATH=/usr/sbin:/usr/bin:/sbin:/bin");
  if (::send(ends[0], bytes.data(), bytes.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(bytes.size())) return {};
  const pid_t child = spawn(command, ends[1], environment, true);
  ::close(ends[1]);
  Injector injector(child, fault, meddler);
  const int status = injector.follow();
  Traced traced{.answer = {}, .calls = injector.calls(), .hit = injector.hit()};
  char buffer[512];
  for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof buffer)) > 0;)
    traced.answer.text.append(buffer, static_cast<std::size_t>(got));
  ::close(ends[0]);
  traced.answer.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  return traced;
}

}  // namespace tests::tool
