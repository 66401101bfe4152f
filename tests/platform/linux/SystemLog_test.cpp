#include "platform/linux/SystemLog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <thread>

#include "platform/linux/LoggingHost.h"
#include "posix/Descriptor.h"
#include "tests/support/TemporaryFolder.h"

namespace platform::Linux {
namespace {

// Standard error goes to a file for the life of this object.
class CapturedError {
 public:
  CapturedError() : _before(::dup(STDERR_FILENO)) {
    const posix::Descriptor file(::open(_folder.path("err").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    ::dup2(file.get(), STDERR_FILENO);
  }
  ~CapturedError() { ::dup2(_before.get(), STDERR_FILENO); }
  CapturedError(const CapturedError&) = delete;
  CapturedError& operator=(const CapturedError&) = delete;

  [[nodiscard]] std::string text() const { return tests::readFile(_folder.path("err")); }

 private:
  tests::TemporaryFolder _folder;
  posix::Descriptor _before;
};

std::string logged(std::string_view line) {
  const CapturedError error;
  platform::Linux::SystemLog("installer").log(line);
  return error.text();
}

TEST(SystemLog, WritesTheLineToStandardError) { EXPECT_EQ(logged("It is done: ä"), "installer: It is done: ä\n"); }

TEST(SystemLog, PercentSignsAreText) { EXPECT_EQ(logged("%s %n 100%"), "installer: %s %n 100%\n"); }

TEST(SystemLog, ALineStaysOneLine) {
  EXPECT_EQ(logged("one\ninstaller: forged\r"), "installer: one\\x0ainstaller: forged\\x0d\n");
}

TEST(SystemLog, ATerminalIsNotCommanded) {
  EXPECT_EQ(logged("\x1b[2J\x7f\t"), "installer: \\x1b[2J\\x7f\\x09\n");
  EXPECT_EQ(logged("\xC2\x9B"
                   "2J \xC2\xA0"),
            "installer: \\xc2\\x9b2J \xC2\xA0\n");
  EXPECT_EQ(logged(std::string_view("a\0b", 3)), "installer: a\\x00b\n");
}

TEST(SystemLog, BytesThatAreNotTextAreEscaped) { EXPECT_EQ(logged("\x9b ok \xFF"), "installer: \\x9b ok \\xff\n"); }

int exitStatusOfChild(const std::function<int()>& work) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(work());
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

TEST(SystemLog, AReaderOfStandardErrorThatHasGoneDoesNoHarm) {
  const int status = exitStatusOfChild([] {
    ::signal(SIGPIPE, SIG_DFL);
    int ends[2];
    if (::pipe(ends) != 0) return 1;
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    platform::Linux::SystemLog log("installer");
    log.log("first");
    log.log("second");
    sigset_t mask;
    ::sigprocmask(SIG_SETMASK, nullptr, &mask);
    return ::sigismember(&mask, SIGPIPE) == 0 ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

// In some of the rounds another thread is in the middle of a line.
TEST(SystemLog, AChildThatIsForkedWhileOthersLogMayLogToo) {
  const int status = exitStatusOfChild([] {
    const LoggingHost host;  // makes forks known
    const posix::Descriptor nothing(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    ::dup2(nothing.get(), STDERR_FILENO);
    SystemLog log("installer");
    for (int t = 0; t < 2; ++t)
      std::thread([&] {
        for (;;) log.log("parent");
      }).detach();
    for (int round = 0; round < 100; ++round) {
      const int one = exitStatusOfChild([&] {
        ::alarm(20);
        log.log("child");
        return 0;
      });
      if (one != 0) return 1;
    }
    return 0;
  });
  EXPECT_EQ(status, 0);
}

TEST(SystemLog, ASecondSignalThatWaitedBeforeIsKept) {
  const int status = exitStatusOfChild([] {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGPIPE);
    ::sigprocmask(SIG_BLOCK, &mask, nullptr);
    ::raise(SIGPIPE);
    int ends[2];
    if (::pipe(ends) != 0) return 1;
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[0]);
    platform::Linux::SystemLog("installer").log("line");
    ::sigpending(&mask);
    return ::sigismember(&mask, SIGPIPE) == 1 ? 0 : 2;
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace platform::Linux
