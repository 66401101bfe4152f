#include "logging/DDLogMessage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <thread>

#include "tests/logging/LogTest.h"

using namespace tests;
using foundation::Dispatch::SerialQueue;
using testing::ElementsAre;

namespace {

class DDLogMessageTest : public LogTest {};

TEST_F(DDLogMessageTest, ARecordHasAllThatTheStatementSaid) {
  const auto logger = added();
  const auto queue = SerialQueue::make("some.queue");
  queue->sync([] {
    DDLog::log_level_flag_context_file_function_line_format(false, 7, 4, -9, "/Code/Thing.mm", "do:it:", 321, "%d of %@", 2,
                                                            "x");
  });
  const auto record = logger->records().at(0);
  EXPECT_EQ(record.logLevel(), 7);
  EXPECT_EQ(record.logFlag(), 4);
  EXPECT_EQ(record.logContext(), -9);
  EXPECT_EQ(record.logMsg(), "2 of x");
  EXPECT_EQ(record.timestamp(), fake.clock.now());
  EXPECT_STREQ(record.file(), "/Code/Thing.mm");
  EXPECT_STREQ(record.function(), "do:it:");
  EXPECT_EQ(record.lineNumber(), 321);
  EXPECT_EQ(record.machThreadID(), fake.logging.process.currentThreadIdentifier());
  EXPECT_EQ(record.queueLabel(), "some.queue");
  EXPECT_EQ(record.fileName(), "Thing");
  EXPECT_EQ(record.methodName(), "do:it:");
  EXPECT_EQ(record.threadID(), foundation::formatted("%x", record.machThreadID()));
}

TEST_F(DDLogMessageTest, ARecordFromTheMainThreadHasTheMainThreadsLabel) {
  const auto logger = added();
  logText(false, "main");
  EXPECT_EQ(logger->records().at(0).queueLabel(), "com.apple.main-thread");
}

TEST_F(DDLogMessageTest, ARecordFromAThreadWithoutAQueueHasNoLabel) {
  const auto logger = added();
  std::thread([] { logText(false, "thread"); }).join();
  EXPECT_EQ(logger->records().at(0).queueLabel(), std::nullopt);
}

TEST_F(DDLogMessageTest, LongTextsWithZerosArriveWhole) {
  const auto logger = added();
  std::string text(1 << 20, 'x');
  text[500] = '\0';
  logText(true, text);
  logText(false, "end");
  EXPECT_THAT(logger->texts(), ElementsAre(text, "end"));
}

TEST_F(DDLogMessageTest, TheMemoryOfALongTextIsGivenBackByTheNextRecord) {
  class Framing : public DDLogFormatter {
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
      return buffer.assign("<").append(message.logMsg()).append(">");
    }
  };
  class Formatting : public DDAbstractLogger {
   public:
    Formatting() : DDAbstractLogger("formatting") { formatter = std::make_shared<Framing>(); }
    void logMessage(const DDLogMessage& message) override { size = textOf(message)->size(); }
    std::size_t size = 0;
  };
  const auto logger = std::make_shared<Formatting>();
  DDLog::addLogger(logger);
  const auto allocated = [] { return ::mallinfo2().uordblks + ::mallinfo2().hblkhd; };
  constexpr std::size_t length = 8 << 20;
  logText(false, "before");
  const std::size_t before = allocated();
  logText(false, std::string(length, 'x'));
  EXPECT_EQ(logger->size, length + 2);
  logText(false, "after");
  EXPECT_LT(allocated(), before + length / 8);
}

TEST_F(DDLogMessageTest, AReadyRecordIsQueuedAsItIs) {
  const auto logger = added();
  const DDLogMessage message("ready", 1, 1, 5, "a.c", nullptr, 7);
  DDLog::queueLogMessage_asynchronously(message, false);
  EXPECT_THAT(logger->texts(), ElementsAre("ready"));
  EXPECT_EQ(logger->records().at(0).methodName(), std::nullopt);
}

TEST_F(DDLogMessageTest, TheFileNameIsThePathWithoutFoldersAndExtension) {
  const auto name = [](const char* path) { return std::string(DDLogMessage("", 0, 0, 0, path, nullptr, 0).fileName()); };
  EXPECT_EQ(name("bare"), "bare");
  EXPECT_EQ(name("a/b/c"), "c");
  EXPECT_EQ(name("x.y"), "x");
  EXPECT_EQ(name("Code/Thing.mm"), "Thing");
  EXPECT_EQ(name("a.b/c"), "c");
  EXPECT_EQ(name(""), "");
  EXPECT_EQ(name("a/"), "");
  EXPECT_EQ(name("a/b.c.d"), "b.c");
}

}  // namespace
