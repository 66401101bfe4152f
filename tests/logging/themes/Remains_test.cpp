// The remains of a killed process, in whichever state, and how the next one brings them to file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "logging/DDFileLogger.h"
#include "logging/DDLog.h"
#include "logging/JSONLinesLogFormatter.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/RecordingLogger.h"

using namespace tests;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

const std::string folder = "/Library/Logs/Installer";
const std::string file = folder + "/log-ABCDEF.txt";

// The memory of a process that died.
class Dead {
 public:
  // Lines that it had put aside for the file at `path`, which had `size` bytes before. They need the records below `ticket`
  // no more.
  void addLines(const std::string& path, std::uint64_t size, std::string_view lines, std::uint64_t ticket = 0) {
    path.copy(_memory->lines.path, path.size());
    _memory->lines.fileSize = size;
    lines.copy(_memory->lines.bytes, lines.size());
    _memory->lines.setState(lines.size(), ticket);
  }
  void addRecord(std::string_view text) { addRecord(text, {}); }
  void addRecord(std::string_view text, const LogFields& fields) {
    std::string encoded;
    fields.encode(encoded);
    const auto ticket = _ring.takeTicket();
    _ring.slotOf(ticket).fill({.timestamp = foundation::Date(), .level = 3, .flag = DDLogFlagError}, text,
                              std::string_view(), false, _ring.texts(), encoded);
    _ring.publish(ticket);
  }
  // As if it had come to deliver them.
  void releaseRecords(int count) {
    for (int i = 0; i < count; ++i) _ring.release(_ring.head());
  }
  [[nodiscard]] std::vector<std::byte> bytes() const {
    const auto* first = reinterpret_cast<const std::byte*>(_memory.get());
    return {first, first + sizeof(LogMemory)};
  }

 private:
  const std::unique_ptr<LogMemory> _memory = std::make_unique<LogMemory>();
  LogRing _ring{_memory->ring};
};

class Remains : public testing::Test {
 protected:
  void startAfter(const Dead& dead) {
    fake.logging.memories.dead.push_back(dead.bytes());
    start();
  }
  void start() {
    manager = std::make_shared<DDLogFileManagerDefault>(fake.platform, folder);
    logger = std::make_shared<DDFileLogger>(fake.platform, manager);
    logger->setLogFormatter(nullptr);
    DDLog::addLogger(logger);
    DDLog::flushLog();
  }
  // The file that held `before` when a process died which had put two lines aside to follow "one".
  std::string completed(const std::string& before) {
    fake.logging.storage.addFile(file, before);
    Dead dead;
    dead.addLines(file, 4, "two\nthree\n");
    startAfter(dead);
    return contents();
  }
  std::string contents() { return fake.logging.storage.contents(file).value_or("there is no file"); }

  platform::fake::FakePlatform fake;
  std::shared_ptr<DDLogFileManagerDefault> manager;
  std::shared_ptr<DDFileLogger> logger;
};

}  // namespace

TEST_F(Remains, LinesThatAreMissingAreAppendedToTheirFile) { EXPECT_EQ(completed("one\n"), "one\ntwo\nthree\n"); }

TEST_F(Remains, LinesThatAreThereAreNotWrittenAgain) { EXPECT_EQ(completed("one\ntwo\nthree\n"), "one\ntwo\nthree\n"); }

TEST_F(Remains, LinesThatAreThereBetweenAnothersAreNotWrittenAgain) {
  const std::string mixed = "one\nanother's\ntwo\nthree\nanother's\n";
  EXPECT_EQ(completed(mixed), mixed);
}

TEST_F(Remains, LinesThatAreThereInPartAreCompleted) { EXPECT_EQ(completed("one\ntwo\nth"), "one\ntwo\nthree\n"); }

TEST_F(Remains, LinesBehindHalfALineOfSomebodyElseBeginOnTheirOwn) {
  fake.logging.storage.addFile(file, "one\nhalf a li");
  Dead dead;
  dead.addLines(file, 4, "two\n");
  startAfter(dead);
  EXPECT_EQ(contents(), "one\nhalf a li\ntwo\n");
}

