#include <optional>

#include "privileged/tool/ServerUnit.h"
#include "protocol/PolicyFile.h"
#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/Fidelity.h"
#include "tests/privileged/tool/SignedBundle.h"
#include "tests/privileged/tool/UpgradedServer.h"

namespace tests::tool {
namespace {

TEST_F(UpgradeServer, RunsTheNewServer) {
  const auto done = upgrade();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  EXPECT_TRUE(done->isRunning);
  EXPECT_FALSE(done->isSameProcess);
  EXPECT_EQ(done->ran, "1\n2\n");
  expectInstalled("2");
}

TEST_F(UpgradeServer, InstallsADefinitionThatWasMissing) {
  fs::remove(definition);
  const auto done = upgrade();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  expectInstalled("2");
}

TEST_F(UpgradeServer, GoesBackWhenTheNewServerCrashesAtOnce) {
  offer({.version = "2", .action = "exit 1"});
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewServerCrashesAgainAndAgain) {
  offer({.version = "2", .action = "exit 1", .restart = "Restart=on-failure\nRestartSec=0"});
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewServerCrashesAMomentLater) {
  offer({.version = "2", .action = "sleep 0.2; exit 1"});
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewServerIsNeverReady) {
  offer({.version = "2", .action = keepsRunning, .type = "notify", .restart = "TimeoutStartSec=1\nRestart=no"});
  expectOldServerBack(upgrade());
}

// The definition that the bundle brings is data: the server runs by the template, whatever it says.
class UnitOfBundle : public UpgradeServer, public ::testing::WithParamInterface<const char*> {};
TEST_P(UnitOfBundle, HasNoEffectBeyondThePermittedValues) {
  write(offered / (serverLabel + ".service"), GetParam());
  const auto done =
      upgrade("ls /run/evil > evil 2>&1; systemctl show --property=User,ExecStartPre " + serverLabel + " > shown");
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  EXPECT_EQ(done->ran, "1\n2\n");
  EXPECT_EQ(read(unit), AssistantTool::serverUnitFor("", {}));
  EXPECT_THAT(read(folder / "evil"), ::testing::HasSubstr("No such file"));
  EXPECT_EQ(read(folder / "shown"), "User=\n");
}
INSTANTIATE_TEST_SUITE_P(
    Units, UnitOfBundle,
    ::testing::Values("", "[Service]\nType=nonsense\n", "\x7f\xff[Service\n\xfe\xfe",
                      "[Service]\nExecStart=/bin/touch /run/evil\nExecStartPre=/bin/touch /run/evil\nUser=nobody\n",
                      "[Service]\nExecStopPost=+/bin/touch /run/evil\nEnvironment=LD_PRELOAD=/evil.so\nRootDirectory=/x\n",
                      "[Unit]\nWants=evil.service\nOnSuccess=evil.service\n[Service]\nType=simple\\\nUser=nobody\n"));

TEST_F(UpgradeServer, GoesBackWhenTheNewProgramIsNotAProgram) {
  write(offered / "KeltoLibraryServer", std::string("\x7f"
                                                    "ELF\0 and nothing after it",
                                                    26));
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewServerHangsAndIgnoresThatItMustEnd) {
  offer({.version = "2", .action = "trap '' TERM INT HUP; while :; do sleep 1; done", .type = "notify"});
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, RemovesADefinitionThatWasNotThereBeforeWhenItGoesBack) {
  fs::remove(definition);
  offer({.version = "2", .action = "exit 1"});
  const auto done = upgrade();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectRefusal(done->answer, "the old one runs again");
  EXPECT_FALSE(isThere(definition));
}

TEST_F(UpgradeServer, KillsAnOldServerThatDoesNotEnd) {
  install(program, {.version = "1", .action = "trap '' TERM; while :; do sleep 1; done"}, definition, unit);
  const auto done = upgrade();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  expectInstalled("2");
}

TEST_F(UpgradeServer, IsRefusedWithoutAServerInTheBundle) {
  fs::remove_all(offered);
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWithoutAProgramInTheBundle) {
  fs::remove(offered / "KeltoLibraryServer");
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWithoutADefinitionInTheBundle) {
  fs::remove(offered / (serverLabel + ".plist"));
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWithoutAUnitInTheBundle) {
  fs::remove(offered / (serverLabel + ".service"));
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWhenTheUnitIsAFolder) {
  fs::remove(offered / (serverLabel + ".service"));
  fs::create_directory(offered / (serverLabel + ".service"));
  expectUntouched(upgrade(), "not a file");
}

TEST_F(UpgradeServer, IsRefusedWhenTheUnitIsALinkToAnother) {
  fs::rename(offered / (serverLabel + ".service"), offered / "other.service");
  fs::create_symlink("other.service", offered / (serverLabel + ".service"));
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWhenTheProgramIsNotExecutable) {
  fs::permissions(offered / "KeltoLibraryServer", fs::perms(0644));
  expectUntouched(upgrade(), "not executable");
}

TEST_F(UpgradeServer, IsRefusedWhenOthersCanWriteTheProgram) {
  fs::permissions(offered / "KeltoLibraryServer", fs::perms(0777));
  expectUntouched(upgrade(), "others can write");
}

TEST_F(UpgradeServer, IsRefusedWhenTheProgramBelongsToAThirdUser) {
  ASSERT_EQ(::chown((offered / "KeltoLibraryServer").c_str(), 65534, 65534), 0);
  expectUntouched(upgrade(), "others can write");
}

TEST_F(UpgradeServer, IsRefusedWhenTheProgramIsAPipe) {
  fs::remove(offered / "KeltoLibraryServer");
  ASSERT_EQ(::mkfifo((offered / "KeltoLibraryServer").c_str(), 0755), 0);
  expectUntouched(upgrade(), "not a file");
}

// The server's files are writable by a group, as they are under the umask 002.
class GroupWritableServer : public UpgradeServer {
 protected:
  // The invoking user's number, which is their group's too where groups are private.
  static constexpr uid_t user = 12345;

