#include "platform/linux/authorizationd/Journal.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>

#include "tests/support/TemporaryFolder.h"

namespace {

using namespace platform::Linux::authorizationd;
using testing::HasSubstr;
using namespace std::chrono_literals;

// A log daemon that reads when it is told to.
class LogSocket {
 public:
  explicit LogSocket(const std::string& path) : _socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(_socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  }
  // The next record, or "".
  std::string next() {
    std::array<char, 8192> record{};
    const ssize_t got = ::recv(_socket.get(), record.data(), record.size(), 0);
    return {record.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0))};
  }
  std::vector<std::string> all() {
    std::vector<std::string> records;
    for (std::string record = next(); !record.empty(); record = next()) records.push_back(record);
    return records;
  }

 private:
  posix::Descriptor _socket;
};

class JournalTest : public testing::Test {
 protected:
  Journal journal() {
    return Journal({.journal = folder.path("journal"), .log = folder.path("log")}, output.get(), [this] { return now; });
  }

  tests::TemporaryFolder folder;
  posix::Descriptor output{::open(folder.path("output").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600)};
  std::chrono::microseconds now = 1000s;
};

TEST_F(JournalTest, WritesFieldsToTheJournalAndALineToTheOutput) {
  LogSocket socket(folder.path("journal"));
  journal().record("refused Free", {{protocol::recordField::user, "7"}, {protocol::recordField::cause, "two\nlines"}});
  const auto record = socket.next();
  EXPECT_THAT(record, testing::StartsWith("MESSAGE=refused Free\n"));
  EXPECT_THAT(record, HasSubstr("\nSYSLOG_IDENTIFIER=authorizationd\n"));
  EXPECT_THAT(record, HasSubstr(std::string("\n") + protocol::recordField::user + "=7\n"));
  EXPECT_THAT(record, HasSubstr(std::string("\n") + protocol::recordField::cause + "=two?lines\n"))
      << "a value makes no field of its own";
  EXPECT_EQ(tests::readFile(folder.path("output")), "authorizationd: refused Free\n");
}

TEST_F(JournalTest, GivesEachRecordItsPriority) {
  LogSocket socket(folder.path("journal"));
  auto log = journal();
  log.record("granted");
  EXPECT_THAT(socket.next(), HasSubstr("\nPRIORITY=5\n"));
  log.record("refused Free", {}, Priority::warning);
  EXPECT_THAT(socket.next(), HasSubstr("\nPRIORITY=4\n"));
  for (unsigned i = 0; i <= Journal::maximumRefusalsASecond; ++i) log.recordRefusal(7, [] {});
  log.reportCounted();
  EXPECT_THAT(socket.next(), HasSubstr("\nPRIORITY=4\n"));
}

TEST_F(JournalTest, WritesToTheLogDaemonWhereThereIsNoJournal) {
  LogSocket socket(folder.path("log"));
  journal().record("granted");
  EXPECT_THAT(socket.next(), testing::MatchesRegex("<85>... .. ..:..:.. authorizationd\\[[0-9]+\\]: granted"));
}

TEST_F(JournalTest, NeverWaitsForALogThatNobodyReadsAndCountsTheLostRecords) {
  LogSocket socket(folder.path("journal"));
  auto log = journal();
  constexpr std::size_t sent = 100'000;
  for (std::size_t i = 0; i < sent; ++i) log.record("record");
  const std::size_t kept = socket.all().size();
  ASSERT_LT(kept, sent) << "the socket has room for all, so that nothing was tried";
  log.record("last");
  const auto later = socket.all();
  ASSERT_EQ(later.size(), 2U);
  EXPECT_THAT(later[0], HasSubstr("MESSAGE=" + std::to_string(sent - kept) + " records were lost"));
  EXPECT_THAT(later[1], HasSubstr("MESSAGE=last\n"));
}

TEST_F(JournalTest, NeverWaitsForAnOutputThatNobodyReads) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
  const posix::Descriptor reader(ends[0]);
  output = posix::Descriptor(ends[1]);
  auto log = journal();
  for (int i = 0; i < 100'000; ++i) log.record("record");
  EXPECT_EQ(::fcntl(ends[1], F_GETFL) & O_NONBLOCK, 0) << "the other writers of the pipe may want to wait";
}

TEST_F(JournalTest, BoundsTheReportedRefusalsOfEachUserASecondAndCountsTheOthers) {
  LogSocket socket(folder.path("journal"));
  auto log = journal();
  int written = 0;
  const auto refuse = [&](uid_t user) { log.recordRefusal(user, [&written] { ++written; }); };
  for (int i = 0; i < 50; ++i) refuse(7);
  EXPECT_EQ(written, 20);
  refuse(8);
  EXPECT_EQ(written, 21) << "another user's are not affected";
  now += 2s;
  refuse(7);
  EXPECT_EQ(written, 22);
  const auto records = socket.all();
  ASSERT_EQ(records.size(), 1U);
  EXPECT_THAT(records[0], HasSubstr("MESSAGE=refused user 7 30 more times within a second\n"));
}

TEST_F(JournalTest, ReportsTheCountedRefusalsBeforeTheBrokerLeaves) {
  LogSocket socket(folder.path("journal"));
  auto log = journal();
  for (int i = 0; i < 21; ++i) log.recordRefusal(7, [] {});
  EXPECT_EQ(socket.next(), "");
  log.reportCounted();
  EXPECT_THAT(socket.next(), HasSubstr("MESSAGE=refused user 7 1 more times"));
}

TEST_F(JournalTest, MakesTextOfCallersPrintable) {
  EXPECT_EQ(printable("a\nb\x1b\xC3\xA9"), "a?b???");
  EXPECT_EQ(printable(std::string(201, 'x')), std::string(200, 'x') + "...");
  EXPECT_EQ(quoted("say \"no\""), "\"say ?no?\"");
}

}  // namespace
