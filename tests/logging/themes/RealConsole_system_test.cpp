// The system-log logger and a system log of the test's own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cstring>

#include "logging/DDASLLogger.h"
#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"
#include "platform/linux/LoggingHost.h"
#include "tests/support/TemporaryFolder.h"

namespace {

constexpr int noRights = 77;

void log(int level, std::string_view text) {
  DDLog::log_level_flag_context_file_function_line_format(false, level, 1, 0, "f.mm", "f", 1, "%@", text);
}

// The receiving end of a /dev/log of this process's own; -1 when none is to be had.
int ownSystemLog() {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      ::mount("kelto", "/dev", "tmpfs", 0, nullptr) != 0)
    return -1;
  const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strcpy(address.sun_path, "/dev/log");
  return ::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? receiver : -1;
}

bool arrives(int receiver, int level, const std::string& text) {
  char buffer[4096];
  const ssize_t length = ::recv(receiver, buffer, sizeof buffer, MSG_DONTWAIT);
  const std::string datagram(buffer, static_cast<std::size_t>(length < 0 ? 0 : length));
  return datagram.starts_with("<" + std::to_string(LOG_USER | level) + ">") && datagram.ends_with(": " + text);
}

}  // namespace

TEST(RealSystemLog, GetsEveryRecordAtItsLevelAndLiterally) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int receiver = ownSystemLog();
    if (receiver < 0) ::_exit(noRights);
    platform::Linux::LoggingHost host;
    platform::fake::FakePlatform fake;
    fake.platform.loggingHost = &host.host;
    DDLog::addLogger(DDASLLogger::sharedInstance());
    const std::pair<int, int> levels[] = {{0, LOG_NOTICE}, {1, LOG_CRIT}, {2, LOG_ERR}, {3, LOG_WARNING}, {4, LOG_NOTICE}};
    bool isRight = true;
    for (const auto& [level, systemLevel] : levels) {
      log(level, "100%s of " + std::to_string(level));
      isRight = arrives(receiver, systemLevel, "100%s of " + std::to_string(level)) && isRight;
    }
    ::_exit(isRight ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == noRights) GTEST_SKIP() << "a /dev/log of one's own needs root";
  EXPECT_EQ(status, 0);
}