  void SetUp() override {
    UpgradeServer::SetUp();
    if (IsSkipped()) return;
    for (const auto& file : fs::directory_iterator(offered)) {
      ASSERT_EQ(::chown(file.path().c_str(), user, user), 0);
      fs::permissions(file.path(), fs::perms::group_write, fs::perm_options::add);
    }
    fs::permissions(folder, fs::perms(0755));
  }
  // On a machine with these accounts and groups besides its own.
  std::optional<Upgrade> upgradeFor(const std::string& accounts, const std::string& groups) {
    write(folder / "accounts", accounts);
    write(folder / "groups", groups);
    return upgrade("true", std::string("export ") + protocol::invokingUserVariable + "=" + std::to_string(user) +
                               "\nchown " + std::to_string(user) +
                               " answers answers/result\ncat accounts >> /etc/passwd\ncat groups >> /etc/group\n");
  }

  const std::string alice = "alice:x:12345:12345::/home/alice:/bin/sh\n";
  const std::string aliceAlone = "alice:x:12345:\n";
};

TEST_F(GroupWritableServer, IsTakenWhenTheGroupIsTheUsersAlone) {
  const auto done = upgradeFor(alice, "alice:x:12345:alice\n");
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  expectInstalled("2");
}

TEST_F(GroupWritableServer, IsRefusedWhenTheGroupHasAnotherMember) {
  expectUntouched(upgradeFor(alice, "alice:x:12345:alice,mallory\n"), "others can write");
}

TEST_F(GroupWritableServer, IsRefusedWhenTheGroupIsAnotherAccountsFirst) {
  expectUntouched(upgradeFor(alice + "mallory:x:12347:12345::/home/mallory:/bin/sh\n", aliceAlone), "others can write");
}

// A machine need not list all of its accounts: others may be in a group that is not named after the user.
TEST_F(GroupWritableServer, IsRefusedWhenTheGroupHasAnotherName) {
  expectUntouched(upgradeFor(alice, "users-of-here:x:12345:\n"), "others can write");
}

TEST_F(GroupWritableServer, IsRefusedWhenAnAccessListGivesTheRightToAnother) {
  const auto program = offered / "KeltoLibraryServer";
  setAttribute(program, "system.posix_acl_access", accessListFor(user + 2, ACL_READ | ACL_WRITE));
  fs::permissions(program, fs::perms::owner_exec, fs::perm_options::add);
  EXPECT_TRUE((statusOf(program).st_mode & S_IWGRP) != 0);
  expectUntouched(upgradeFor(alice, aliceAlone), "others can write");
}

TEST_F(GroupWritableServer, IsRefusedWhenEverybodyCanWriteItToo) {
  fs::permissions(offered / "KeltoLibraryServer", fs::perms::others_write, fs::perm_options::add);
  expectUntouched(upgradeFor(alice, aliceAlone), "others can write");
}

// Under an administrator's keys.
class SignedUpgrade : public UpgradeServer {
 protected:
  void SetUp() override {
    UpgradeServer::SetUp();
    if (IsSkipped()) return;
    fs::remove(app / "Contents/Link");
    makeVersion("2.0");
  }
  void makeVersion(const std::string& version) {
    writeWithMode(app / "Contents/Info.plist", informationList("com.example.App", version));
    sign();
  }
  void sign() {
    ASSERT_TRUE(runs(KELTO_BIN_DIR "/kelto-manifest " + shellWord(app)));
    publisher.sign(app / "Contents/_Signature/manifest");
  }
  // With the publisher's key in the trust folder of the box.
  std::optional<Upgrade> upgradeWithKeys(const std::string& policy = "") {
    write(folder / "policy", policy);
    write(publisherKey, publisher.file());
    for (const char* left : {"box", "status"}) fs::remove_all(folder / left);
    fs::create_directory(folder / "box");
    return upgrade("true",
                   "mkdir -p /etc/kelto/trust.d\nchmod 755 /etc/kelto /etc/kelto/trust.d\n"
                   "install -m 644 '" +
                       publisherKey +
                       "' /etc/kelto/trust.d/publisher.pub\n"
                       "install -m 644 policy " +
                       std::string(protocol::policyFilePath) + "\n");
  }
  tests::TemporaryFolder keys{};
  KeyPair publisher{keys, "publisher"};
  const std::string publisherKey = folder / "publisher.pub";
};

TEST_F(SignedUpgrade, TakesAServerAsItsPublisherSignedIt) {
  const auto done = upgradeWithKeys();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectSuccess(done->answer);
  expectInstalled("2");
  EXPECT_THAT(read(unit), ::testing::HasSubstr("X-KeltoBundle=com.example.App\nX-KeltoVersion=2.0\nX-KeltoSigned=yes\n"));
}

// A user with the first right may put any bundle into a listed folder, and root would run the server in it.
TEST_F(SignedUpgrade, IsRefusedToAUserBoundToLocationsWithoutATrustedKey) {
  write(folder / "policy", "locations = " + folder.string() + "\n");
  const auto asUser = std::string("export ") + protocol::invokingUserVariable +
                      "=12345\nchown 12345 answers answers/result\nmkdir -m 755 /etc/kelto\ninstall -m 644 policy ";
  expectUntouched(upgrade("true", asUser + protocol::policyFilePath + "\n"), "is not signed, and the key");
}

TEST_F(SignedUpgrade, RefusesABundleWithoutASignature) {
  fs::remove_all(app / "Contents/_Signature");
  expectUntouched(upgradeWithKeys(), "is not signed");
}

TEST_F(SignedUpgrade, RefusesAServerThatWasChangedAfterItWasSigned) {
  for (const auto& name : {std::string("KeltoLibraryServer"), serverLabel + ".plist", serverLabel + ".service"}) {
    offer({.version = "2"});
    sign();
    std::ofstream(offered / name, std::ios::app) << "# changed\n";
    expectUntouched(upgradeWithKeys(), name);
  }
}

TEST_F(SignedUpgrade, RefusesAKeyThatIsNotTrusted) {
  const KeyPair other{keys, "other"};
  other.sign(app / "Contents/_Signature/manifest");
  expectUntouched(upgradeWithKeys(), "is not trusted");
}

TEST_F(SignedUpgrade, RefusesALowerVersionThanTheServersUnlessThePolicyAllowsIt) {
  write(unit, AssistantTool::serverUnitFor(
                  read(unit), {.identifier = "com.example.App", .version = "3.0", .isSigned = true, .key = {}}));
  expectUntouched(upgradeWithKeys(), "a downgrade is not allowed");
  const auto done = upgradeWithKeys("downgrades = allow\n");
  if (!done) return;
  expectSuccess(done->answer);
  expectInstalled("2");
}

// A link tells nothing about the server that runs.
TEST_F(SignedUpgrade, ReadsNoInstalledUnitThroughALink) {
  const auto elsewhere = unit.parent_path() / "elsewhere.service";
  fs::rename(unit, elsewhere);
  fs::create_symlink(elsewhere.filename(), unit);
  write(elsewhere,
        AssistantTool::serverUnitFor(read(elsewhere),
                                     {.identifier = "com.example.Other", .version = "1.0", .isSigned = true, .key = {}}));
  const auto done = upgradeWithKeys();
  if (!done) GTEST_SKIP() << "no service manager can be run here";
  expectRefusal(done->answer, "not a file");
  EXPECT_EQ(done->ran, "1\n");
}

TEST_F(SignedUpgrade, RefusesAnotherBundleThanTheServers) {
  write(unit, AssistantTool::serverUnitFor(
                  read(unit), {.identifier = "com.example.Other", .version = "1.0", .isSigned = true, .key = {}}));
  expectUntouched(upgradeWithKeys(), "another bundle is installed");
}

}  // namespace
}  // namespace tests::tool
