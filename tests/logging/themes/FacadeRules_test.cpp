// The small print of the facade.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <thread>

#include "logging/DDLog.h"
#include "logging/KTLogger.h"
#include "platform/fake/FakePlatform.h"
#include "tests/logging/RecordingLogger.h"

using namespace tests;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// Counts how often it is shown.
struct Shown {
  int& count;
};
std::ostream& operator<<(std::ostream& stream, const Shown& shown) {
  ++shown.count;
  return stream << "shown";
}

class Additional : public KTAdditionalLoggerProtocol {
 public:
  void log_level_message(std::string_view selector, std::int32_t level, std::string_view format,
                         std::span<const foundation::FormatArgument> arguments) override {
    lines.push_back(std::string(selector) + " " + std::to_string(level) + " " + foundation::format(format, arguments));
  }
  std::vector<std::string> lines;
};

class FacadeRules : public testing::Test {
 protected:
  platform::fake::FakePlatform fake;
};

}  // namespace

TEST_F(FacadeRules, ASilencedStatementIsNotEvenFormatted) {
  int count = 0;
  for (const int level : {5, 7}) KTLogger::sharedLogger()->log_level_message("caller:", level, "%@", Shown{count});
  EXPECT_EQ(count, 0);
  KTLogger::sharedLogger()->log_level_message("caller:", 4, "%@", Shown{count});
  EXPECT_GT(count, 0);
}

TEST_F(FacadeRules, ManyThreadsThatAskFirstGetTheSameLoggerWithOneFileLogger) {
  std::vector<std::thread> threads;
  std::array<KTLogger*, 8> loggers{};
  for (std::size_t t = 0; t < loggers.size(); ++t) threads.emplace_back([&, t] { loggers[t] = KTLogger::sharedLogger(); });
  for (auto& thread : threads) thread.join();
  EXPECT_THAT(loggers, testing::Each(loggers[0]));
  KTLogger::sharedLogger()->log_level_message("caller:", 3, "once");
  const auto list = KTLogger::sharedLogger()->logFileList();
  ASSERT_THAT(list, SizeIs(1));
  const std::string contents = fake.logging.storage.contents(list[0]).value_or("");
  EXPECT_EQ(std::ranges::count(contents, '\n'), 1);
}

TEST_F(FacadeRules, TheAdditionalLoggerIsKeptAndNeverCalledByTheFacade) {
  Additional additional;
  EXPECT_EQ(KTLogger::sharedLogger()->additionalLogger(), nullptr);
  KTLogger::sharedLogger()->setAdditionalLogger(&additional);
  EXPECT_EQ(KTLogger::sharedLogger()->additionalLogger(), &additional);
  KTLogger::sharedLogger()->log_level_message("caller:", 0, "text");
  EXPECT_THAT(additional.lines, IsEmpty());
  KTLogger::sharedLogger()->setAdditionalLogger(nullptr);
  EXPECT_EQ(KTLogger::sharedLogger()->additionalLogger(), nullptr);
}

TEST_F(FacadeRules, DiagnosticsGoToTheAdditionalLoggerToo) {
  Additional additional;
  KTLogger::sharedLogger()->setAdditionalLogger(&additional);
  KTDiagnostics::log({"KTThing", nullptr, "do:", 12}, 3, "%@ failed", "it");
  ASSERT_THAT(additional.lines, SizeIs(1));
  EXPECT_THAT(additional.lines[0],
              testing::AllOf(testing::StartsWith("do: 3 [KTThing("), testing::EndsWith("do:]:12 it failed")));
  KTLogger::sharedLogger()->setAdditionalLogger(nullptr);
}

TEST_F(FacadeRules, ARecordStandsInTheFilesBeforeItIsEchoed) {
  const auto logger = std::make_shared<RecordingLogger>();
  std::size_t echoed = 1;
  logger->onMessage = [&](const DDLogMessage&) { echoed = fake.systemLog.lines.size(); };
  DDLog::addLogger(logger);
  KTLogger::sharedLogger()->log_level_message("caller:", 3, "text");
  EXPECT_EQ(echoed, 0);
  EXPECT_THAT(fake.systemLog.lines, ElementsAre("<Error> text"));
}
