#include <optional>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/ToolRun.h"

namespace ToolTests {
namespace {

const std::string Label = "com.kelto.KeltoLibraryServer";
const std::string Running = "exec sleep 1000";

// A Library Server of one version: a program that notes its version in /run/ran and does `action`, its definition and its
// unit.
struct Server {
  std::string version;
  std::string action = Running;
  std::string type = "simple";
  [[nodiscard]] std::string program() const {
    return "#!/bin/sh\n# version " + version + "\necho " + version + " >> /run/ran\n" + action + "\n";
  }
  [[nodiscard]] std::string definition() const { return "definition " + version + "\n"; }
  [[nodiscard]] std::string unit() const {
    return "# version " + version + "\n[Unit]\nDefaultDependencies=no\n[Service]\nType=" + type +
           "\nTimeoutStopSec=2\nExecStart=\"/Library/Application Support/Kelto/KeltoLibraryServer\"\n";
  }
};

class UpgradeServer : public ToolTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    for (const char* name : {"box", "Library", "units"}) fs::create_directory(folder / name);
    install(program, {.version = "1"}, definition, unit);
    write(folder / "units/test.target", "[Unit]\nDefaultDependencies=no\n");
    makeBundle(app, "2");
    offer({.version = "2"});
  }
  static void install(const fs::path& program, const Server& server, const fs::path& definition, const fs::path& unit) {
    write(program, server.program());
    fs::permissions(program, fs::perms(0755));
    write(definition, server.definition());
    write(unit, server.unit());
  }
  void offer(const Server& server) {
    install(offered / "KeltoLibraryServer", server, offered / (Label + ".plist"), offered / (Label + ".service"));
  }

  struct Upgrade {
    Answer answer;
    bool isRunning = false;
    bool isSameProcess = false;  // as before the job
    std::string ran;             // the version of each server that was started, in order
  };
  // Starts the installed server, runs the tool and looks what runs afterwards. Empty when this machine cannot.
  std::optional<Upgrade> upgrade(const std::string& afterwards = "true") {
    const InstructionArchive::Instructions instructions{{protocol::commandKey, protocol::upgradeServerCommand},
                                                        {protocol::filePathKey, app},
                                                        {protocol::resultPathKey, result}};
    write(folder / "instruction", framed(InstructionArchive::archivedData(instructions)));
    const auto show = "systemctl show --property=MainPID --value " + Label + ".service";
    write(folder / "job.sh", "cd '" + folder.string() + "'\nsystemctl start " + Label + "\n" + show + " > before\n" + Tool +
                                 " < instruction > answer\necho $? > exit\n" + show + " > after\nsystemctl is-active " +
                                 Label + " > active\ncp /run/ran ran\n" + afterwards + "\n");
    const std::string box = KELTO_SOURCE_DIR "/tests/privileged/tool/systemd-box.sh";
    std::system(("sh '" + box + "' '" + folder.string() + "'").c_str());
    if (!isThere(folder / "status")) return std::nullopt;
    Upgrade upgrade;
    upgrade.answer = {.text = read(folder / "answer"), .status = std::stoi(read(folder / "exit"))};
    upgrade.isRunning = read(folder / "active") == "active\n" && read(folder / "after") != "0\n";
    upgrade.isSameProcess = read(folder / "after") == read(folder / "before");
    upgrade.ran = read(folder / "ran");
    return upgrade;
  }
  void expectInstalled(const std::string& version) {
    EXPECT_THAT(read(program), ::testing::HasSubstr("version " + version));
    EXPECT_THAT(read(definition), ::testing::HasSubstr("definition " + version));
    EXPECT_THAT(read(unit), ::testing::HasSubstr("version " + version));
    EXPECT_EQ(statusOf(program).st_mode & ALLPERMS, 0755U);
    EXPECT_EQ(statusOf(unit).st_mode & ALLPERMS, 0644U);
  }
  // The new server does not do: the old one runs again, and the job failed.
  void expectOldServerBack(const std::optional<Upgrade>& upgrade) {
    if (!upgrade) GTEST_SKIP() << "no service manager can be run here";
    expectRefusal(upgrade->answer, "the old one runs again");
    EXPECT_TRUE(upgrade->isRunning);
    EXPECT_TRUE(upgrade->ran.ends_with("1\n")) << upgrade->ran;
    expectInstalled("1");
  }
  // The job is refused before anything happens to the server.
  void expectUntouched(const std::optional<Upgrade>& upgrade, const std::string& reason) {
    if (!upgrade) GTEST_SKIP() << "no service manager can be run here";
    expectRefusal(upgrade->answer, reason);
    EXPECT_TRUE(upgrade->isRunning);
    EXPECT_TRUE(upgrade->isSameProcess);
    EXPECT_EQ(upgrade->ran, "1\n");
    expectInstalled("1");
  }

  fs::path app = folder / "App.app";
  fs::path offered = app / "Contents/Resources/LibraryServer";
  fs::path program = folder / "Library/Application Support/Kelto/KeltoLibraryServer";
  fs::path definition = folder / "Library/LaunchDaemons" / (Label + ".plist");
  fs::path unit = folder / "units" / (Label + ".service");
};

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

TEST_F(UpgradeServer, GoesBackWhenTheNewServerCrashesAMomentLater) {
  offer({.version = "2", .action = "sleep 0.2; exit 1"});
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewServerIsNeverReady) {
  offer({.version = "2", .action = Running, .type = "notify"});
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewUnitIsBroken) {
  write(offered / (Label + ".service"), "[Service]\nType=nonsense\n");
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewUnitIsNotText) {
  write(offered / (Label + ".service"), std::string("\x7f\0\xff[Service\n\0", 14) + std::string(5000, '\xfe'));
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewUnitStartsNothing) {
  write(offered / (Label + ".service"), "[Unit]\nDefaultDependencies=no\n[Service]\nType=simple\n");
  expectOldServerBack(upgrade());
}

TEST_F(UpgradeServer, GoesBackWhenTheNewUnitIsEmpty) {
  write(offered / (Label + ".service"), "");
  expectOldServerBack(upgrade());
}

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
  fs::remove(offered / (Label + ".plist"));
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWithoutAUnitInTheBundle) {
  fs::remove(offered / (Label + ".service"));
  expectUntouched(upgrade(), "cannot open");
}

TEST_F(UpgradeServer, IsRefusedWhenTheUnitIsAFolder) {
  fs::remove(offered / (Label + ".service"));
  fs::create_directory(offered / (Label + ".service"));
  expectUntouched(upgrade(), "not a file");
}

TEST_F(UpgradeServer, IsRefusedWhenTheUnitIsALinkToAnother) {
  fs::rename(offered / (Label + ".service"), offered / "other.service");
  fs::create_symlink("other.service", offered / (Label + ".service"));
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

}  // namespace
}  // namespace ToolTests
