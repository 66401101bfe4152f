// Records that are too long for a slot of the ring, before and after the death of their process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <set>
#include <thread>

#include "tests/logging/RealLog.h"

using namespace tests;
using testing::ElementsAreArray;

namespace {

// A text like no other of `size` bytes.
std::string longText(int number, std::size_t size) {
  std::string text = std::to_string(number) + ":";
  while (text.size() < size) text += static_cast<char>('a' + (text.size() * 31 + static_cast<std::size_t>(number)) % 26);
  return text;
}

// Logs the texts asynchronously in a process that dies before any of them is written.
void dieBeforeWriting(const std::string& name, const std::string& folder, const std::vector<std::string>& texts) {
  class Deadly : public DDAbstractLogger {
   public:
    Deadly() : DDAbstractLogger("deadly") {}
    void logMessage(const DDLogMessage&) override { ::raise(SIGKILL); }
  };
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const RealLog log(name, folder);
    DDLog::removeAllLoggers();
    DDLog::addLogger(std::make_shared<Deadly>());
    DDLog::loggingQueue().sync([&] {
      for (const auto& text : texts) RealLog::log(true, text);
    });
    RealLog::log(false, "deadly");
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ASSERT_TRUE(WIFSIGNALED(status));
}

std::vector<std::string> recovered(const std::vector<std::string>& texts) {
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  dieBeforeWriting(name, folder.path(), texts);
  { const RealLog next(name, folder.path()); }
  auto messages = messagesIn(folder.path());
  if (!messages.empty() && messages.back() == "deadly") messages.pop_back();
  return messages;
}

// Leaves no megabyte in a row.
void fillAddressSpace() {
  const rlimit none{.rlim_cur = 0, .rlim_max = 0};
  if (::setrlimit(RLIMIT_AS, &none) != 0) ::_exit(9);
  while (new (std::nothrow) char[1 << 20] != nullptr) {
  }
}

class Texts : public testing::Test {
 protected:
  std::vector<std::byte> memory = std::vector<std::byte>(LogTexts::bytes);
  LogTexts texts{memory.data()};
};

}  // namespace

TEST(LongRecords, OfTenKilobytesSurviveTheirProcessWhole) {
  std::vector<std::string> texts;
  for (int i = 0; i < 20; ++i) texts.push_back(longText(i, 10240));
  EXPECT_THAT(recovered(texts), ElementsAreArray(texts));
}

TEST(LongRecords, OfEveryLengthAroundTheLimitsSurviveTheirProcessWhole) {
  std::vector<std::string> texts;
  int number = 0;
  for (const std::size_t limit : {LogSlot::inlineCapacity, LogTexts::blockSize, 2 * LogTexts::blockSize})
    for (const std::size_t size : {limit - 30, limit - 22, limit - 21, limit - 20, limit - 1, limit, limit + 1})
      texts.push_back(longText(++number, size));
  EXPECT_THAT(recovered(texts), ElementsAreArray(texts));
}

TEST(LongRecords, OfTwoHundredKilobytesSurviveTheirProcessWhole) {
  const std::vector<std::string> texts = {longText(1, 200000), "and a short one"};
  EXPECT_THAT(recovered(texts), ElementsAreArray(texts));
}

TEST(LongRecords, AreBroughtToFileByOneLaterProcessOnly) {
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  dieBeforeWriting(name, folder.path(), {longText(1, 10240), "short"});
  { const RealLog next(name, folder.path()); }
  { const RealLog afterNext(name, folder.path()); }
  const auto messages = messagesIn(folder.path());
  EXPECT_EQ(std::ranges::count(messages, longText(1, 10240)), 1);
  EXPECT_EQ(std::ranges::count(messages, "short"), 1);
}

TEST(LongRecords, ThatFoundNoRoomSurviveWithTheirBeginning) {
  const std::vector<std::string> texts = {longText(1, 200000), longText(2, 300000), longText(3, 100000),
                                          longText(4, 20000)};
  const auto messages = recovered(texts);
  ASSERT_EQ(messages.size(), 4);
  EXPECT_EQ(messages[0], texts[0]);
  EXPECT_EQ(messages[1], texts[1].substr(0, LogSlot::inlineCapacity - sizeof(char*)));
  EXPECT_EQ(messages[2], texts[2].substr(0, LogSlot::inlineCapacity - sizeof(char*)));
  EXPECT_EQ(messages[3], texts[3]);
}

