#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "platform/Platform.h"
#include "protocol/Notifications.h"
#include "tests/platform/linux/qt/QtTest.h"
#include "tests/platform/linux/qt/TestApplication.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestPortal.h"

using namespace foundation;
using namespace platform;
using tests::ChildProcess;
using tests::eventually;
using tests::outputOf;
using tests::readFile;
using tests::TemporaryFolder;
using tests::writeFile;

namespace {

class TestDelegate final : public ApplicationDelegate {
 public:
  explicit TestDelegate(Platform& platform) : _platform(platform) {}

  void connectOutlet(std::string_view name, const std::shared_ptr<InterfaceElement>& element) override {
    if (name == "window") _window = element;
  }

  void applicationDidFinishLaunching(const Notification& notification) override {
    say(notification.name);
    const auto& defaults = _platform.standardUserDefaults;
    say("title default " + defaults.stringForKey("title").value_or("missing"));
    if (const auto name = defaults.stringForKey("Observe"))
      _platform.distributedNotificationCenter.addObserver(
          *name, [](const Notification& received) { say("received " + received.name); });
    if (const auto window = std::dynamic_pointer_cast<Window>(_window.lock())) {
      window->setFrame({{300, 303}, {460, 206}}, false);
      window->setTitle(_platform.bundles.mainBundle().infoString("CFBundleName").value_or("missing"));
      window->makeKeyAndOrderFront();
    }
    say("shown");
    if (const auto line = defaults.stringForKey("Shell")) {
      _platform.shell.system(*line);
      say("shell line done");
    }
  }

  void applicationWillTerminate(const Notification& notification) override { say(notification.name); }

 private:
  static void say(const std::string& line) { std::cout << line << std::endl; }

  Platform& _platform;
  std::weak_ptr<InterfaceElement> _window;
};

}  // namespace

int tests::runTestApplication(int argc, char** argv) {
  return ApplicationMain(
      argc, argv,
      {{"KMInstallerAppDelegate", [](Platform& platform) { return std::make_unique<TestDelegate>(platform); }}});
}

namespace {

// A bundle on disk whose program is this test program, and a run of it.
struct ApplicationMainTest : testing::Test {
  ApplicationMainTest() {
    namespace fs = std::filesystem;
    const fs::path contents = folder.path("Test.app/Contents");
    fs::create_directories(contents / "Linux");
    fs::create_directories(contents / "Resources");
    fs::copy(KELTO_BIN_DIR "/KeltoInstaller.app/Contents/Info.plist", contents);
    fs::copy(KELTO_SOURCE_DIR "/resources/MainWindow.ui", contents / "Resources");
    fs::copy(fs::read_symlink("/proc/self/exe"), contents / "Linux/KeltoInstaller");
  }

  // The line is the rest of a shell command after the environment: "program arguments".
  ChildProcess start(const std::string& arguments = {}, const std::string& environment = {}) {
    return ChildProcess({"sh", "-c",
                         "exec env " + environment + " " + tests::applicationRole + "=1 '" + program() + "' " + arguments +
                             " >'" + folder.path("out") + "' 2>'" + folder.path("err") + "'"});
  }

  [[nodiscard]] std::string program() const { return folder.path(bundle + "/Contents/Linux/KeltoInstaller"); }
  [[nodiscard]] std::string output() const { return readFile(folder.path("out")); }
  [[nodiscard]] std::string errors() const { return readFile(folder.path("err")); }
  [[nodiscard]] bool hasSaid(const std::string& line) const {
    return ("\n" + output()).find("\n" + line + "\n") != std::string::npos;
  }

