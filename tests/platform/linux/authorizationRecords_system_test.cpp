// The records of a real broker of the system, as the journal gets them.
#include <thread>

#include "protocol/LogRecord.h"
#include "tests/platform/linux/themes/BrokerGround.h"
#include "tests/support/Eventually.h"
#include "tests/support/JournalSocket.h"

namespace tests::tool {
namespace {

class BrokerRecord : public BrokerGround {
 protected:
  using Record = std::map<std::string, std::string>;

  void SetUp() override {
    BrokerGround::SetUp();
    if (!IsSkipped()) _journal.emplace(folder / "journal/socket");
  }
  // The broker's records of a run of the attacker's program by that account, up to the one of that verdict. The broker may
  // write it after the program has its answer, so the bus stays until it has come.
  std::vector<Record> recordsOf(uid_t account, const std::string& arguments, const std::string& lastVerdict) {
    std::vector<Record> records;
    std::thread reader([&] {
      tests::eventually([&] {
        auto record = _journal->next();
        if (record["SYSLOG_IDENTIFIER"] != "authorizationd") return false;
        records.push_back(record);
        return record[protocol::recordField::verdict] == lastVerdict;
      });
      write(folder / "read", "");
    });
    const auto text = onSystemBus("mkdir -p /run/systemd/journal\nmount --bind " + (folder / "journal").string() +
                                  " /run/systemd/journal\n" + as(account, arguments) +
                                  " </dev/null &\necho process $!\nwait $!\nuntil test -e " + (folder / "read").string() +
                                  "; do sleep 0.02; done\n");
    reader.join();
    const auto at = text.find("process ");
    if (at != std::string::npos) process = std::to_string(std::atoi(text.c_str() + at + 8));
    EXPECT_FALSE(records.empty()) << text;
    return records;
  }
  // The first of that verdict.
  static Record with(const std::vector<Record>& records, const std::string& verdict) {
    for (const auto& record : records) {
      if (record.contains(protocol::recordField::verdict) && record.at(protocol::recordField::verdict) == verdict)
        return record;
    }
    ADD_FAILURE() << "no record says " << verdict;
    return {};
  }
  void expectCaller(Record record, uid_t account, const std::string& method) const {
    EXPECT_EQ(record[protocol::recordField::user], std::to_string(account));
    EXPECT_EQ(record["KELTO_PROCESS"], process);
    EXPECT_EQ(record["KELTO_EXECUTABLE"], attacker.string());
    EXPECT_EQ(record["KELTO_METHOD"], method);
  }

  std::string process;  // the caller's number, as the broker sees it

 private:
  std::optional<tests::JournalSocket> _journal;
};

TEST_F(BrokerRecord, NamesProcessAndExecutableOfWhoGetsTheRightAndRunsATool) {
  const auto app = rootsBundle(folder / "apps/App.app", "1");
  const auto update = instructionFor(app, download("App.app", "2"));
  const auto records = recordsOf(invokingUser, "--system run " + installed.string() + " " + update.string(), "ended");
  const auto granted = with(records, "granted");
  expectCaller(granted, invokingUser, protocol::brokerMethod::copyRights.name);
  auto runs = with(records, "runs");
  expectCaller(runs, invokingUser, protocol::brokerMethod::executeWithPrivileges.name);
  EXPECT_EQ(runs["KELTO_TOOL"], installed.string());
  EXPECT_EQ(runs["PRIORITY"], "5");
  auto ended = with(records, "ended");
  EXPECT_EQ(ended[protocol::jobVariable], runs[protocol::jobVariable]);
  EXPECT_EQ(ended[protocol::recordField::cause], "exit status 0");
}

TEST_F(BrokerRecord, NamesProcessAndExecutableOfWhoIsRefused) {
  auto refused = with(recordsOf(otherAccount, "--system run " + installed.string(), "refused"), "refused");
  expectCaller(refused, otherAccount, protocol::brokerMethod::copyRights.name);
  EXPECT_EQ(refused["PRIORITY"], "4");
  EXPECT_NE(refused[protocol::recordField::cause], "");
}

}  // namespace
}  // namespace tests::tool
