#include "platform/linux/RunningCopies.h"

#include <fstream>
#include <ranges>
#include <set>

#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

namespace fs = std::filesystem;
using tests::ApplicationTest;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";

// How a script says that it is ready, and stays. Its child says it: until that is a program of its own, it looks like the
// script and counts as a copy.
const std::string stays = "sh -c 'echo ready; exec sleep 100' & wait\n";

// Neither a session bus nor a display.
class RunningCopies : public ApplicationTest {
 protected:
  // Makes a bundle whose program is a script; its path.
  std::string makeScript(const std::string& name, const std::string& text) {
    const std::string bundle = makeBundle(name);
    fs::remove(bundle + program);
    tests::writeFile(bundle + program, text);
    fs::permissions(bundle + program, fs::perms::owner_all);
    return bundle;
  }

  // Replaces the bundle by another as the tool does: the old one is moved into a staging folder and deleted there.
  void replace(const std::string& name, const std::string& bundleIdentifier = identifier) {
    const std::string staging = root + "/.kelto-staging-" + name;
    fs::create_directory(staging);
    fs::rename(root + "/" + name, staging + "/new");
    makeBundle(name, bundleIdentifier);
    fs::remove_all(staging);
  }

  // Runs a line of shell that becomes the program; its bundle is "$0".
  static TestProgram shell(const std::string& line, const std::string& bundle = "") {
    return TestProgram({"/bin/sh", "-c", line, bundle});
  }

  // A launched program, which is nobody's child, and those that it has started. They end with this object.
  struct LaunchedPrograms {
    pid_t group;
    ~LaunchedPrograms() {
      if (group > 0) ::kill(-group, SIGKILL);
    }
  };

  // Whether the process has become "sleep".
  static bool isAsleep(pid_t process) {
    std::string name;
    std::getline(std::ifstream("/proc/" + std::to_string(process) + "/comm"), name);
    return name == "sleep";
  }

  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  tests::ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
};

TEST_F(RunningCopies, ACopyCountsThroughAnyNumberOfReplacements) {
  const std::string bundle = makeBundle("App.app");
  TestProgram first({bundle + program, "plain"});
  ASSERT_TRUE(first.isReady());
  replace("App.app");
  EXPECT_EQ(running().size(), 1U);
  TestProgram second({bundle + program, "plain"});
  ASSERT_TRUE(second.isReady());
  replace("App.app");
  EXPECT_EQ(running().size(), 2U);
}

