// Records in a real journal, in a name space of the test's own, read back by the journal's own program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "logging/DDJournalLogger.h"
#include "logging/LogSite.h"
#include "tests/logging/RealLog.h"
#include "tests/support/Eventually.h"

using testing::HasSubstr;

namespace {

constexpr const char* daemonPath = "/lib/systemd/systemd-journald";
constexpr int cannot = 77;

// A /run of its own, where the journal keeps its socket and its files.
bool separate() {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (::mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0) return false;
  std::error_code code;
  for (const char* folder : {"/run/systemd/journal", "/run/log/journal"}) std::filesystem::create_directories(folder, code);
  return !code;
}

pid_t startJournal() {
  const pid_t daemon = ::fork();
  if (daemon != 0) return daemon;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::execl(daemonPath, daemonPath, nullptr);
  ::_exit(cannot);
}

// The entries that `log` makes under the name of the process, as JSON, in a file.
template <class Log>
int journalTo(const std::string& name, const tests::TemporaryFolder& folder, const Log& log) {
  if (!separate()) return cannot;
  const pid_t daemon = startJournal();
  const bool isReady = tests::eventually([] { return ::access("/run/systemd/journal/socket", W_OK) == 0; });
  {
    const RealLog real(name, folder.path("logs"));
    DDLog::addLogger(DDJournalLogger::sharedInstance());
    log();
  }
  const std::string file = folder.path("entries");
  const std::string command = "journalctl --quiet --output=json SYSLOG_IDENTIFIER=" + name + " >" + file + " 2>&1";
  const bool isThere = tests::eventually(
      [&] { return std::system(command.c_str()) == 0 && tests::readFile(file).find("the last") != std::string::npos; });
  ::kill(daemon, SIGKILL);
  ::waitpid(daemon, nullptr, 0);
  return isReady && isThere ? 0 : 1;
}

}  // namespace

TEST(SystemJournal, HasRecordsWithTheirPartsAsFields) {
  if (::access(daemonPath, X_OK) != 0) GTEST_SKIP() << "there is no " << daemonPath;
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::_exit(journalTo(name, folder, [] {
      const DDLogSite site{DDLogFlagError | DDLogFlagWarning, 7};
      site.warning(LogFields{{"user", "Anna\nB"}, {"tries", 3}}, "%@ cannot log in", "Anna");
      site.error("the last");
    }));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == cannot) GTEST_SKIP() << "needs root for a name space";
  const std::string entries = tests::readFile(folder.path("entries"));
  ASSERT_EQ(status, 0) << entries;
  ASSERT_EQ(std::ranges::count(entries, '\n'), 2) << entries;
  const std::string first = entries.substr(0, entries.find('\n'));
  for (const char* field :
       {R"("MESSAGE":"Anna cannot log in")", R"("PRIORITY":"4")", R"("USER":"Anna\nB")", R"("TRIES":"3")",
        R"("KELTO_CONTEXT":"7")", R"("CODE_FUNC":)", R"("CODE_LINE":)", R"("TID":)", R"(SystemJournal_system_test.cpp")"})
    EXPECT_THAT(first, HasSubstr(field));
  EXPECT_THAT(entries, HasSubstr(R"("PRIORITY":"3")"));
}
