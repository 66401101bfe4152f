#pragma once
// For tests of attacks on the broker: a system bus with the real policy service, an administrator's rule that allows
// updates without a password, and the tool where the rule for tools expects it. In a mount namespace of the test's own.
#include "protocol/Broker.h"
#include "protocol/PolicyFile.h"
#include "tests/privileged/tool/themes/AttackGround.h"
#include "tests/support/CommandLine.h"

namespace tests::tool {

class BrokerGround : public AttackGround {
 protected:
  void SetUp() override {
    AttackGround::SetUp();
    if (IsSkipped()) return;
    if (!fs::exists("/usr/lib/polkit-1/polkitd")) GTEST_SKIP() << "the policy service is not installed";
    volume("/opt");
    installed = programFor("/opt/kelto/assistantTool", tests::testedPrograms() / "assistantTool");
    attacker = programFor(folder / "bin/attacker", KELTO_BIN_DIR "/authorization_attacker");
    listFolder(installed.parent_path());
    writeRule();
    // The bus lets nobody in whom the machine does not know.
    std::ofstream(folder / "passwd", std::ios::app) << "other:x:" << otherAccount << ":" << otherAccount << "::/:/bin/sh\n";
  }
  static fs::path programFor(const fs::path& place, const fs::path& from) {
    fs::create_directories(place.parent_path());
    fs::copy_file(from, place);
    fs::permissions(place, fs::perms(0755));
    return place;
  }
  // The output of the shell line on a system bus of its own, in a copy of the test's mounts.
  std::string onSystemBus(const std::string& line) const {
    write(folder / "line.sh", "mount --bind " + (folder / "rules").string() + " /etc/polkit-1/rules.d\n" + line);
    return tests::runCommandLine(
               "exec setpriv --pdeathsig KILL -- " KELTO_SOURCE_DIR "/tests/support/system-bus.sh --challenge --build " +
               (tests::testedPrograms() / "..").string() + " -- bash " + (folder / "line.sh").string() + " 2>&1")
        .output;
  }
  // The attacker's program as that account.
  std::string as(uid_t account, const std::string& arguments) const {
    const auto number = std::to_string(account);
    return "setpriv --reuid " + number + " --regid " + number + " --clear-groups " + attacker.string() + " " + arguments;
  }
  // The instruction of an update, in a file.
  fs::path instructionFor(const fs::path& app, const fs::path& source) const {
    write(folder / "instruction", bytesOf({{protocol::commandKey, protocol::replaceItemCommand},
                                           {protocol::sourcePathKey, source},
                                           {protocol::destinationPathKey, app}}));
    return folder / "instruction";
  }

  fs::path installed;  // the tool, where a package would have put it
  fs::path attacker;

 private:
  void writeRule() const {
    write(folder / "rules/10-updates.rules",
          "polkit.addRule(function(action, subject) {\n"
          "  if (action.id == '" +
              std::string(protocol::adminAction) +
              "' && subject.user == 'tester') return polkit.Result.YES;\n"
              "});\n");
  }
  // Programs in that folder are the system's own tools, for both buses.
  void listFolder(const fs::path& tools) {
    ASSERT_TRUE(overlay("/etc", "/etc")) << "no overlay of /etc: " << std::strerror(errno);
    // The overlay hides what was bound in /etc before.
    bind(folder / "passwd", "/etc/passwd");
    write(protocol::policyFilePath, "tools = " + tools.string() + "\nsession-tools = " + tools.string() + "\n");
  }
};

}  // namespace tests::tool