  TemporaryFolder folder;
  std::string bundle = "Test.app";
};

// The processor time of a process in clock ticks (of ten milliseconds).
long processorTicks(pid_t process) {
  std::istringstream fields(readFile("/proc/" + std::to_string(process) + "/stat"));
  std::string skipped;
  for (int field = 1; field < 14; ++field) fields >> skipped;
  long user = 0;
  long system = 0;
  fields >> user >> system;
  return user + system;
}

// Whether a fifth of a second goes by in which the process uses less than a quarter of it.
bool isIdle(pid_t process) {
  const long before = processorTicks(process);
  poll(nullptr, 0, 200);
  return processorTicks(process) - before < 5;
}

constexpr int cancelled = static_cast<int>(Ending::cancelled);
const std::string willTerminate = "NSApplicationWillTerminateNotification";

TEST_F(ApplicationMainTest, SigtermEndsItInTheOrdinaryWay) {
  auto application = start();
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  application.send(SIGTERM);
  EXPECT_EQ(application.wait(), cancelled);
  EXPECT_TRUE(hasSaid(willTerminate));
}

TEST_F(ApplicationMainTest, SigintEndsItInTheOrdinaryWay) {
  signal(SIGINT, SIG_DFL);  // a shell starts its background jobs with it ignored
  auto application = start();
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  application.send(SIGINT);
  EXPECT_EQ(application.wait(), cancelled);
  EXPECT_TRUE(hasSaid(willTerminate));
}

TEST_F(ApplicationMainTest, SighupEndsItInTheOrdinaryWay) {
  auto application = start();
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  application.send(SIGHUP);
  EXPECT_EQ(application.wait(), cancelled);
  EXPECT_TRUE(hasSaid(willTerminate));
  EXPECT_NE(errors().find("cause: SIGHUP"), std::string::npos) << errors();
}

TEST_F(ApplicationMainTest, SigtermDuringABlockingCallWaitsForItsEnd) {
  const auto go = folder.path("go");
  const auto begun = folder.path("begun");
  auto application = start("-Shell 'touch " + begun + "; while [ ! -e " + go + " ]; do sleep 0.01; done'");
  ASSERT_TRUE(eventually([&] { return std::filesystem::exists(begun); })) << errors();
  application.send(SIGTERM);
  application.send(SIGTERM);
  writeFile(go, "");
  EXPECT_EQ(application.wait(), cancelled);
  EXPECT_TRUE(output().ends_with("shell line done\n" + willTerminate + "\n")) << output();
}

TEST_F(ApplicationMainTest, ASignalThatWasIgnoredStaysIgnored) {
  signal(SIGINT, SIG_IGN);
  auto application = start();
  signal(SIGINT, SIG_DFL);
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  const auto status = readFile("/proc/" + std::to_string(application.pid()) + "/status");
  const auto ignored = std::stoull(status.substr(status.find("SigIgn:") + 7), nullptr, 16);
  EXPECT_NE(ignored & (1ULL << (SIGINT - 1)), 0U);
}

TEST_F(ApplicationMainTest, ItsWindowStandsExactlyWhereTheDelegatePutItUnderTheBundlesName) {
  auto application = start();
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  const auto search =
      "xdotool search --onlyvisible --pid " + std::to_string(application.pid()) + " --name '^Kelto Installer$'";
  ASSERT_TRUE(eventually([&] { return !outputOf(search).empty(); }));
  const auto information = outputOf("xwininfo -id " + outputOf(search));
  EXPECT_NE(information.find("Absolute upper-left X:  300\n"), std::string::npos) << information;
  EXPECT_NE(information.find("Absolute upper-left Y:  515\n"), std::string::npos) << information;
  EXPECT_NE(information.find("Width: 460\n"), std::string::npos) << information;
  EXPECT_NE(information.find("Height: 206\n"), std::string::npos) << information;
}

TEST_F(ApplicationMainTest, EscapeEndsIt) {
  auto application = start();
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  const auto process = std::to_string(application.pid()) + "\n";
  ASSERT_TRUE(eventually([&] { return outputOf("xdotool getactivewindow getwindowpid 2>&1") == process; }));
  // A key in the very moment in which the window gets the focus may be lost on the way.
  EXPECT_TRUE(eventually([this] {
    outputOf("xdotool key Escape");
    return hasSaid(willTerminate);
  }));
  EXPECT_EQ(application.wait(), cancelled);
}

TEST_F(ApplicationMainTest, ItsArgumentsAreUserDefaultsAndNoneIsQts) {
  auto application = start("-title Words -style nonsense");
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  EXPECT_TRUE(hasSaid("title default Words"));
}

TEST_F(ApplicationMainTest, ShellLinesFindTheBundlesResourcesFirstAndNothingOfQtsStartUp) {
  auto application = start("-Shell 'env >" + folder.path("env") + "'", "PATH=/usr/bin:/bin QT_QPA_PLATFORMTHEME=mine");
  ASSERT_TRUE(eventually([this] { return hasSaid("shell line done"); })) << errors();
  const auto environment = "\n" + readFile(folder.path("env"));
  EXPECT_NE(environment.find("\nPATH=" + folder.path("Test.app/Contents/Resources") + ":/usr/bin:/bin\n"),
            std::string::npos)
      << environment;
  EXPECT_NE(environment.find("\nKELTO_ORIGINAL_PATH=/usr/bin:/bin\n"), std::string::npos) << environment;
  EXPECT_NE(environment.find("\nQT_QPA_PLATFORMTHEME=mine\n"), std::string::npos) << environment;
  EXPECT_EQ(environment.find("\nQT_QPA_PLATFORM="), std::string::npos) << environment;
}

TEST_F(ApplicationMainTest, ShellLinesFindTheResourcesOfABundleWhosePathHasAColon) {
  bundle = "Test: 2.app";
  std::filesystem::rename(folder.path("Test.app"), folder.path(bundle));
  const auto command = folder.path(bundle + "/Contents/Resources/greet");
  std::filesystem::create_directories(std::filesystem::path(command).parent_path());
  writeFile(command, "#!/bin/sh\necho hello\n");
  std::filesystem::permissions(command, std::filesystem::perms::owner_all);
  auto application = start("-Shell 'greet >" + folder.path("said") + "'", "PATH=/usr/bin:/bin");
  ASSERT_TRUE(eventually([this] { return hasSaid("shell line done"); })) << errors();
  EXPECT_EQ(readFile(folder.path("said")), "hello\n") << errors();
}

TEST_F(ApplicationMainTest, WithoutADisplayItSaysWhatToDo) {
  auto application = start("", "-u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM");
  EXPECT_EQ(application.wait(), static_cast<int>(Ending::noDisplay));
  EXPECT_NE(errors().find("there is no display (DISPLAY is not set). Start it from a desktop session"), std::string::npos)
      << errors();
  EXPECT_EQ(output(), "");
}

TEST_F(ApplicationMainTest, WithADisplayThatCannotBeOpenedItSaysWhich) {
  auto application = start("", "-u WAYLAND_DISPLAY -u QT_QPA_PLATFORM DISPLAY=:4321");
  EXPECT_EQ(application.wait(), static_cast<int>(Ending::noDisplay));
  EXPECT_NE(errors().find("the display \":4321\" cannot be opened"), std::string::npos) << errors();
}

TEST_F(ApplicationMainTest, WithAWaylandDisplayThatIsDeadItSaysWhich) {
  for (const std::string platform : {"-u QT_QPA_PLATFORM", "QT_QPA_PLATFORM=wayland"}) {
    auto application =
        start("", "-u DISPLAY -u WAYLAND_SOCKET " + platform + " WAYLAND_DISPLAY=wayland-dead XDG_RUNTIME_DIR=/nowhere");
    EXPECT_EQ(application.wait(), static_cast<int>(Ending::noDisplay));
    EXPECT_NE(
        errors().find("the Wayland display \"wayland-dead\" cannot be opened: nothing listens at /nowhere/wayland-dead"),
        std::string::npos)
        << errors();
  }
}

TEST_F(ApplicationMainTest, OnWaylandItGoesThroughXWaylandAndSaysSo) {
  auto application = start("", "-u QT_QPA_PLATFORM WAYLAND_DISPLAY=wayland-0");
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  EXPECT_NE(errors().find("Wayland session: using XWayland"), std::string::npos) << errors();
}

TEST_F(ApplicationMainTest, WithoutItsInterfaceDescriptionItDoesNotStart) {
  std::filesystem::remove(folder.path("Test.app/Contents/Resources/MainWindow.ui"));
  auto application = start();
  EXPECT_EQ(application.wait(), 1);
  EXPECT_NE(errors().find("has no interface description MainWindow.ui"), std::string::npos) << errors();
}

TEST_F(ApplicationMainTest, ItRunsWithoutASessionBus) {
  auto application = start("-Observe Credentials", "DBUS_SESSION_BUS_ADDRESS=unix:path=/nowhere");
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  application.send(SIGTERM);
  EXPECT_EQ(application.wait(), cancelled);
}

TEST_F(ApplicationMainTest, ANotificationOfAnotherProgramReachesTheDelegate) {
  const tests::PrivateBus bus;
  auto application = start("-Observe Credentials");
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  const std::string emit = std::string("busctl --user emit ") + protocol::notificationsPath + " " +
                           protocol::notificationsInterface + " " + protocol::notificationSignal +
                           " 'ssa{sv}' Credentials '' 0 2>&1";
  EXPECT_EQ(outputOf(emit), "");
  EXPECT_TRUE(eventually([this] { return hasSaid("received Credentials"); })) << errors();
}

// The width of the application's window, as the display server has it; 0 without a window.
int shownWidth() {
  return std::atoi(
      outputOf("xdotool search --onlyvisible --name '^Kelto Installer$' getwindowgeometry --shell 2>/dev/null |"
               " sed -n 's/^WIDTH=//p'")
          .c_str());
}

TEST_F(ApplicationMainTest, TheWindowFollowsTheDesktopsSettingsWhileItIsShown) {
  const tests::PrivateBus bus;
  tests::TestPortal desktop;
  auto application = start();
  const auto becomes = [&](int width) {
    return eventually([&] {
      desktop.serve();
      return shownWidth() == width;
    });
  };
  ASSERT_TRUE(becomes(460)) << errors();
  ASSERT_EQ(desktop.questions(), 1);
  desktop.change("org.gnome.desktop.interface", "text-scaling-factor", 1.5);
  EXPECT_TRUE(becomes(690)) << shownWidth();
  desktop.change("org.gnome.desktop.interface", "text-scaling-factor", 1.0);
  EXPECT_TRUE(becomes(460)) << shownWidth();
  application.send(SIGTERM);
  EXPECT_EQ(application.wait(), cancelled);
}

TEST_F(ApplicationMainTest, ASettingsPortalThatHangsDoesNotHoldUpTheWindow) {
  const tests::PrivateBus bus;
  tests::TestPortal desktop;
  auto application = start();
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); }, std::chrono::seconds(10))) << errors();
  EXPECT_EQ(desktop.questions(), 0);
  application.send(SIGTERM);
  EXPECT_EQ(application.wait(), cancelled);
}

