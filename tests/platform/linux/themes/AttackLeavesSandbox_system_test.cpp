// A program in a sandbox reaches the session bus. The broker there must not run what it hands over outside of the sandbox.
#include "protocol/Broker.h"
#include "tests/platform/linux/themes/BrokerGround.h"
#include "tests/support/Eventually.h"
#include "tests/support/PrivateBus.h"

namespace tests::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

class Sandbox : public BrokerGround {
 protected:
  void SetUp() override {
    BrokerGround::SetUp();
    if (IsSkipped()) return;
    write(home() / "secret", "of the user");
    giveToUser(home() / "secret");
    fs::permissions(home() / "secret", fs::perms(0600));
    makeSandbox();
    _session.emplace(invokingUser, [this] { runSession(); });
    ASSERT_TRUE(tests::eventually([this] { return isThere(folder / "session/address"); })) << "no session bus";
  }
  void TearDown() override {
    _session.reset();
    BrokerGround::TearDown();
  }

  // The output of the attacker's program, run as the user in the session.
  std::string outside(const std::string& arguments) const {
    return tests::resultAs(invokingUser, [&] { return attack(attacker.string(), arguments); });
  }
  // The same from the sandbox: the system's programs, its own folder and the session bus, and nothing else.
  std::string inside(const std::string& arguments) const {
    fs::remove(folder / "session/said");
    tests::OtherProcess first([&] {
      if (::unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) ::_exit(1);
      tests::OtherProcess([&] { sayInside(arguments); }).wait();
    });
    EXPECT_EQ(first.wait(), 0);
    return read(folder / "session/said");
  }
  void expectSandboxed() {
    const auto text = inside("show " + (home() / "secret").string());
    EXPECT_THAT(text, HasSubstr("No such file")) << text;
  }
  void expectUpdatable() {
    const auto app = home() / "Applications/App.app";
    makeBundle(app, "1");
    giveToUser(app.parent_path());
    giveTree(app, invokingUser);
    const auto text =
        outside("--session run " + installed.string() + " " + instructionFor(app, download("App.app", "2")).string());
    EXPECT_EQ(read(result), protocol::successVerdict) << text;
    EXPECT_EQ(versionOf(app), "version 2") << text;
  }

 private:
  // Other processes are not seen either.
  void sayInside(const std::string& arguments) const {
    const auto root = folder / "sandbox";
    if (::mount("proc", (root / "proc").c_str(), "proc", 0, nullptr) != 0 || ::chroot(root.c_str()) != 0) ::_exit(1);
    if (::chdir("/") != 0) ::_exit(1);
    tests::becomeAccount(invokingUser);
    const auto text = attack("/own/attacker", arguments);
    write(folder / "session/said", text);
  }
  static std::string attack(const std::string& program, const std::string& arguments) {
    const bool shows = arguments.starts_with("show ");
    return tests::runCommandLine((shows ? "cat " + arguments.substr(5) : program + " " + arguments) + " 2>&1").output;
  }
  void makeSandbox() {
    fs::create_directories(folder / "session");
    giveToUser(folder / "session");
    const auto root = folder / "sandbox";
    for (const char* name : {"usr", "dev"}) {
      fs::create_directories(root / name);
      bind(fs::path("/") / name, root / name);
    }
    fs::create_directory(root / "proc");
    for (const char* name : {"bin", "lib", "lib64"}) fs::create_symlink(fs::path("usr") / name, root / name);
    // The bus is reached under the same name as outside.
    fs::create_directories(root / fs::relative(folder / "session", "/"));
    bind(folder / "session", root / fs::relative(folder / "session", "/"));
    programFor(root / "own/attacker", attacker);
    giveToUser(programFor(root / "own/shell", "/bin/sh"));
    write(root / "own/script", "cat " + (home() / "secret").string() + "; exit\n");
    ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (folder / "session/bus").string()).c_str(), 1);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
  }
  // Bus and broker of the user's session.
  void runSession() const {
    ::setenv("TMPDIR", (folder / "session").c_str(), 1);
    const tests::PrivateBus bus(
        {{protocol::brokerBusName, (tests::testedPrograms() / "authorizationd").string() + " --session"}});
    const auto path = bus.address().substr(bus.address().find('=') + 1);
    fs::create_symlink(path.substr(0, path.find(',')), folder / "session/bus");
    write(folder / "session/address", bus.address());
    ::pause();
  }

  std::optional<tests::OtherProcess> _session;
};

TEST_F(Sandbox, IsNotLeftByAProgramOfItsOwn) {
  expectUpdatable();
  expectSandboxed();
  const auto text = inside("--session run /own/shell /own/script");
  EXPECT_THAT(text, HasSubstr("right: 0\n")) << "no attack took place";
  EXPECT_THAT(text, Not(HasSubstr("of the user")));
}

TEST_F(Sandbox, IsNotLeftByAProgramInMemory) {
  expectUpdatable();
  expectSandboxed();
  const auto text = inside("--session run-memory /own/shell /own/script");
  EXPECT_THAT(text, HasSubstr("right: 0\n")) << "no attack took place";
  EXPECT_THAT(text, Not(HasSubstr("of the user")));
}

TEST_F(Sandbox, IsNotLeftByAProgramOfTheSystem) {
  expectUpdatable();
  expectSandboxed();
  const auto text = inside("--session run /bin/sh /own/script");
  EXPECT_THAT(text, HasSubstr("right: 0\n")) << "no attack took place";
  EXPECT_THAT(text, Not(HasSubstr("of the user")));
}

}  // namespace
}  // namespace tests::tool
