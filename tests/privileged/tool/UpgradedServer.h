#pragma once
// For tests: an application with a Library Server, and a service manager of the test's own that runs the old version of it.
#include <optional>

#include "protocol/ToolProtocol.h"
#include "tests/privileged/tool/ToolRun.h"

namespace tests::tool {

inline const std::string keltosProgram = "/Library/Application Support/Kelto/KeltoLibraryServer";
inline const std::string keepsRunning = "exec sleep 1000";

// A Library Server of one version: a program that notes its version in /run/ran and does `action`, its definition and its
// unit.
struct Server {
  std::string version;
  std::string action = keepsRunning;
  std::string type = "simple";
  std::string path = keltosProgram;
  std::string restart = "Restart=no";  // after a crash; else the job waits until the manager has tried in vain
  [[nodiscard]] std::string program() const {
    return "#!/bin/sh\n# version " + version + "\necho " + version + " >> /run/ran\n" + action + "\n";
  }
  [[nodiscard]] std::string definition() const { return "definition " + version + "\n"; }
  [[nodiscard]] std::string unit() const {
    return "[Unit]\nDefaultDependencies=no\n[Service]\nEnvironment=KELTO_VERSION=" + version + "\nType=" + type +
           "\nTimeoutStopSec=2\n" + restart + "\nExecStart=\"" + path + "\"\n";
  }
};

class UpgradeServer : public ToolTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root";
    for (const char* name : {"box", "Library", "units"}) fs::create_directory(folder / name);
    install(program, {.version = "1"}, definition, unit);
    for (const char* name : {"test", "sysinit", "basic", "shutdown"})
      write(folder / "units" / (std::string(name) + ".target"), "[Unit]\nDefaultDependencies=no\n");
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
    install(offered / program.filename(), server, offered / (serverLabel + ".plist"), offered / (serverLabel + ".service"));
  }

  struct Upgrade {
    Answer answer;
    bool isRunning = false;
    bool isSameProcess = false;  // as before the job
    std::string ran;             // the version of each server that was started, in order
  };
  // Starts the installed server, runs the tool and looks what runs afterwards. Empty when this machine cannot.
  std::optional<Upgrade> upgrade(const std::string& afterwards = "true", const std::string& before = "") {
    const InstructionArchive::Instructions instructions{{protocol::commandKey, protocol::upgradeServerCommand},
                                                        {protocol::filePathKey, app},
                                                        {protocol::resultPathKey, result}};
    write(folder / "instruction", framed(InstructionArchive::archivedData(instructions)));
    const auto show = "systemctl show --property=MainPID --value " + serverLabel + ".service";
    write(folder / "job.sh", "cd '" + folder.string() + "'\n" + before + "systemctl start " + serverLabel + "\n" + show +
                                 " > before\n" + toolProgram + " < instruction > answer\necho $? > exit\n" + show +
                                 " > after\nsystemctl is-active " + serverLabel + " > active\ncp /run/ran ran\n" +
                                 afterwards + "\n");
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
    EXPECT_THAT(read(unit), ::testing::HasSubstr("\nEnvironment=KELTO_VERSION=" + version + "\n"));
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

  std::string serverLabel = "com.kelto.KeltoLibraryServer";
  fs::path app = folder / "App.app";
  fs::path offered = app / "Contents/Resources/LibraryServer";
  fs::path program = folder / keltosProgram.substr(1);
  fs::path definition = folder / "Library/LaunchDaemons" / (serverLabel + ".plist");
  fs::path unit = folder / "units" / (serverLabel + ".service");
};

}  // namespace tests::tool
