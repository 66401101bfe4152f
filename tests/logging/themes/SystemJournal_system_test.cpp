// Records in a real journal, in a name space of the test's own, read back by the journal's own program; there, and where
// the distribution's programs have shipped it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "logging/DDJournalLogger.h"
#include "logging/LogSite.h"
#include "tests/logging/RealLog.h"
#include "tests/support/Eventually.h"
#include "tests/support/OtherProcess.h"

using namespace tests;
using testing::HasSubstr;

namespace {

constexpr const char* daemonPath = "/lib/systemd/systemd-journald";
constexpr const char* uploadPath = "/lib/systemd/systemd-journal-upload";
constexpr const char* remotePath = "/lib/systemd/systemd-journal-remote";
constexpr const char* remotePlace = "127.0.0.1:19532";  // in a network of the test's own
constexpr int cannot = 77;

// A /run of its own, where the journal keeps its socket and its files.
bool separate() {
  if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
  if (::mount("tmpfs", "/run", "tmpfs", 0, nullptr) != 0) return false;
  std::error_code code;
  for (const char* folder : {"/run/systemd/journal", "/run/log/journal"}) std::filesystem::create_directories(folder, code);
  return !code;
}

// A network of its own, with nothing but this machine.
bool separateNetwork() {
  if (::unshare(CLONE_NEWNET) != 0) return false;
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::string("lo").copy(request.ifr_name, IFNAMSIZ);
  request.ifr_flags = IFF_UP;
  const bool isUp = ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
  ::close(socket);
  return isUp;
}

bool isSystem(const std::string& command) { return std::system(command.c_str()) == 0; }

void writeRecords() {
  const DDLogSite site{DDLogFlagError | DDLogFlagWarning, 7};
  site.warning(LogFields{{"user", "Anna\nB"}, {"tries", 3}}, "%@ cannot log in", "Anna");
  site.error("the last");
}

// A machine with a journal, in which a process of that name writes its records. Then it calls `work`, and ends.
template <class Work>
void beMachine(const std::string& name, const std::string& folder, const Work& work) {
  if (!separate()) ::_exit(cannot);
  const tests::OtherProcess daemon([] { ::execl(daemonPath, daemonPath, nullptr); });
  if (!tests::eventually([] { return ::access("/run/systemd/journal/socket", W_OK) == 0; })) ::_exit(1);
  {
    const RealLog real(name, folder + "/" + name);
    DDLog::addLogger(DDJournalLogger::sharedInstance());
    writeRecords();
  }
  if (!tests::eventually(
          [&] { return isSystem("journalctl --quiet --grep='the last' SYSLOG_IDENTIFIER=" + name + " >/dev/null 2>&1"); }))
    ::_exit(2);
  if (!work()) ::_exit(3);
}

// The entries as JSON, one in a line; `from` says where they are.
std::string entriesOf(const std::string& name, const std::string& from, const std::string& file) {
  isSystem("journalctl --quiet --output=json " + from + " SYSLOG_IDENTIFIER=" + name + " >" + file + " 2>&1");
  return tests::readFile(file);
}

// Two machines, one after the other, that ship their journals to a third place; its status.
void shipTo(const std::string& file, const std::string& name, const std::string& folder) {
  if (!separateNetwork()) ::_exit(cannot);
  tests::OtherProcess remote([&] {
    ::execl(remotePath, remotePath, ("--listen-http=" + std::string(remotePlace)).c_str(), ("--output=" + file).c_str(),
            "--split-mode=none", nullptr);
  });
  const std::string upload = std::string(uploadPath) + " --url=http://" + remotePlace +
                             " --directory=/run/log/journal --save-state=/run/shipped --follow=no >/dev/null 2>&1";
  for (const std::string machine : {"machine-one", "machine-two"}) {
    tests::OtherProcess sender([&] {
      if (::unshare(CLONE_NEWUTS) != 0 || ::sethostname(machine.data(), machine.size()) != 0) ::_exit(cannot);
      beMachine(name, folder, [&] { return tests::eventually([&] { return isSystem(upload); }); });
    });
    if (const int status = sender.wait(); status != 0) ::_exit(status);
  }
  ::kill(remote.number(), SIGTERM);
  ::_exit(remote.wait());
}

void expectRecords(const std::string& entries) {
  const std::string first = entries.substr(0, entries.find('\n'));
  for (const char* field :
       {R"("MESSAGE":"Anna cannot log in")", R"("PRIORITY":"4")", R"("USER":"Anna\nB")", R"("TRIES":"3")",
        R"("KELTO_CONTEXT":"7")", R"("CODE_FUNC":)", R"("CODE_LINE":)", R"("TID":)", R"(SystemJournal_system_test.cpp")"})
    EXPECT_THAT(first, HasSubstr(field));
  EXPECT_THAT(entries, HasSubstr(R"("PRIORITY":"3")"));
}

}  // namespace

TEST(SystemJournal, HasRecordsWithTheirPartsAsFields) {
  if (::access(daemonPath, X_OK) != 0) GTEST_SKIP() << "there is no " << daemonPath;
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  tests::OtherProcess machine(
      [&] { beMachine(name, folder.path(), [&] { return !entriesOf(name, "", folder.path("entries")).empty(); }); });
  const int status = machine.wait();
  if (status == cannot) GTEST_SKIP() << "needs root for a name space";
  const std::string entries = tests::readFile(folder.path("entries"));
  ASSERT_EQ(status, 0) << entries;
  ASSERT_EQ(std::ranges::count(entries, '\n'), 2) << entries;
  expectRecords(entries);
}

TEST(SystemJournal, IsShippedToOnePlaceByTheProgramsOfTheDistribution) {
  for (const char* program : {daemonPath, uploadPath, remotePath})
    if (::access(program, X_OK) != 0) GTEST_SKIP() << "there is no " << program;
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  const std::string remote = folder.path("remote.journal");
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  tests::OtherProcess network([&] { shipTo(remote, name, folder.path()); });
  const int status = network.wait();
  if (status == cannot) GTEST_SKIP() << "needs root for a name space";
  ASSERT_EQ(status, 0);
  for (const char* machine : {"machine-one", "machine-two"}) {
    const std::string entries = entriesOf(name, "--file=" + remote + " _HOSTNAME=" + machine, folder.path("entries"));
    ASSERT_EQ(std::ranges::count(entries, '\n'), 2) << entries;
    expectRecords(entries);
  }
}