TEST_F(ApplicationMainTest, ProgramsThatItStartsMayComeToTheFrontInItsPlace) {
  auto application = start("-Shell 'echo \"$DESKTOP_STARTUP_ID $XDG_ACTIVATION_TOKEN\" > " + folder.path("token") + "'",
                           "DESKTOP_STARTUP_ID=controller-1_TIME5 XDG_ACTIVATION_TOKEN=token-1");
  ASSERT_TRUE(eventually([this] { return hasSaid("shell line done"); })) << errors();
  EXPECT_EQ(readFile(folder.path("token")), "controller-1_TIME5 token-1\n");
  application.send(SIGTERM);
  EXPECT_EQ(application.wait(), cancelled);
}

TEST_F(ApplicationMainTest, ABusThatEndsLeavesItRunningAndIdle) {
  tests::PrivateBus bus;
  auto application = start("-Observe Credentials");
  ASSERT_TRUE(eventually([this] { return hasSaid("shown"); })) << errors();
  bus.stop();
  EXPECT_TRUE(eventually([this] { return errors().find("broke") != std::string::npos; })) << errors();
  EXPECT_TRUE(eventually([&] { return isIdle(application.pid()); }));
  application.send(SIGTERM);
  EXPECT_EQ(application.wait(), cancelled);
  EXPECT_EQ(errors().find("broke"), errors().rfind("broke")) << "it is said once";
}

}  // namespace