TEST_F(Remains, LinesWhoseFileIsGoneGoIntoTheCurrentOne) {
  Dead dead;
  dead.addLines(folder + "/log-000000.txt", 4, "two\n");
  startAfter(dead);
  const auto paths = fake.logging.storage.paths();
  ASSERT_THAT(paths, SizeIs(1));
  EXPECT_EQ(fake.logging.storage.contents(paths[0]), "two\n");
}

TEST_F(Remains, RecordsFollowTheLinesInOrderAndOnlyThoseThatAreNotAmongThem) {
  fake.logging.storage.addFile(file, "zero\n");
  Dead dead;
  for (const char* text : {"one", "two", "three", "four"}) dead.addRecord(text);
  dead.addLines(file, 5, "one\ntwo\n", 2);
  startAfter(dead);
  EXPECT_EQ(contents(), "zero\none\ntwo\nthree\nfour\n");
}

TEST_F(Remains, RecordsWithoutLinesGoIntoTheCurrentFile) {
  fake.logging.storage.addFile(file, "zero\n");
  Dead dead;
  dead.addRecord("one");
  dead.addRecord(std::string(5000, 'x'));
  startAfter(dead);
  EXPECT_EQ(contents(), "zero\none\n" + std::string(5000, 'x') + "\n");
}

TEST_F(Remains, RecordsFromBothEndsOfTheRingComeInOrder) {
  fake.logging.storage.addFile(file, "");
  Dead dead;
  std::string expected;
  for (int i = 0; i < 900; ++i) dead.addRecord("delivered");
  dead.releaseRecords(900);
  for (int i = 0; i < 300; ++i) {
    dead.addRecord(std::to_string(i));
    expected += std::to_string(i) + "\n";
  }
  startAfter(dead);
  EXPECT_EQ(contents(), expected);
}

TEST_F(Remains, OfTwoProcessesBothAreBrought) {
  fake.logging.storage.addFile(file, "");
  Dead one;
  one.addRecord("one");
  Dead other;
  other.addRecord("other");
  fake.logging.memories.dead.push_back(one.bytes());
  startAfter(other);
  EXPECT_EQ(contents(), "one\nother\n");
}

TEST_F(Remains, HaveAnEmptyFileNameForAFormatterThatPrintsIt) {
  class Placing : public DDLogFormatter {
   public:
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
      return buffer.assign(message.file()).append("|").append(message.logMsg());
    }
  };
  fake.logging.storage.addFile(file, "");
  Dead dead;
  dead.addRecord("one");
  fake.logging.memories.dead.push_back(dead.bytes());
  logger = std::make_shared<DDFileLogger>(fake.platform, std::make_shared<DDLogFileManagerDefault>(fake.platform, folder));
  logger->setLogFormatter(std::make_shared<Placing>());
  DDLog::addLogger(logger);
  DDLog::flushLog();
  EXPECT_EQ(contents(), "|one\n");
}

TEST_F(Remains, AreLinesOfJSONWithTheirFields) {
  fake.logging.storage.addFile(file, "");
  const std::string tooLong(LogTexts::bytes + 1, 'y');  // it was on the heap
  Dead dead;
  dead.addRecord("one", {{"user", "Anna \"A\""}, {"tries", 3}});
  dead.addRecord(std::string(5000, 'x'), {{"load", 0.5}});
  dead.addRecord(tooLong, {{"user", "nobody"}});
  dead.addRecord("none");
  fake.logging.memories.dead.push_back(dead.bytes());
  logger = std::make_shared<DDFileLogger>(fake.platform, std::make_shared<DDLogFileManagerDefault>(fake.platform, folder));
  logger->setLogFormatter(std::make_shared<JSONLinesLogFormatter>());
  DDLog::addLogger(logger);
  DDLog::flushLog();
  std::vector<std::string> lines;
  std::istringstream all(contents());
  for (std::string line; std::getline(all, line);) lines.push_back(line);
  ASSERT_THAT(lines, SizeIs(4));
  const std::string begin = R"({"time":"1970-01-01T[0-9:.]+[+-][0-9:]+","level":"error","thread":"0","text":")";
  EXPECT_THAT(lines[0], testing::MatchesRegex("\\" + begin + R"(one","fields":\{"user":"Anna \\"A\\"","tries":3\}\})"));
  EXPECT_THAT(lines[1], testing::EndsWith(R"(xxx","fields":{"load":0.5}})"));
  EXPECT_THAT(lines[2], testing::EndsWith(R"(yyy"})"));
  EXPECT_THAT(lines[3], testing::EndsWith(R"("text":"none"})"));
}

