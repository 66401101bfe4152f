// The right to update must not be the right to run anything: under a rule that allows updates without a password, a program
// of the user's own choice does not run as root.
#include "tests/platform/linux/themes/BrokerGround.h"

namespace tests::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

class AnyProgram : public BrokerGround {
 protected:
  void SetUp() override {
    BrokerGround::SetUp();
    if (IsSkipped()) return;
    own = programFor(home() / "probe", KELTO_BIN_DIR "/authorization_probe");
    giveToUser(own);
    write(folder / "script", "id -u; exit\n");
  }
  // The rule does what it is for: an update of root's bundle by the installed tool.
  std::string update() {
    app = rootsBundle(folder / "apps/App.app", "1");
    return as(invokingUser,
              "--system run " + installed.string() + " " + instructionFor(app, download("App.app", "2")).string()) +
           "\n";
  }
  void expectUpdated(const std::string& text) {
    EXPECT_EQ(read(result), protocol::successVerdict) << text;
    EXPECT_EQ(versionOf(app), "version 2") << text;
  }
  std::string handOver(const std::string& what) const {
    return "echo; echo attack; " + as(invokingUser, "--system " + what) + "\n";
  }
  // The output of the attack, for which the right was given.
  static std::string attackOf(const std::string& text) {
    const auto at = text.find("\nattack\n");
    const auto said = at == std::string::npos ? "" : text.substr(at);
    EXPECT_THAT(said, HasSubstr("right: 0\n")) << "no attack took place: " << text;
    return said;
  }

  fs::path own;
  fs::path app;
};

TEST_F(AnyProgram, OfTheUsersOwnDoesNotRunAsRoot) {
  const auto text = onSystemBus(update() + handOver("run " + own.string()));
  expectUpdated(text);
  EXPECT_THAT(attackOf(text), Not(HasSubstr("user 0 0\n")));
}

TEST_F(AnyProgram, InMemoryDoesNotRunAsRoot) {
  const auto text = onSystemBus(update() + handOver("run-memory " + own.string()));
  expectUpdated(text);
  EXPECT_THAT(attackOf(text), Not(HasSubstr("user 0 0\n")));
}

TEST_F(AnyProgram, OfRootsButNoToolDoesNotRunAsRoot) {
  const auto text = onSystemBus(update() + handOver("run /bin/sh " + (folder / "script").string()));
  expectUpdated(text);
  EXPECT_THAT(attackOf(text), Not(HasSubstr("runs\n0\n")));
}

// The tool's own name, in a mount namespace of the caller's in which something else has it.
TEST_F(AnyProgram, UnderTheNameOfTheToolDoesNotRunAsRoot) {
  const auto inside = "mount --bind /bin/sh " + installed.string() + "; " +
                      as(invokingUser, "--system run " + installed.string() + " " + (folder / "script").string());
  write(folder / "inside.sh", inside);
  const auto text = onSystemBus(update() + "echo; echo attack; unshare -m bash " + (folder / "inside.sh").string() + "\n");
  expectUpdated(text);
  EXPECT_THAT(attackOf(text), Not(HasSubstr("runs\n0\n")));
}

}  // namespace
}  // namespace tests::tool
