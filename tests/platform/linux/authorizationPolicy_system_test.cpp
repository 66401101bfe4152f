#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <string>
#include <vector>

#include "protocol/Broker.h"
#include "protocol/PolicyFile.h"
#include "protocol/ToolProtocol.h"

namespace {

using testing::HasSubstr;
using testing::Not;

// Why no namespace with a system bus can be made here, or nullptr.
const char* obstacle() {
  if (::geteuid() != 0) return "needs root for a mount namespace with a system bus";
  const pid_t child = ::fork();
  if (child == 0) ::_exit(::unshare(CLONE_NEWNS | CLONE_NEWPID) == 0 ? 0 : 1);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (status != 0) return "namespaces are not allowed here";
  if (!std::filesystem::exists("/usr/lib/polkit-1/polkitd")) return "the policy service is not installed";
  return nullptr;
}

// Runs commands as an ordinary user on a system bus with the real policy service; each run has a namespace of its own.
class AuthorizationPolicy : public testing::Test {
 protected:
  void SetUp() override {
    if (const char* why = obstacle()) GTEST_SKIP() << why;
    std::string pattern = (std::filesystem::temp_directory_path() / "kelto-policy-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    folder = pattern;
    // Another user must reach the programs, wherever the project lies.
    ASSERT_EQ(::chmod(pattern.c_str(), 0755), 0);
    for (const char* program : {"authorization_client", "authorization_probe"}) {
      std::filesystem::copy_file(std::filesystem::path(KELTO_BIN_DIR) / program, folder / program);
      ASSERT_EQ(::chmod((folder / program).c_str(), 0755), 0);
    }
    const std::filesystem::path agentSource = KELTO_SOURCE_DIR "/tests/support/authentication-agent.py";
    std::filesystem::copy_file(agentSource, folder / "agent");
    ASSERT_EQ(::chmod((folder / "agent").c_str(), 0755), 0);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // The output of the shell line `command` and of the broker.
  std::string output(const std::string& mode, const std::string& command) const {
    const std::string line =
        "exec 2>&1; exec setpriv --pdeathsig KILL -- " KELTO_SOURCE_DIR "/tests/support/system-bus.sh " + mode +
        " --tools " + folder.string() + " --build " KELTO_BIN_DIR "/.. -- bash -c '" + command + "'";
    FILE* pipe = ::popen(line.c_str(), "r");
    if (pipe == nullptr) return "no pipe";
    std::string text;
    std::array<char, 4096> chunk{};
    while (const std::size_t got = std::fread(chunk.data(), 1, chunk.size(), pipe)) text.append(chunk.data(), got);
    ::pclose(pipe);
    return text;
  }
  std::string client(int user = 65534) const {
    return "setpriv --reuid " + std::to_string(user) + " --clear-groups " + (folder / "authorization_client").string() +
           " ";
  }
  // With an authentication agent of the user's own for the client.
  std::string askedClient(const std::string& agent, const std::string& arguments) const {
    return "setpriv --reuid 65534 --clear-groups " + (folder / "agent").string() + " " + agent + " secret -- " +
           (folder / "authorization_client").string() + " wait " + arguments;
  }

  std::filesystem::path folder;
};

TEST_F(AuthorizationPolicy, GrantsWithoutInteractionWhatTheRulesGive) {
  EXPECT_THAT(output("--grant", client() + "create copy 18"), HasSubstr("copy answers 0\n"));
}

TEST_F(AuthorizationPolicy, RunsTheToolAsRootAndSaysForWhom) {
  const auto text = output("--grant", client() + "create copy 18 execute " + (folder / "authorization_probe").string());
  EXPECT_THAT(text, HasSubstr("user 0 0\n"));
  EXPECT_THAT(text, HasSubstr(std::string("environment ") + protocol::invokingUserVariable + "=65534\n"));
  EXPECT_THAT(text, HasSubstr("execute answers 0\n"));
  EXPECT_THAT(text, HasSubstr("authorizationd: runs a tool for user 65534\n"));
}

TEST_F(AuthorizationPolicy, NeedsAPersonWithoutInteraction) {
  const auto text = output("--challenge", client() + "create copy 18");
  EXPECT_THAT(text, HasSubstr("copy answers -60007\n"));
  EXPECT_THAT(text, HasSubstr(std::string("authorizationd: refused ") + protocol::brokerMethod::copyRights.name +
                              " of user 65534"));
}

TEST_F(AuthorizationPolicy, NeedsAPersonAlsoWhenThereIsNoAgentToAskOne) {
  EXPECT_THAT(output("--challenge", client() + "create copy 19"), HasSubstr("copy answers -60007\n"));
}

TEST_F(AuthorizationPolicy, DeniesWhatTheRulesRefuse) {
  const auto text = output("--deny", client() + "create copy 19 execute " + (folder / "authorization_probe").string());
  EXPECT_THAT(text, HasSubstr("copy answers -60005\n"));
  EXPECT_THAT(text, HasSubstr("execute answers -60005\n"));
  EXPECT_THAT(text, HasSubstr(std::string("authorizationd: refused ") + protocol::brokerMethod::executeWithPrivileges.name +
                              " of user 65534"));
}

TEST_F(AuthorizationPolicy, AnActionThatIsNotRegisteredIsAnErrorAndNotANo) {
  const auto text = output("--unregistered", client() + "create copy 18");
  EXPECT_THAT(text, HasSubstr("copy answers -60008\n"));
  EXPECT_THAT(text, HasSubstr("authorizationd: the policy service failed: "));
}

TEST_F(AuthorizationPolicy, TheRightFollowsTheFormToAnotherProcessOfTheUser) {
  const auto text = output("--grant", client() + "create copy 18 export hold | " + client() + "import copy 0 free 8");
  EXPECT_THAT(text, HasSubstr("import answers 0\ncopy answers 0\nfree answers 0\n"));
}

TEST_F(AuthorizationPolicy, AFormIsOfNoUseToAnotherUser) {
  const auto text = output("--grant", client() + "create copy 18 export hold | " + client(1) + "import");
  EXPECT_THAT(text, HasSubstr("import answers -60005\n"));
}

TEST_F(AuthorizationPolicy, AFormIsOfNoUseToRootEither) {
  const auto text = output("--grant", client() + "create copy 18 export hold | " + client(0) + "import");
  EXPECT_THAT(text, HasSubstr("import answers -60005\n"));
}

TEST_F(AuthorizationPolicy, TheBrokerOfAUserServesNobodyElse) {
  const std::string bus = "unix:path=/run/dbus/system_bus_socket";
  const auto text =
      output("--grant", "DBUS_SESSION_BUS_ADDRESS=" + bus + " " KELTO_BIN_DIR "/authorizationd --session & " +
                            "timeout 20 bash -c \"until dbus-send --system --print-reply --dest=org.freedesktop.DBus / "
                            "org.freedesktop.DBus.GetNameOwner string:" +
                            std::string(protocol::brokerBusName) +
                            " "
                            ">/dev/null 2>&1; do sleep 0.01; done\"; " +
                            client() + "create; " + client(0) + "create copy 18");
  EXPECT_THAT(text, HasSubstr("create answers -60005\n"));
  EXPECT_THAT(text, HasSubstr("authorizationd: refused Create of user 65534"));
  EXPECT_THAT(text, HasSubstr("copy answers 0\n"));
}

// The rule that docs/ shows, for a group of which the account is a member.
TEST_F(AuthorizationPolicy, UnderTheRuleForUpdatesWithoutAPasswordTheToolRunsAndTheCallersOwnProgramDoesNot) {
  std::ifstream page(KELTO_SOURCE_DIR "/docs/updates-without-password.md");
  const std::string text((std::istreambuf_iterator<char>(page)), {});
  const auto begin = text.find("polkit.addRule");
  ASSERT_NE(begin, std::string::npos);
  std::string rule = text.substr(begin, text.find("```", begin) - begin);
  const auto group = rule.find("\"updaters\"");
  ASSERT_NE(group, std::string::npos);
  std::ofstream(folder / "rule") << rule.replace(group, 10, "\"nogroup\"");
  std::filesystem::create_directory(folder / "own");
  std::filesystem::copy_file(folder / "authorization_probe", folder / "own/authorization_probe");
  const std::string as = "setpriv --reuid 65534 --regid 65534 --clear-groups " + (folder / "authorization_client").string();
  const auto said =
      output("--challenge", "cp " + (folder / "rule").string() +
                                " /run/kelto/rules/10-updates.rules; mount -o "
                                "remount /etc/polkit-1/rules.d; " +
                                as + " create copy 18 execute " + (folder / "authorization_probe").string() + " execute " +
                                (folder / "own/authorization_probe").string() + " execute /bin/sh");
  EXPECT_THAT(said, HasSubstr("copy answers 0\n"));
  EXPECT_THAT(said, HasSubstr("execute answers 0\n"));
  const std::regex answer("execute answers (-?[0-9]+)\n");
  std::vector<std::string> answers;
  for (std::sregex_iterator each(said.begin(), said.end(), answer), end; each != end; ++each) answers.push_back((*each)[1]);
  EXPECT_THAT(answers, testing::ElementsAre("0", "-60005", "-60005")) << said;
  EXPECT_THAT(said, HasSubstr("the program lies in no folder for tools (" + (folder / "own/authorization_probe").string()));
}

TEST_F(AuthorizationPolicy, AnyOtherProgramRunsOnlyAfterAnAdministratorAllowedJustThat) {
  std::filesystem::create_directory(folder / "own");
  std::filesystem::copy_file(folder / "authorization_probe", folder / "own/authorization_probe");
  const std::string own = (folder / "own/authorization_probe").string();
  const auto said = output("--challenge --password secret", askedClient("right", "create copy 19 execute " + own));
  EXPECT_THAT(said, HasSubstr(std::string("agent: asked for ") + protocol::adminAction + ": "));
  EXPECT_THAT(said, HasSubstr(std::string("agent: asked for ") + protocol::anyProgramAction +
                              ": Authentication is required so that " + (folder / "authorization_client").string() +
                              " can run a program of its choice"));
  EXPECT_THAT(said, HasSubstr(std::string(protocol::anyProgramVariable) + "=1\n"));
  EXPECT_THAT(said, HasSubstr("execute answers 0\n"));
}

TEST_F(AuthorizationPolicy, TheQuestionNamesTheProgramThatAsks) {
  const auto text = output("--challenge --password secret", askedClient("right", "create copy 19"));
  EXPECT_THAT(text, HasSubstr("so that " + (folder / "authorization_client").string() + " can install, update or remove"));
}

TEST_F(AuthorizationPolicy, ThePolicyFileThatOthersCanWriteListsNoTool) {
  const auto text = output("--grant", std::string("chmod 666 ") + protocol::policyFilePath + "; " + client() +
                                          "create copy 18 execute " + (folder / "authorization_probe").string());
  EXPECT_THAT(text, HasSubstr("authorization.conf is refused: can be written by others"));
  EXPECT_THAT(text, HasSubstr("execute answers -60005\n"));
}

TEST_F(AuthorizationPolicy, ARightThatWasDestroyedHasToBeGivenAgain) {
  const auto text =
      output("--challenge --password secret", askedClient("right", "create copy 19 copy 18 free 8 create copy 18"));
  EXPECT_THAT(text, HasSubstr("copy answers 0\ncopy answers 0\nfree answers 0\ncreate answers 0\n"));
  EXPECT_THAT(text, HasSubstr("copy answers -60007\n"));
}

TEST_F(AuthorizationPolicy, TheRightPasswordGivesTheRight) {
  const auto text = output("--challenge --password secret", askedClient("right", "create copy 19"));
  EXPECT_THAT(text, HasSubstr(std::string("agent: asked for ") + protocol::adminAction + ": Authentication is required"));
  EXPECT_THAT(text, HasSubstr("copy answers 0\n"));
}

TEST_F(AuthorizationPolicy, NobodyIsAskedWithoutTheInteractionFlag) {
  const auto text = output("--challenge --password secret", askedClient("right", "create copy 18"));
  EXPECT_THAT(text, Not(HasSubstr("agent: asked")));
  EXPECT_THAT(text, HasSubstr("copy answers -60007\n"));
}

TEST_F(AuthorizationPolicy, AWrongPasswordGivesNothing) {
  const auto text = output("--challenge --password secret", askedClient("wrong", "create copy 19"));
  EXPECT_THAT(text, HasSubstr("agent: helper: FAILURE"));
  EXPECT_THAT(text, HasSubstr("copy answers -60005\n"));
}

TEST_F(AuthorizationPolicy, ADismissedQuestionIsACancellation) {
  const auto text = output("--challenge --password secret", askedClient("cancel", "create copy 19"));
  EXPECT_THAT(text, HasSubstr("copy answers -60006\n"));
}

TEST_F(AuthorizationPolicy, AnOpenQuestionBlocksNobody) {
  const auto text =
      output("--challenge --password secret", "export KELTO_MEANWHILE=\"" + (folder / "authorization_client").string() +
                                                  " create copy 0\"; " + askedClient("leave", "create copy 19"));
  EXPECT_THAT(text, HasSubstr("copy answers -60005\n"));
}

TEST_F(AuthorizationPolicy, AnOpenQuestionIsWithdrawnWhenItsCallerGoes) {
  const std::string seen = (folder / "seen").string();
  const auto waitFor = [&](const std::string& what) {
    return "timeout 20 bash -c \"until grep -q " + what + " " + seen + "; do sleep 0.01; done\"; ";
  };
  // The policy service notices by itself that its subject is gone; what the broker has to say about it is seen on the bus.
  const auto text =
      output("--challenge --password secret", "dbus-monitor --system type=method_call,member=CancelCheckAuthorization >" +
                                                  seen + " 2>&1 & " + waitFor("NameLost") +
                                                  "export KELTO_MEANWHILE=true; " + askedClient("leave", "create copy 19") +
                                                  "; " + waitFor("CancelCheckAuthorization") + "cat " + seen);
  EXPECT_THAT(text, HasSubstr("agent: the question is withdrawn\n"));
  EXPECT_THAT(text, HasSubstr("string \"question-1\""));
}

}  // namespace