TEST_F(Remains, AreWrittenByOneFormatterWhileAnotherComes) {
  struct Facts {
    Gate isWriting;
    std::atomic<bool> isGone{false};
    std::atomic<bool> wasGoneWhileWriting{false};
  };
  class First : public DDLogFormatter {
   public:
    explicit First(Facts& facts) : _facts(facts) {}
    ~First() override { _facts.isGone = true; }
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string&) override {
      Facts& facts = _facts;
      facts.isWriting.pass();
      facts.wasGoneWhileWriting = facts.isGone.load();
      return message.logMsg();
    }

   private:
    Facts& _facts;
  };
  fake.logging.storage.addFile(file, "");
  Dead dead;
  dead.addRecord("one");
  fake.logging.memories.dead.push_back(dead.bytes());
  Facts facts;
  logger = std::make_shared<DDFileLogger>(fake.platform, std::make_shared<DDLogFileManagerDefault>(fake.platform, folder));
  logger->setLogFormatter(std::make_shared<First>(facts));
  DDLog::addLogger(logger);
  ASSERT_TRUE(facts.isWriting.waitForArrival());
  logger->setLogFormatter(nullptr);
  for (int i = 0; i < 20 && !facts.isGone; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  facts.isWriting.open();
  DDLog::flushLog();
  EXPECT_FALSE(facts.wasGoneWhileWriting);
  EXPECT_TRUE(facts.isGone);
  EXPECT_EQ(contents(), "one\n");
}

TEST_F(Remains, AreThereForTheNextProcessWhenTheDiskIsFull) {
  fake.logging.storage.addFile(file, "zero\n");
  Dead dead;
  for (const char* text : {"three", "four", "five"}) dead.addRecord(text);
  dead.addLines(file, 5, "one\ntwo\n", 0);
  fake.logging.storage.room = 14;  // the lines and one record
  startAfter(dead);
  EXPECT_EQ(contents(), "zero\none\ntwo\nthree\n");
  fake.logging.memories.die();
  fake.logging.storage.room = SIZE_MAX;
  start();
  EXPECT_EQ(contents(), "zero\none\ntwo\nthree\nfour\nfive\n");
  fake.logging.memories.die();
  start();
  EXPECT_EQ(contents(), "zero\none\ntwo\nthree\nfour\nfive\n");
}

TEST_F(Remains, LinesWhoseFileIsGoneAreBroughtOnceThoughTheDiskIsFullAfterThem) {
  fake.logging.storage.addFile(file, "zero\n");
  Dead dead;
  dead.addRecord("three");
  dead.addLines(folder + "/log-000000.txt", 4, "one\ntwo\n", 0);
  fake.logging.storage.room = 8;  // the lines
  startAfter(dead);
  EXPECT_EQ(contents(), "zero\none\ntwo\n");
  fake.logging.memories.die();
  fake.logging.storage.room = SIZE_MAX;
  start();
  EXPECT_EQ(contents(), "zero\none\ntwo\nthree\n");
}

TEST_F(Remains, OfAProcessThatHadNothingLeftMakeNoFile) {
  startAfter(Dead());
  EXPECT_THAT(fake.logging.storage.paths(), IsEmpty());
}

TEST_F(Remains, MemoryFullOfRubbishDoesNoHarm) {
  std::vector<std::byte> rubbish(sizeof(LogMemory));
  std::uint32_t seed = 1;
  for (auto& byte : rubbish) byte = static_cast<std::byte>((seed = seed * 1664525 + 1013904223) >> 24);
  fake.logging.memories.dead.push_back(rubbish);
  start();
  DDLog::log_level_flag_context_file_function_line_format(false, 3, 1, 0, "f.mm", "f", 1, "still here");
  std::string all;
  for (const auto& path : fake.logging.storage.paths()) all += fake.logging.storage.contents(path).value_or("");
  EXPECT_TRUE(all.ends_with("still here\n"));
}
