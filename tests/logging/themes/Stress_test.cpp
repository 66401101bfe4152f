#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "logging/DDASLLogger.h"
#include "logging/DDAbstractDatabaseLogger.h"
#include "logging/DDTTYLogger.h"
#include "logging/DispatchQueueLogFormatter.h"
#include "logging/KTLogger.h"
#include "tests/logging/RealLog.h"
#include "tests/logging/RecordingLogger.h"

using namespace tests;

namespace {

class Counting : public DDAbstractDatabaseLogger {
 public:
  Counting() : DDAbstractDatabaseLogger("counting") {}
  std::atomic<int> saved{0};

 protected:
  bool db_log(const DDLogMessage&) override {
    ++_buffered;
    return true;
  }
  void db_save() override { saved += std::exchange(_buffered, 0); }

 private:
  int _buffered = 0;
};

}  // namespace

// Eight threads log, add, remove, flush and reconfigure at once. The sanitizers judge; here nothing may be lost or hang.
TEST(Stress, EverythingAtOnceFromEightThreads) {
  const tests::TemporaryFolder folder;
  RealLog real(uniqueName(), folder.path());
  real.manager->setMaximumNumberOfLogFiles(100000);
  const auto counting = std::make_shared<Counting>();
  DDLog::addLogger(counting);
  const auto columns = std::make_shared<DispatchQueueLogFormatter>();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(3);
  std::atomic<int> logged{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] {
      for (int i = 0; std::chrono::steady_clock::now() < deadline; ++i) {
        RealLog::log(i % 50 != 0, "thread " + std::to_string(t) + " record " + std::to_string(i));
        ++logged;
        if (i % 500 == 60 * t) {
          const auto passing = std::make_shared<RecordingLogger>("passing");
          DDLog::addLogger(passing);
          DDLog::removeLogger(passing);
        }
        if (t == 1 && i % 400 == 0) DDLog::flushLog();
        if (t == 2 && i % 300 == 0) real.logger->setMaximumFileSize(50000 + static_cast<std::uint64_t>(i % 7) * 10000);
        if (t == 3 && i % 300 == 0) real.logger->rollLogFile();
        if (t == 4 && i % 300 == 0) counting->setSaveThreshold(static_cast<std::size_t>(i % 100));
        if (t == 5 && i % 300 == 0) columns->setQueueLength(i % 40);
        if (t == 6 && i % 300 == 0) real.logger->setRollingFrequency(86400.0 + i);
        if (t == 7 && i % 500 == 0) (void)real.logger->logFormatter();
      }
    });
  for (auto& thread : threads) thread.join();
  DDLog::flushLog();
  EXPECT_EQ(messagesIn(folder.path()).size(), static_cast<std::size_t>(logged.load()));
  EXPECT_EQ(counting->saved, logged);
}
