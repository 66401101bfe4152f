// Checks the rights that the tool has given up, in a process of its own and from outside on the real tool.
#include "privileged/tool/Rights.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>

#include <cerrno>
#include <functional>
#include <iomanip>

#include "tests/privileged/tool/ToolRun.h"
#include "tests/support/Eventually.h"

namespace tests::tool {
namespace {

// The error number of `call` in a process that has given up its rights, 0 when the call succeeds; negative when it is
// killed.
int errorOf(const std::function<long()>& call, bool isFileJob = false) {
  const pid_t child = ::fork();
  if (child == 0) {
    AssistantTool::giveUpRights();
    if (isFileJob) AssistantTool::giveUpProgramsAndSockets();
    errno = 0;
    ::_exit(call() < 0 ? errno : 0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(Rights, TracingIsGivenUp) {
  EXPECT_EQ(errorOf([] { return ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr); }), EPERM);
}

TEST(Rights, MountingIsGivenUp) {
  EXPECT_EQ(errorOf([] { return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr); }), EPERM);
  EXPECT_EQ(errorOf([] { return ::syscall(SYS_open_tree, AT_FDCWD, "/", 0); }), EPERM);
}

TEST(Rights, NamespacesAreGivenUp) {
  EXPECT_EQ(errorOf([] { return ::unshare(CLONE_NEWUSER); }), EPERM);
  EXPECT_EQ(errorOf([] { return ::syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, nullptr, nullptr, nullptr, nullptr); }),
            EPERM);
  EXPECT_EQ(errorOf([] { return ::syscall(SYS_clone3, nullptr, 0); }), ENOSYS);
}

TEST(Rights, EveryNetworkButTheMachinesOwnSocketsIsGivenUp) {
  EXPECT_EQ(errorOf([] { return ::socket(AF_INET, SOCK_STREAM, 0); }), EPERM);
  EXPECT_EQ(errorOf([] { return ::socket(AF_INET6, SOCK_DGRAM, 0); }), EPERM);
  EXPECT_EQ(errorOf([] { return ::socket(AF_NETLINK, SOCK_RAW, 0); }), EPERM);
  EXPECT_EQ(errorOf([] { return ::socket(AF_PACKET, SOCK_RAW, 0); }), EPERM);
  EXPECT_EQ(errorOf([] { return ::socket(AF_UNIX, SOCK_STREAM, 0); }), 0);
}

TEST(Rights, TheKernelsLargeInterfacesAreGivenUp) {
  for (const long call : {SYS_bpf, SYS_perf_event_open, SYS_userfaultfd, SYS_io_uring_setup, SYS_keyctl, SYS_init_module,
                          SYS_finit_module, SYS_kexec_load, SYS_reboot, SYS_open_by_handle_at, SYS_setresuid}) {
    EXPECT_EQ(errorOf([call] { return ::syscall(call, 0, 0, 0, 0, 0); }), EPERM) << "system call " << call;
  }
}

#if defined(__x86_64__)
TEST(Rights, ACallByTheProcessorsOtherNumbersEndsTheProcess) {
  EXPECT_EQ(errorOf([] { return ::syscall(0x40000000 + SYS_getpid); }), -SIGSYS);
}
#endif

TEST(Rights, CallsThatJobsNeedStayAllowed) {
  EXPECT_EQ(errorOf([] { return ::getpid() > 0 ? 0L : -1L; }, true), 0);
  EXPECT_EQ(errorOf([] { return ::open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC) >= 0 ? 0L : -1L; }, true), 0);
}

TEST(Rights, ProgramsCanBeStartedUntilThatIsGivenUpToo) {
  const auto startsTrue = [] {
    const pid_t child = ::fork();
    if (child == 0) ::execl("/bin/true", "true", nullptr);
    int status = 1;
    if (child < 0) return -1L;
    ::waitpid(child, &status, 0);
    return status == 0 ? 0L : -1L;
  };
  EXPECT_EQ(errorOf(startsTrue), 0);
  EXPECT_EQ(errorOf(startsTrue, true), EPERM);
  EXPECT_EQ(errorOf([] { return ::execl("/bin/true", "true", nullptr); }, true), EPERM);
}

TEST(Rights, NoSocketCanBeMadeOnceThatIsGivenUpToo) {
  EXPECT_EQ(errorOf([] { return ::socket(AF_UNIX, SOCK_DGRAM, 0); }), 0) << "for the system log";
  EXPECT_EQ(errorOf([] { return ::socket(AF_UNIX, SOCK_DGRAM, 0); }, true), EPERM);
  const auto makesPair = [] {
    int ends[2];
    return static_cast<long>(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  };
  EXPECT_EQ(errorOf(makesPair, true), EPERM);
}

TEST(Rights, AStartedProgramHasGivenThemUpToo) {
  const auto mountsInAProgram = [] {
    const pid_t child = ::fork();
    if (child == 0) ::execl("/usr/bin/unshare", "unshare", "--user", "true", nullptr);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 1 ? 0L : -1L;
  };
  EXPECT_EQ(errorOf(mountsInAProgram), 0);
}

// The line of /proc/PID/status.
std::string statusLine(pid_t process, const std::string& name) {
  std::istringstream lines(read("/proc/" + std::to_string(process) + "/status"));
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  return "";
}

std::string hexadecimal(std::uint64_t bits) {
  std::ostringstream text;
  text << std::hex << std::setw(16) << std::setfill('0') << bits;
  return text.str();
}

TEST_F(ToolTest, WaitsForItsInstructionWithoutWhatNoJobNeeds) {
  int ends[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
  const pid_t tool = spawn(command, ends[1], environment);
  ::close(ends[1]);
  EXPECT_TRUE(tests::eventually([&] { return statusLine(tool, "Seccomp") == "2"; }));
  EXPECT_EQ(statusLine(tool, "NoNewPrivs"), "1");
  const bool root = ::geteuid() == 0;
  const auto expected = hexadecimal(root ? AssistantTool::neededCapabilities() : 0);
  EXPECT_EQ(statusLine(tool, "CapEff"), expected);
  EXPECT_EQ(statusLine(tool, "CapPrm"), expected);
  EXPECT_EQ(statusLine(tool, "CapInh"), hexadecimal(0));
  EXPECT_EQ(statusLine(tool, "CapAmb"), hexadecimal(0));
  EXPECT_TRUE(!root || statusLine(tool, "CapBnd") == expected);
  ::close(ends[0]);
  ::waitpid(tool, nullptr, 0);
}

}  // namespace
}  // namespace tests::tool
