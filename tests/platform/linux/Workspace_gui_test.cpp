#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "tests/platform/linux/Applications.h"
#include "tests/support/PrivateDisplay.h"

namespace platform::Linux {
namespace {

using tests::ApplicationTest;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";

// A window is on the display a moment before the window manager lists it. True when it lists this many.
bool areListed(std::ptrdiff_t windows) {
  return tests::eventually([&] {
    const std::string list = tests::outputOf("xprop -root _NET_CLIENT_LIST");
    return std::count(list.begin(), list.end(), 'x') == windows;
  });
}

// A display with a window manager, and no session bus.
class QuitOverTheDisplay : public ApplicationTest {
 protected:
  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  tests::ScopedEnvironment _name{"DISPLAY", ""};
  tests::PrivateDisplay display{"640x480x24"};
};

TEST_F(QuitOverTheDisplay, ItsWindowsAreClosedAndTheCopyQuits) {
  TestProgram copy({makeBundle("App.app") + program, "window", "quit"});
  ASSERT_TRUE(copy.isReady() && areListed(2));
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
  EXPECT_EQ(copy.reap(), 0);
  EXPECT_TRUE(running().empty());
}

TEST_F(QuitOverTheDisplay, EveryWindowIsClosedAndARefusalIsNotFollowedByASignal) {
  TestProgram copy({makeBundle("App.app") + program, "window", "refuse"});
  ASSERT_TRUE(copy.isReady() && areListed(2));
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
  EXPECT_EQ(copy.line(), "close");
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
  EXPECT_EQ(copy.line(), "close");
  EXPECT_TRUE(copy.isAlive());
}

TEST_F(QuitOverTheDisplay, WindowsOfOthersStayOpen) {
  TestProgram other({makeBundle("Other.app", "com.kelto.other") + program, "window", "refuse"});
  TestProgram copy({makeBundle("App.app") + program, "window", "quit"});
  ASSERT_TRUE(other.isReady() && copy.isReady() && areListed(4));
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
  EXPECT_EQ(copy.reap(), 0);
  other.kill();
  EXPECT_EQ(other.line(), "");
}

TEST_F(QuitOverTheDisplay, TheDisplayServerTellsWhoseAWindowIs) {
  for (const auto* kind : {"foreign", "unnamed"}) {
    TestProgram copy({makeBundle(std::string(kind) + ".app") + program, "window", kind});
    ASSERT_TRUE(copy.isReady() && areListed(2)) << kind;
    EXPECT_TRUE(askOnlyCopy()) << kind;
    EXPECT_EQ(copy.line(), "close") << kind;
    EXPECT_EQ(copy.line(), "close") << kind;
    copy.kill();
    copy.reap();
    ASSERT_TRUE(areListed(0));
  }
}

// A window manager would end the program of such a window on the spot.
TEST_F(QuitOverTheDisplay, AWindowThatDoesNotOfferToBeClosedIsLeftAlone) {
  TestProgram copy({makeBundle("App.app") + program, "window", "stubborn"});
  ASSERT_TRUE(copy.isReady() && areListed(2));
  EXPECT_FALSE(askOnlyCopy());
  EXPECT_FALSE(askOnlyCopy());
  EXPECT_TRUE(copy.isAlive());
  copy.kill();
  EXPECT_EQ(copy.line(), "");
}

TEST_F(QuitOverTheDisplay, AnApplicationWithoutTheActionIsAskedThroughItsWindows) {
  const tests::PrivateBus bus;
  for (const auto* kind : {"without", "disabled"}) {
    TestProgram copy({makeBundle(std::string(kind) + ".app") + program, "window", identifier, kind});
    ASSERT_TRUE(copy.isReady() && areListed(2)) << kind;
    EXPECT_TRUE(askOnlyCopy()) << kind;
    EXPECT_EQ(copy.line(), "close") << kind;
    copy.kill();
    copy.reap();
    ASSERT_TRUE(areListed(0));
  }
}

TEST_F(QuitOverTheDisplay, TheCopyIsInFrontOnceItIsAsked) {
  TestProgram copy({makeBundle("App.app") + program, "window", "refuse"});
  ASSERT_TRUE(copy.isReady() && areListed(2));
  TestProgram other({makeBundle("Other.app", "com.kelto.other") + program, "window", "refuse"});
  ASSERT_TRUE(other.isReady() && areListed(4));
  const auto numberInFront = [] {
    return tests::outputOf("xprop -id $(xprop -root _NET_CLIENT_LIST_STACKING | sed 's/.* //') _NET_WM_PID");
  };
  ASSERT_THAT(numberInFront(), testing::HasSubstr("= " + std::to_string(other.number())));
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_TRUE(
      tests::eventually([&] { return numberInFront().find("= " + std::to_string(copy.number())) != std::string::npos; }));
}

TEST_F(QuitOverTheDisplay, ACopyWithoutWindowsGetsTheSignal) {
  TestProgram copy({makeBundle("App.app") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
}

TEST_F(QuitOverTheDisplay, TheActionOnTheBusComesFirst) {
  const tests::PrivateBus bus;
  TestProgram copy({makeBundle("App.app") + program, "bus", identifier, "quit"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_TRUE(copy.line().starts_with("action quit"));
}

// A display without a window manager: nobody there would close a window.
class DisplayAlone : public ApplicationTest {
 protected:
  static std::string startServer(std::optional<tests::ChildProcess>& server, const std::string& missing) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    server.emplace(std::vector<std::string>{"Xvfb", "-displayfd", std::to_string(ends[1]), "-screen", "0", "640x480x24",
                                            "-nolisten", "tcp", "-noreset", "-ac", "-extension", missing});
    ::close(ends[1]);
    std::string number;
    for (char digit = 0; ::read(ends[0], &digit, 1) == 1 && digit != '\n';) number += digit;
    ::close(ends[0]);
    return ":" + number;
  }

  explicit DisplayAlone(const std::string& missing = "XTEST") : _name("DISPLAY", startServer(server, missing)) {}

  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  std::optional<tests::ChildProcess> server;
  tests::ScopedEnvironment _name;
};

// One that does not tell which process made a window.
class DisplayThatDoesNotTell : public DisplayAlone {
 protected:
  DisplayThatDoesNotTell() : DisplayAlone("X-Resource") {}
};

TEST_F(DisplayAlone, ItsWindowsAreClosedAndTheCopyQuits) {
  TestProgram copy({makeBundle("App.app") + program, "window", "quit"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
  EXPECT_EQ(copy.reap(), 0);
}

TEST_F(DisplayAlone, ACopyThatIsConnectedAndHasNoWindowIsNotSignalled) {
  const std::string socket = "/tmp/.X11-unix/X" + std::string(std::getenv("DISPLAY")).substr(1);
  TestProgram copy({makeBundle("App.app") + program, "connect", socket});
  ASSERT_TRUE(copy.isReady());
  EXPECT_FALSE(askOnlyCopy());
  EXPECT_TRUE(copy.isAlive());
}

TEST_F(DisplayThatDoesNotTell, AWindowIsTheProcesssThatItNames) {
  TestProgram copy({makeBundle("App.app") + program, "window", "quit"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
}

TEST_F(DisplayThatDoesNotTell, WindowsFromAnotherMachineAreNotItsOwn) {
  TestProgram copy({makeBundle("App.app") + program, "window", "foreign"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_FALSE(askOnlyCopy());
  EXPECT_TRUE(copy.isAlive());
  copy.kill();
  EXPECT_EQ(copy.line(), "");
}

TEST_F(DisplayAlone, ItsWindowsAreClosedThoughTheWindowManagerHasDied) {
  tests::ChildProcess manager({"openbox", "--sm-disable"});
  TestProgram copy({makeBundle("App.app") + program, "window", "quit"});
  ASSERT_TRUE(copy.isReady());
  ASSERT_TRUE(areListed(2));
  ::kill(manager.pid(), SIGKILL);
  manager.wait();
  ASSERT_TRUE(tests::eventually([] {
    return tests::outputOf("xprop -id $(xprop -root _NET_SUPPORTING_WM_CHECK | sed 's/.* //') _NET_WM_NAME 2>&1")
               .find("BadWindow") != std::string::npos;
  }));
  ASSERT_TRUE(areListed(2));
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "close");
}

}  // namespace
}  // namespace platform::Linux