TEST_F(RunningCopies, AReplacedCopyCountsHoweverItWasStarted) {
  const std::string bundle = makeBundle("App.app");
  TestProgram copy = shell("cd \"$0/Contents\" && exec Linux/program plain", bundle);
  ASSERT_TRUE(copy.isReady());
  replace("App.app");
  EXPECT_EQ(running().size(), 1U);
  fs::rename(bundle, root + "/App 2.app");
  bundles.others[root + "/App 2.app"] = bundles.others[bundle];
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningCopies, AReplacedCopyOfAnotherApplicationNearbyDoesNotCount) {
  makeBundle("App.app");
  TestProgram other({makeBundle("Other.app", "com.kelto.other") + program, "plain"});
  ASSERT_TRUE(other.isReady());
  replace("Other.app", "com.kelto.other");
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningCopies, ABundleNeedsNoExtension) {
  TestProgram copy({makeBundle("Application") + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningCopies, AHelperInTheFolderOfTheProgramDoesNotCount) {
  const std::string bundle = makeBundle("App.app");
  fs::copy_file(bundle + program, bundle + "/Contents/Linux/helper");
  TestProgram helper({bundle + "/Contents/Linux/helper", "plain"});
  ASSERT_TRUE(helper.isReady());
  EXPECT_TRUE(running().empty());
  bundles.others[bundle]->info.erase("CFBundleExecutable");
  EXPECT_EQ(running().size(), 1U) << "any may be the program where none is named";
}

TEST_F(RunningCopies, AnInterpreterOfTheBundlesScriptCounts) {
  const std::string text = "import time\nprint('ready', flush=True)\ntime.sleep(100)\n";
  const std::string direct = makeScript("Direct.app", "#!/usr/bin/python3 -u\n" + text);
  const std::string found = makeScript("Found.app", "#!/usr/bin/env python3\n" + text);
  TestProgram first({direct + program});
  TestProgram second({found + program});
  TestProgram third = shell("cd \"$0/Contents\" && exec Linux/program", direct);
  ASSERT_TRUE(first.isReady() && second.isReady() && third.isReady());
  EXPECT_EQ(running().size(), 3U);
  second.kill();
  second.reap();
  replace("Direct.app");
  EXPECT_EQ(running().size(), 2U);
}

TEST_F(RunningCopies, AnInterpreterCountsWhateverTheFirstLineLooksLikeAndHoweverItCallsItself) {
  TestProgram tabbed({makeScript("Tab.app", "#!/usr/bin/env\tsh\n" + stays) + program});
  TestProgram renamed({makeScript("Renamed.app", "#!/bin/sh\necho other > /proc/$$/comm\n" + stays) + program});
  ASSERT_TRUE(tabbed.isReady() && renamed.isReady());
  EXPECT_EQ(running().size(), 2U);
}

TEST_F(RunningCopies, NothingIsACopyOfAnApplicationWithoutAnIdentifier) {
  TestProgram copy({makeBundle("App.app") + program, "plain"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(workspace.runningApplications("").empty());
}

TEST_F(RunningCopies, AProgramThatReadsTheScriptDoesNotCount) {
  const std::string bundle = makeScript("App.app", "#!/bin/sh\nexit\n");
  TestProgram reader({"/usr/bin/tail", "-f", bundle + program});
  ASSERT_EQ(reader.line(), "#!/bin/sh");
  EXPECT_TRUE(running().empty());
}

TEST_F(RunningCopies, AScriptAmongTheResourcesDoesNotCount) {
  const std::string bundle = makeBundle("App.app");
  fs::create_directory(bundle + "/Contents/Resources");
  tests::writeFile(bundle + "/Contents/Resources/program", "#!/bin/sh\necho ready\nread line\n");
  fs::permissions(bundle + "/Contents/Resources/program", fs::perms::owner_all);
  TestProgram script({"/bin/sh", "-c", "sleep 100 | \"$0\"", bundle + "/Contents/Resources/program"});
  ASSERT_TRUE(script.isReady());
  EXPECT_TRUE(running().empty());
}

// The launcher becomes a program of the system's, and starts another.
TEST_F(RunningCopies, ALaunchedProgramCountsWhateverItBecomes) {
  const std::string bundle = makeScript("App.app",
                                        "#!/bin/sh\nsleep 100 &\necho $$ $! > \"$KELTO_TEST_NUMBERS.part\"\n"
                                        "mv \"$KELTO_TEST_NUMBERS.part\" \"$KELTO_TEST_NUMBERS\"\nexec sleep 100\n");
  const tests::ScopedEnvironment file("KELTO_TEST_NUMBERS", root + "/numbers");
  ASSERT_TRUE(workspace.launchApplication(bundle, NSWorkspaceLaunchDefault, nullptr));
  ASSERT_TRUE(tests::eventually([&] { return fs::exists(root + "/numbers"); }));
  pid_t launched = 0;
  pid_t child = 0;
  std::ifstream(root + "/numbers") >> launched >> child;
  const LaunchedPrograms both{::getpgid(launched)};
  ASSERT_TRUE(tests::eventually([&] { return isAsleep(launched) && isAsleep(child); }));
  EXPECT_EQ(running().size(), 1U);
  ::kill(launched, SIGKILL);
  EXPECT_TRUE(tests::eventually([&] { return running().empty(); }));
}

TEST_F(RunningCopies, AProgramThatTheDesktopLaunchedCountsAndItsChildrenDoNot) {
  const std::string mark =
      "export GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/$0.desktop "
      "GIO_LAUNCHED_DESKTOP_FILE_PID=$$; ";
  const std::string start = "exec " KELTO_BIN_DIR "/test_application plain";
  TestProgram launched = shell(mark + start, identifier);
  TestProgram other = shell(mark + start, "com.kelto.other");
  TestProgram namesake = shell(mark + start, "other." + std::string(identifier));
  TestProgram child = shell(mark + "sleep 100 | (" + start + ")", "unrelated." + std::string(identifier));
  ASSERT_TRUE(launched.isReady() && other.isReady() && namesake.isReady() && child.isReady());
  EXPECT_EQ(running().size(), 1U);
}

TEST_F(RunningCopies, TheFileOfTheInstalledProgramCountsByWhateverPathItRuns) {
  const std::string bundle = makeBundle("App.app", "com.kelto.formerly");
  fs::create_hard_link(bundle + program, root + "/linked");
  TestProgram linked({root + "/linked", "plain"});
  TestProgram copy({bundle + program, "plain"});
  ASSERT_TRUE(linked.isReady() && copy.isReady());
  EXPECT_TRUE(running().empty());
  EXPECT_EQ(platform::Linux::Workspace(bundles, log, direct, bundle).runningApplications(identifier).size(), 2U);
}

TEST_F(RunningCopies, TheScriptOfTheInstalledBundleCountsWhateverItsIdentifier) {
  const std::string bundle = makeScript("App.app", "#!/bin/sh\n" + stays);
  TestProgram script({bundle + program});
  ASSERT_TRUE(script.isReady());
  EXPECT_EQ(platform::Linux::Workspace(bundles, log, direct, bundle).runningApplications("com.kelto.later").size(), 1U);
}

// A part of a program with several processes must not be ended under it.
TEST_F(RunningCopies, APartOfACopyIsNotSignalled) {
  const std::string bundle = makeBundle("App.app");
  TestProgram copy({bundle + program, "twice"});
  ASSERT_EQ(std::set({copy.line(), copy.line()}), std::set<std::string>({"ready", "child"}));
  const auto copies = running();
  ASSERT_EQ(copies.size(), 2U);
  // The part first, which has the higher number: it ends with the copy.
  int asked = 0;
  for (auto each = copies.rbegin(); each != copies.rend(); ++each) asked += (*each)->terminate() ? 1 : 0;
  EXPECT_EQ(asked, 1);
  EXPECT_EQ(copy.line(), "SIGTERM");
}

// An interpreter runs any number of programs: one that started the application is not the application.
TEST_F(RunningCopies, AScriptThatAProgramOfItsInterpreterStartedIsAsked) {
  const std::string shell = makeScript("Shell.app", "#!/bin/sh\ntrap 'echo SIGTERM; exit' TERM\n" + stays);
  const std::string python = makeScript("Python.app",
                                        "#!/usr/bin/python3 -u\nimport signal, sys\n"
                                        "signal.signal(signal.SIGTERM, lambda *_: (print('SIGTERM'), sys.exit()))\n"
                                        "print('ready')\nwhile True: signal.pause()\n");
  for (const auto& words : std::vector<std::vector<std::string>>{
           {"/bin/sh", "-c", "\"$0\"; exit", shell + program},
           {"/usr/bin/python3", "-c", "import subprocess, sys; subprocess.run(sys.argv[1:])", python + program}}) {
    TestProgram starter(words);
    ASSERT_TRUE(starter.isReady());
    EXPECT_TRUE(askOnlyCopy()) << words[0];
    EXPECT_EQ(starter.line(), "SIGTERM");
    starter.kill();
    starter.reap();
  }
}

}  // namespace
}  // namespace platform::Linux
