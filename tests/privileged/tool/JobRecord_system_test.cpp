// The records of real jobs, as the journal gets them.
#include "privileged/tool/JobRecord.h"

#include <sys/un.h>

#include <optional>

#include "protocol/LogRecord.h"
#include "tests/privileged/tool/Namespace.h"
#include "tests/privileged/tool/SignedBundle.h"
#include "tests/support/JournalSocket.h"

namespace tests::tool {
namespace {

class JobRecord : public NamespaceTest {
 protected:
  void SetUp() override {
    NamespaceTest::SetUp();
    if (IsSkipped()) return;
    _journal.emplace(folder / "run/systemd/journal/socket");
    bind(folder / "run", "/run");
    becomeAnotherUsersTool();
    environment.push_back(std::string(protocol::jobVariable) + "=job-7");
    makeVersion(app, "1.0");
    makeVersion(download, "2.0");
  }
  static void makeVersion(const fs::path& bundle, const std::string& version) {
    writeWithMode(bundle / "Contents/Info.plist", informationList("com.example.App", version));
  }
  std::map<std::string, std::string> nextRecord() const { return _journal->next(); }
  static std::string digestOfTool() {
    tests::TemporaryFolder output;
    EXPECT_TRUE(runs("sha256sum " + shellWord(toolProgram), output.path("sum")));
    return tests::readFile(output.path("sum")).substr(0, 64);
  }

  const fs::path app = folder / "App.app";
  const fs::path download = folder / "Download/App.app";

 private:
  std::optional<tests::JournalSocket> _journal;
};

TEST_F(JobRecord, OfAJobThatWasDoneTellsAllAboutIt) {
  expectSuccess(replace(app, download));
  const auto record = nextRecord();
  const std::map<std::string, std::string> expected{
      {"PRIORITY", "5"},
      {"SYSLOG_IDENTIFIER", "assistantTool"},
      {protocol::jobVariable, "job-7"},
      {protocol::recordField::user, std::to_string(invokingUser)},
      {protocol::recordField::toolDigest, digestOfTool()},
      {protocol::recordField::command, protocol::replaceItemCommand},
      {protocol::recordField::path, download.string() + "\n" + app.string()},
      {protocol::recordField::bundle, "com.example.App"},
      {protocol::recordField::oldVersion, "1.0"},
      {protocol::recordField::newVersion, "2.0"},
      {protocol::recordField::verdict, "done"},
  };
  for (const auto& [name, value] : expected) EXPECT_EQ(record.count(name) == 0 ? "" : record.at(name), value) << name;
  EXPECT_THAT(record.at("MESSAGE"), ::testing::StartsWith("replaced " + app.string()));
  EXPECT_GT(std::stoi(record.at("SYSLOG_PID")), 1);
}

TEST_F(JobRecord, OfARefusalIsAWarningWithTheCause) {
  fs::remove_all(app);
  expectRefusal(replace(app, download / "Missing"), "nothing is at");
  const auto record = nextRecord();
  ASSERT_TRUE(record.contains(protocol::recordField::verdict));
  EXPECT_EQ(record.at("PRIORITY"), "4");
  EXPECT_EQ(record.at(protocol::recordField::verdict), "refused");
  EXPECT_EQ(record.at(protocol::recordField::cause), "nothing is at " + (download / "Missing").string());
  EXPECT_EQ(record.at(protocol::recordField::command), protocol::replaceItemCommand);
  EXPECT_EQ(record.at(protocol::jobVariable), "job-7");
}

TEST_F(JobRecord, OfAMalformedInstructionIsThereToo) {
  runWithBytes(command, framed("not an archive"), environment);
  const auto record = nextRecord();
  ASSERT_TRUE(record.contains(protocol::recordField::cause));
  EXPECT_THAT(record.at(protocol::recordField::cause), ::testing::HasSubstr("malformed"));
}

// An older kernel, one without Landlock, one where it is switched off: the answers are the kernel's own for each.
TEST_F(JobRecord, WarnsThatAJobIsNotConfinedWhereTheKernelCannotDoIt) {
  const std::map<std::string, std::string> kernels{
      {"error=ENOSYS", "Function not implemented"},
      {"error=EOPNOTSUPP", "Operation not supported"},
      {"retval=1", "this kernel's Landlock forbids every rename between folders"}};
  for (const auto& [answer, reason] : kernels) {
    command = withFaults({"landlock_create_ruleset:" + answer});
    if (command.empty()) GTEST_SKIP() << "strace cannot trace here";
    makeVersion(download, "2.0");
    expectSuccess(replace(app, download));
    const auto warning = nextRecord();
    EXPECT_EQ(warning.at("MESSAGE"), "the job is not confined to its folders: " + reason);
    EXPECT_EQ(warning.at("PRIORITY"), "4");
    EXPECT_EQ(warning.at(protocol::jobVariable), "job-7");
    EXPECT_EQ(nextRecord().at(protocol::recordField::verdict), "done");
  }
}

TEST_F(JobRecord, KeepsNobodyWaitingWhenTheLogIsNotRead) {
  const int flood = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = "/run/systemd/journal/socket"};
  while (::sendto(flood, "x", 1, MSG_DONTWAIT, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 1) continue;
  ::close(flood);
  expectSuccess(replace(app, download));
}

}  // namespace
}  // namespace tests::tool