TEST(LongRecords, InAFullAddressSpaceComeWithTheirBeginningAndHoldNobodyUp) {
  const tests::TemporaryFolder folder;
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(30);
    const RealLog log(uniqueName(), folder.path());
    const std::string text(2 << 20, 'x');
    const DDLog::Statement statement{true, 3, DDLogFlagWarning, 0, "f.mm", "f", 1};
    fillAddressSpace();
    DDLog::logText(statement, text);
    RealLog::log(false, "the next");
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  const auto messages = messagesIn(folder.path());
  ASSERT_EQ(messages.size(), 2);
  EXPECT_TRUE(messages[0] == std::string(LogSlot::inlineCapacity, 'x')) << messages[0].size();
  EXPECT_EQ(messages[1], "the next");
}

TEST(LongRecords, OfManyThreadsArriveWhole) {
  const tests::TemporaryFolder folder;
  const RealLog log(uniqueName(), folder.path());
  std::vector<std::thread> threads;
  std::multiset<std::string> expected;
  for (int t = 0; t < 4; ++t)
    for (int i = 0; i < 100; ++i) expected.insert(longText(t * 1000 + i, 400 + static_cast<std::size_t>(i * 173 + t)));
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      for (int i = 0; i < 100; ++i)
        RealLog::log(i % 10 != 0, longText(t * 1000 + i, 400 + static_cast<std::size_t>(i * 173 + t)));
    });
  for (auto& thread : threads) thread.join();
  DDLog::flushLog();
  const auto messages = messagesIn(folder.path());
  EXPECT_TRUE(std::multiset<std::string>(messages.begin(), messages.end()) == expected);
}

TEST_F(Texts, AreGivenBlocksInARowThatNobodyElseHas) {
  EXPECT_EQ(texts.take(1), 0);
  EXPECT_EQ(texts.take(LogTexts::blockSize), 1);
  EXPECT_EQ(texts.take(LogTexts::blockSize + 1), 2);
  EXPECT_EQ(texts.take(1), 4);
  texts.giveBack(1, LogTexts::blockSize);
  EXPECT_EQ(texts.take(LogTexts::blockSize * 2), 5);
  EXPECT_EQ(texts.take(1), 1);
}

TEST_F(Texts, FindNoRoomWhereThereIsNotEnoughInARow) {
  EXPECT_EQ(texts.take(LogTexts::bytes + 1), LogTexts::none);
  EXPECT_EQ(texts.take(LogTexts::bytes), 0);
  EXPECT_EQ(texts.take(1), LogTexts::none);
  texts.giveBack(0, LogTexts::bytes);
  for (int i = 0; i < LogTexts::blockCount; ++i) EXPECT_EQ(texts.take(1), i);
  for (int i = 0; i < LogTexts::blockCount; i += 2) texts.giveBack(i, 1);
  EXPECT_EQ(texts.take(LogTexts::blockSize + 1), LogTexts::none);
  texts.giveBack(63, 1);
  EXPECT_EQ(texts.take(LogTexts::blockSize + 1), 62);
}

TEST_F(Texts, OfManyThreadsNeverOverlap) {
  std::array<std::atomic<int>, LogTexts::blockCount> owners{};
  std::atomic<bool> haveOverlapped{false};
  std::vector<std::thread> threads;
  for (std::size_t t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      for (std::size_t i = 0; i < 5000; ++i) {
        const std::size_t count = 1 + (i + t) % 20;
        const auto first = texts.take(count * LogTexts::blockSize);
        if (first == LogTexts::none) continue;
        for (std::size_t b = 0; b < count; ++b)
          if (owners[static_cast<std::size_t>(first) + b].fetch_add(1) != 0) haveOverlapped = true;
        for (std::size_t b = 0; b < count; ++b) owners[static_cast<std::size_t>(first) + b].fetch_sub(1);
        texts.giveBack(first, count * LogTexts::blockSize);
      }
    });
  for (auto& thread : threads) thread.join();
  EXPECT_FALSE(haveOverlapped);
  EXPECT_EQ(texts.take(LogTexts::bytes), 0);
}
