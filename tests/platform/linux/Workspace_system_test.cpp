#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>

#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

using tests::ApplicationTest;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";

class WorkspaceAsRoot : public ApplicationTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
  }

  // Writes what went wrong, or nothing, from inside a process number namespace with its own /proc.
  void inProcessNamespace(const std::function<std::string()>& work) {
    const pid_t outer = ::fork();
    if (outer == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      if (::unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) ::_exit(77);
      const pid_t first = ::fork();
      if (first == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) ::_exit(77);
        if (::mount("proc", "/proc", "proc", 0, nullptr) != 0) ::_exit(77);
        tests::writeFile(root + "/outcome", work());
        ::_exit(0);
      }
      int status = 0;
      ::waitpid(first, &status, 0);
      ::_exit(WEXITSTATUS(status));
    }
    int status = 0;
    ::waitpid(outer, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) GTEST_SKIP() << "no process number namespace to be had here";
    ASSERT_TRUE(std::filesystem::exists(root + "/outcome"));
    EXPECT_EQ(tests::readFile(root + "/outcome"), "");
  }

  // A copy ends, and a program outside every bundle gets its number and behaves as told. Returns the failure, if any.
  std::string askWhenNumberIsUsedAgain(const std::string& bundle, std::vector<std::string> behaviour,
                                       std::size_t copiesAfter) {
    TestProgram copy({bundle + program, "handler"});
    if (!copy.isReady()) return "not ready";
    const pid_t number = copy.number();
    const auto copies = running();
    if (copies.size() != 1) return "not listed";
    copy.kill();
    copy.reap();
    tests::writeFile("/proc/sys/kernel/ns_last_pid", std::to_string(number - 1));
    behaviour.insert(behaviour.begin(), KELTO_BIN_DIR "/test_application");
    TestProgram stranger(std::move(behaviour));
    if (!stranger.isReady()) return "the stranger is not ready";
    if (stranger.number() != number) return "the number was not used again";
    if (copies[0]->terminate()) return "the stranger was asked";
    if (running().size() != copiesAfter) return std::to_string(running().size()) + " copies";
    pollfd asked{stranger.output(), POLLIN, 0};
    return stranger.isAlive() && ::poll(&asked, 1, 0) == 0 ? "" : "the stranger heard something";
  }

  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  tests::ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
};

TEST_F(WorkspaceAsRoot, ANumberUsedAgainIsNeverMistakenForTheCopy) {
  const std::string bundle = makeBundle("App.app");
  inProcessNamespace([&] { return askWhenNumberIsUsedAgain(bundle, {"handler"}, 0); });
}

TEST_F(WorkspaceAsRoot, ANumberUsedAgainByTheOwnerOfTheNameIsNotMistakenEither) {
  const std::string bundle = makeBundle("App.app");
  inProcessNamespace([&] {
    const tests::PrivateBus bus;
    return askWhenNumberIsUsedAgain(bundle, {"bus", identifier, "refuse"}, 1);
  });
}

}  // namespace
}  // namespace platform::Linux
