#include "platform/linux/Workspace.h"

#include <gmock/gmock.h>
#include <signal.h>

#include <map>
#include <thread>

#include "platform/linux/Bundle.h"
#include "platform/linux/BundleProgram.h"
#include "platform/linux/Launch.h"
#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using tests::ApplicationTest;
using tests::ScopedEnvironment;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";

// Neither a session bus nor a display.
class RunningApplications : public ApplicationTest {
 protected:
  ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
};

TEST_F(RunningApplications, ACopyIsListedWhileItRuns) {
  const std::string bundle = makeBundle("App.app");
  EXPECT_TRUE(running().empty());
  TestProgram copy({bundle + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_EQ(running().size(), 1U);
  copy.kill();
  copy.reap();
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningApplications, ACopyThatEndedIsNotRunningThoughItsParentSleeps) {
  TestProgram copy({makeBundle("App.app") + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  copy.kill();
  ASSERT_TRUE(copy.isZombie());
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningApplications, EveryCopyIsListedWhereverItsBundleIs) {
  const std::string bundle = makeBundle("App.app");
  TestProgram first({bundle + program, "plain"});
  TestProgram second({bundle + program, "plain"});
  TestProgram third({makeBundle("elsewhere/Renamed.app") + program, "plain"});
  ASSERT_TRUE(first.isReady() && second.isReady() && third.isReady());
  EXPECT_EQ(running().size(), 3U);
}

TEST_F(RunningApplications, AnotherIdentifierIsAnotherApplication) {
  TestProgram other({makeBundle("App.app", "com.kelto.another") + program, "plain"});
  ASSERT_TRUE(other.isReady());
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningApplications, TheMacOSFolderHoldsProgramsToo) {
  TestProgram copy({makeBundle("App.app", identifier, "Contents/MacOS") + "/Contents/MacOS/program", "plain"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningApplications, AProgramAmongTheResourcesDoesNotCount) {
  const std::string place = "Contents/Resources/LibraryServer";
  TestProgram server({makeBundle("App.app", identifier, place) + "/" + place + "/program", "plain"});
  ASSERT_TRUE(server.isReady());
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningApplications, AProgramOutsideABundleDoesNotCount) {
  fs::create_directories(root + "/App.app.d/Contents/Linux");
  fs::copy_file(KELTO_BIN_DIR "/test_application", root + "/App.app.d" + program);
  TestProgram copy({root + "/App.app.d" + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningApplications, AnInnerBundleCountsForItself) {
  const std::string outer = makeBundle("App.app");
  const std::string inner = makeBundle("App.app/Contents/Linux/Helper.app", "com.kelto.helper");
  TestProgram helper({inner + program, "plain"});
  ASSERT_TRUE(helper.isReady());
  EXPECT_TRUE(running().empty());
  EXPECT_EQ(workspace.runningApplications("com.kelto.helper").size(), 1U);
}

TEST_F(RunningApplications, AFolderWithABundlesNameAloneIsPassedOver) {
  const std::string outer = makeBundle("App.app");
  const std::string inner = makeBundle("App.app/Contents/Linux/Helper.app", "com.kelto.helper");
  fs::remove(inner + "/Contents/Info.plist");
  EXPECT_EQ(bundleOfProgram(inner + program), outer);
}

TEST_F(RunningApplications, ACopyWhoseBundleWasReplacedUnderItStillCounts) {
  const std::string bundle = makeBundle("App.app");
  TestProgram copy({bundle + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  fs::remove_all(bundle);
  makeBundle("App.app");
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningApplications, ABundleThatWasMovedIsFoundAtItsNewPlace) {
  TestProgram copy({makeBundle("App.app") + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  fs::rename(root + "/App.app", root + "/away");
  makeBundle("New.app");
  fs::remove_all(root + "/New.app");
  fs::rename(root + "/away", root + "/New.app");
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningApplications, TheProcessThatAsksIsNotAmongThem) {
  const std::string bundle = makeBundle("App.app");
  TestProgram other({bundle + program, "plain"});
  ASSERT_TRUE(other.isReady());
  tests::writeFile(bundle + "/Contents/Info.plist",
                   "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + std::string(identifier) +
                       "</string><key>CFBundleExecutable</key><string>program</string></dict></plist>");
  TestProgram counting({bundle + program, "count", identifier});
  EXPECT_EQ(counting.line(), "1");
}

TEST_F(RunningApplications, TheBundleOfAProgramIsFoundByPathAlone) {
  const std::string bundle = makeBundle("App.app");
  EXPECT_EQ(bundleOfProgram(bundle + "/Contents/Linux/gone (deleted)"), bundle);
  EXPECT_EQ(bundleOfProgram(bundle + "/Contents/Linux/below/gone"), bundle);
  EXPECT_EQ(bundleOfProgram(bundle + "/Contents/Linuxes/program"), std::nullopt);
  EXPECT_EQ(bundleOfProgram("/usr/bin/env"), std::nullopt);
  EXPECT_EQ(bundleOfProgram(""), std::nullopt);
}

TEST_F(RunningApplications, OneThatHandlesTheSignalQuits) {
  TestProgram copy({makeBundle("App.app") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
  EXPECT_EQ(copy.reap(), 0);
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningApplications, OneThatRefusesIsNotForced) {
  TestProgram copy({makeBundle("App.app") + program, "refuse"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
  EXPECT_TRUE(copy.isAlive());
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningApplications, OneThatTheSignalWouldKillIsLeftAlone) {
  for (const auto* behaviour : {"plain", "ignore"}) {
    TestProgram copy({makeBundle(std::string(behaviour) + ".app") + program, behaviour});
    ASSERT_TRUE(copy.isReady());
    EXPECT_FALSE(askOnlyCopy());
    EXPECT_TRUE(copy.isAlive());
    EXPECT_THAT(log.lines.back(), HasSubstr(std::to_string(copy.number())));
  }
}

TEST_F(RunningApplications, OneThatHasEndedCannotBeAsked) {
  TestProgram copy({makeBundle("App.app") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  const auto copies = running();
  ASSERT_EQ(copies.size(), 1U);
  copy.kill();
  ASSERT_TRUE(copy.isZombie());
  EXPECT_FALSE(copies[0]->terminate());
  copy.reap();
  EXPECT_FALSE(copies[0]->terminate());
}

TEST_F(RunningApplications, ListingAndAskingBlockThroughTheBlockingCall) {
  class Counting final : public BlockingCall {
   public:
    void run(const std::function<void()>& call) override {
      ++count;
      std::thread(call).join();
    }
    int count = 0;
  } counting;
  TestProgram copy({makeBundle("App.app") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  platform::Linux::Workspace own(bundles, log, counting);
  EXPECT_TRUE(own.runningApplications(identifier).at(0)->terminate());
  EXPECT_EQ(counting.count, 2);
}

class LaunchApplication : public ApplicationTest {
 protected:
  // The launched program's report about itself.
  std::multimap<std::string, std::string> report() {
    EXPECT_TRUE(tests::eventually([&] { return fs::exists(file); }));
    std::multimap<std::string, std::string> facts;
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
      facts.emplace(line.substr(0, line.find(' ')), line.substr(line.find(' ') + 1));
    fs::remove(file);
    return facts;
  }

  static std::vector<std::string> all(const std::multimap<std::string, std::string>& facts, const std::string& kind) {
    std::vector<std::string> values;
    for (auto [fact, end] = facts.equal_range(kind); fact != end; ++fact) values.push_back(fact->second);
    return values;
  }

  bool launch(const std::string& bundle, const LaunchConfiguration* configuration = nullptr) {
    return workspace.launchApplication(bundle, NSWorkspaceLaunchDefault, configuration);
  }

  std::string file = root + "/report";
  ScopedEnvironment _report{"KELTO_TEST_REPORT", file};
};

TEST_F(LaunchApplication, TheArgumentsArriveAsTheyAre) {
  const std::string bundle = makeBundle("My App.app");
  const LaunchConfiguration configuration{{"-Resume", "YES", "", "two words", "$HOME *"}};
  ASSERT_TRUE(launch(bundle, &configuration));
  EXPECT_THAT(all(report(), "argument"), ElementsAre(bundle + program, "-Resume", "YES", "", "two words", "$HOME *"));
}

TEST_F(LaunchApplication, WithoutAConfigurationThereAreNone) {
  const std::string bundle = makeBundle("App.app");
  ASSERT_TRUE(launch(bundle));
  EXPECT_THAT(all(report(), "argument"), ElementsAre(bundle + program));
}

TEST_F(LaunchApplication, TheEnvironmentHasTheOriginalPATH) {
  const ScopedEnvironment path("PATH", "/bundle/Resources:/usr/bin");
  const ScopedEnvironment original("KELTO_ORIGINAL_PATH", "/usr/bin");
  const ScopedEnvironment other("KELTO_TEST_OTHER", "kept=as it is");
  ASSERT_TRUE(launch(makeBundle("App.app")));
  const auto environment = all(report(), "environment");
  EXPECT_THAT(environment, testing::Contains("PATH=/usr/bin").Times(1));
  EXPECT_THAT(environment, testing::Contains("KELTO_TEST_OTHER=kept=as it is"));
  EXPECT_THAT(environment, testing::Not(testing::Contains(testing::StartsWith("KELTO_ORIGINAL_PATH"))));
  EXPECT_THAT(environment, testing::Contains(testing::StartsWith("PATH=")).Times(1));
}

TEST_F(LaunchApplication, WithoutAnOriginalPATHItStaysAsItIs) {
  const ScopedEnvironment path("PATH", "/some/where");
  ASSERT_TRUE(launch(makeBundle("App.app")));
  EXPECT_THAT(all(report(), "environment"), testing::Contains("PATH=/some/where"));
}

TEST_F(LaunchApplication, OnlyTheStandardDescriptorsAreOpen) {
  const posix::Descriptor leaked(::open("/dev/zero", O_RDONLY));
  const posix::Descriptor high(::fcntl(leaked.get(), F_DUPFD, 700));
  ASSERT_TRUE(launch(makeBundle("App.app")));
  const auto open = all(report(), "descriptor");
  ASSERT_EQ(open.size(), 3U);
  EXPECT_EQ(open[0], "0 /dev/null");
  EXPECT_THAT(open[1], testing::StartsWith("1 "));
  EXPECT_THAT(open[2], testing::StartsWith("2 "));
}

TEST_F(LaunchApplication, ClosedStandardDescriptorsAreOpenedOnNothing) {
  const std::string bundle = makeBundle("App.app");
  const pid_t child = ::fork();
  if (child == 0) {
    for (const int descriptor : {0, 1, 2}) ::close(descriptor);
    ::_exit(launch(bundle) ? 0 : 1);
  }
  int status = -1;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  EXPECT_THAT(all(report(), "descriptor"), ElementsAre("0 /dev/null", "1 /dev/null", "2 /dev/null"));
}

TEST_F(LaunchApplication, SignalsAreAsAtLogin) {
  sigset_t blocked;
  sigset_t before;
  sigemptyset(&blocked);
  for (const int number : {SIGTERM, SIGUSR1}) sigaddset(&blocked, number);
  ::pthread_sigmask(SIG_BLOCK, &blocked, &before);
  const auto pipe = ::signal(SIGPIPE, SIG_IGN);
  const auto hangup = ::signal(SIGHUP, SIG_IGN);
  const bool isLaunched = launch(makeBundle("App.app"));
  ::signal(SIGPIPE, pipe);
  ::signal(SIGHUP, hangup);
  sigset_t after;
  ::pthread_sigmask(SIG_SETMASK, &before, &after);
  ASSERT_TRUE(isLaunched);
  EXPECT_EQ(sigismember(&after, SIGUSR1), 1);
  EXPECT_EQ(sigismember(&after, SIGUSR2), 0);
  const auto facts = report();
  EXPECT_THAT(all(facts, "blocked"), ElementsAre());
  EXPECT_THAT(all(facts, "ignored"), ElementsAre());
}

TEST_F(LaunchApplication, ItIsNobodysChildAndHasASessionOfItsOwn) {
  ASSERT_TRUE(launch(makeBundle("App.app")));
  siginfo_t info{};
  EXPECT_EQ(::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT), -1);
  EXPECT_EQ(errno, ECHILD);
  int process = 0;
  int parent = 0;
  int session = 0;
  const auto facts = report();
  std::sscanf(all(facts, "process").at(0).c_str(), "%d of %d in %d", &process, &parent, &session);
  EXPECT_NE(parent, ::getpid());
  EXPECT_NE(session, ::getsid(0));
  EXPECT_NE(session, process);  // no leader, so that it never gets a terminal by accident
}

TEST_F(LaunchApplication, ItStartsInTheHomeFolder) {
  fs::create_directory(root + "/home");
  const ScopedEnvironment home("HOME", root + "/home");
  ASSERT_TRUE(launch(makeBundle("App.app")));
  EXPECT_THAT(all(report(), "folder"), ElementsAre(root + "/home"));
}

TEST_F(LaunchApplication, WithoutAHomeFolderItStartsInTheRoot) {
  const ScopedEnvironment home("HOME", root + "/missing");
  ASSERT_TRUE(launch(makeBundle("App.app")));
  EXPECT_THAT(all(report(), "folder"), ElementsAre("/"));
}

TEST_F(LaunchApplication, TheMacOSFolderIsTheSecondChoice) {
  const std::string bundle = makeBundle("App.app", identifier, "Contents/MacOS");
  ASSERT_TRUE(launch(bundle));
  EXPECT_THAT(all(report(), "argument"), ElementsAre(bundle + "/Contents/MacOS/program"));
  makeBundle("App.app");
  ASSERT_TRUE(launch(bundle));
  EXPECT_THAT(all(report(), "argument"), ElementsAre(bundle + program));
}

TEST_F(LaunchApplication, AMissingBundleOrProgramIsAFailure) {
  EXPECT_FALSE(launch(root + "/Missing.app"));
  const std::string bundle = makeBundle("App.app");
  fs::permissions(bundle + program, fs::perms::owner_read);
  EXPECT_FALSE(launch(bundle));
  fs::remove(bundle + program);
  EXPECT_FALSE(launch(bundle));
  bundles.others[bundle]->info.erase("CFBundleExecutable");
  EXPECT_FALSE(launch(bundle));
  EXPECT_EQ(log.lines.size(), 4U);
}

TEST_F(LaunchApplication, AProgramOutsideTheBundleIsNotRun) {
  const std::string bundle = makeBundle("App.app");
  fs::copy_file(bundle + program, root + "/outside");
  for (const auto* name : {"../../../outside", "..", ".", "", "below/program"}) {
    bundles.others[bundle]->info.insert_or_assign("CFBundleExecutable", name);
    EXPECT_FALSE(launch(bundle)) << name;
  }
}

TEST_F(LaunchApplication, AProgramThatTheSystemCannotExecuteIsAFailure) {
  const std::string bundle = makeBundle("App.app");
  fs::remove(bundle + program);
  tests::writeFile(bundle + program, "no program");
  fs::permissions(bundle + program, fs::perms::owner_all);
  EXPECT_FALSE(launch(bundle));
  EXPECT_THAT(log.lines, ElementsAre(HasSubstr("Exec format error")));
  tests::writeFile(bundle + program, "#!/no/such/interpreter\n");
  EXPECT_FALSE(launch(bundle));
  EXPECT_THAT(log.lines.back(), HasSubstr("No such file or directory"));
  siginfo_t info{};
  EXPECT_EQ(::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT), -1);
}

TEST_F(LaunchApplication, FailuresLeakNoDescriptors) {
  const int before = ::dup(0);
  ::close(before);
  for (int i = 0; i < 20; ++i) {
    EXPECT_EQ(platform::Linux::launch("/no/such/program", {}), ENOENT);
    EXPECT_EQ(platform::Linux::launch("/bin/true", {}), 0);
  }
  const int after = ::dup(0);
  ::close(after);
  EXPECT_EQ(before, after);
}

TEST_F(LaunchApplication, ABundleOnDiskIsLaunchedAndListedByItsInformationList) {
  const std::string bundle = makeBundle("App.app", "");
  tests::writeFile(bundle + "/Contents/Info.plist",
                   "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" + identifier +
                       "</string><key>CFBundleExecutable</key><string>program</string></dict></plist>");
  const platform::Linux::Bundles onDisk(log);
  platform::Linux::Workspace own(onDisk, log, direct);
  ASSERT_TRUE(own.launchApplication(bundle, NSWorkspaceLaunchDefault, nullptr));
  EXPECT_THAT(all(report(), "argument"), ElementsAre(bundle + program));
  ::unsetenv("KELTO_TEST_REPORT");
  TestProgram copy({bundle + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  // The launched one reports before it ends.
  EXPECT_TRUE(tests::eventually([&] { return own.runningApplications(identifier).size() == 1; }));
  // Bundles of other tests are met too, and their information lists are empty.
  EXPECT_THAT(log.lines, testing::Each(testing::Not(HasSubstr(root))));
}

}  // namespace
}  // namespace platform::Linux
