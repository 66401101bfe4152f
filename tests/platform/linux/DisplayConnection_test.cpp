#include "platform/linux/DisplayConnection.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <set>

#include "tests/platform/linux/Applications.h"

namespace platform::Linux {
namespace {

using tests::ApplicationTest;
using tests::TestProgram;

const std::string program = "/Contents/Linux/program";

// A socket that somebody listens at.
class Listener {
 public:
  explicit Listener(const std::string& path) : _socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0) << path;
    EXPECT_EQ(::listen(_socket.get(), 4), 0);
  }
  void accept() { _connection = posix::Descriptor(::accept(_socket.get(), nullptr, nullptr)); }

 private:
  posix::Descriptor _socket;
  posix::Descriptor _connection;
};

class DisplayConnection : public ApplicationTest {
 protected:
  std::string socketNamed(const std::string& name) {
    std::filesystem::create_directories(std::filesystem::path(root + "/" + name).parent_path());
    return root + "/" + name;
  }

  tests::ScopedEnvironment _bus{"DBUS_SESSION_BUS_ADDRESS", "unix:path=/no/such/bus"};
  tests::ScopedEnvironment _display{"DISPLAY", ":no-such-display"};
  tests::ScopedEnvironment _wayland{"WAYLAND_DISPLAY", "compositor"};
};

TEST_F(DisplayConnection, ACopyOnADisplayThatCannotBeAskedIsNotSignalled) {
  for (const auto* name : {"wayland-7", ".X11-unix/X7", "compositor"}) {
    const std::string socket = socketNamed(name);
    Listener listener(socket);
    TestProgram copy({makeBundle(std::filesystem::path(name).filename().string() + ".app") + program, "connect", socket});
    ASSERT_TRUE(copy.isReady()) << name;
    EXPECT_TRUE(mayShowWindows(copy.number())) << name << " is slow to accept";
    listener.accept();
    EXPECT_TRUE(mayShowWindows(copy.number())) << name;
    EXPECT_FALSE(askOnlyCopy()) << name;
    EXPECT_TRUE(copy.isAlive()) << name;
    copy.kill();
    EXPECT_EQ(copy.line(), "") << name;
    copy.reap();
  }
}

TEST_F(DisplayConnection, ACopyConnectedToSomethingElseGetsTheSignal) {
  const std::string socket = socketNamed("bus");
  Listener listener(socket);
  TestProgram copy({makeBundle("App.app") + program, "connect", socket});
  ASSERT_TRUE(copy.isReady());
  listener.accept();
  EXPECT_FALSE(mayShowWindows(copy.number()));
  EXPECT_TRUE(askOnlyCopy());
  EXPECT_EQ(copy.line(), "SIGTERM");
}

TEST_F(DisplayConnection, ACopyWithAChildOnADisplayIsNotSignalled) {
  const std::string socket = socketNamed("wayland-7");
  Listener listener(socket);
  TestProgram copy({makeBundle("App.app") + program, "parent", socket});
  const std::string first = copy.line();
  const std::string second = copy.line();
  ASSERT_EQ(std::set({first, second}), std::set<std::string>({"ready", "child"}));
  listener.accept();
  EXPECT_TRUE(mayShowWindows(copy.number()));
}

TEST_F(DisplayConnection, ADisplayOnAnotherMachineOrAnInheritedConnectionCounts) {
  for (const auto& [name, value] : {std::pair("DISPLAY", "elsewhere:10.0"), std::pair("WAYLAND_SOCKET", "7")}) {
    const tests::ScopedEnvironment variable(name, value);
    TestProgram copy({makeBundle(std::string(name) + ".app") + program, "handler"});
    ASSERT_TRUE(copy.isReady());
    EXPECT_TRUE(mayShowWindows(copy.number())) << name;
  }
}

TEST_F(DisplayConnection, AProcessThatHasEndedCannotBeJudged) {
  TestProgram copy({makeBundle("App.app") + program, "handler"});
  ASSERT_TRUE(copy.isReady());
  EXPECT_FALSE(mayShowWindows(copy.number()));
  copy.kill();
  ASSERT_TRUE(copy.isZombie());
  const pid_t number = copy.number();
  copy.reap();
  EXPECT_TRUE(mayShowWindows(number));
}

}  // namespace
}  // namespace platform::Linux
