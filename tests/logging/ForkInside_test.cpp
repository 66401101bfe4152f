// Loggers that fork while they have a record: the child is outside of the logger, and the parent does not notice.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <functional>
#include <map>
#include <semaphore>
#include <thread>

#include "tests/logging/RealLog.h"
#include "tests/support/SharedCount.h"

namespace {

// Does `work` with each record, and `flushWork` at each flush.
class WorkingLogger final : public DDAbstractLogger {
 public:
  explicit WorkingLogger(std::function<void(const DDLogMessage&)> work)
      : DDAbstractLogger("com.kelto.test.working"), _work(std::move(work)) {}
  void logMessage(const DDLogMessage& message) override { _work(message); }
  void flush() override {
    if (flushWork) flushWork();
  }
  std::function<void()> flushWork;

 private:
  const std::function<void(const DDLogMessage&)> _work;
};

// Forks in the place where it is called; the child dies with this process.
pid_t forked() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(60);
  }
  return child;
}

int statusOf(pid_t child) {
  int status = -1;
  ::waitpid(child, &status, 0);
  return status;
}

constexpr int recordsOfAChild = 5000;

void logAsChild() {
  for (int i = 0; i < recordsOfAChild; ++i) RealLog::log(i % 1000 != 0, "child " + std::to_string(i));
  DDLog::flushLog();
}

constexpr std::size_t shortText = 40;
constexpr std::size_t longText = 100'000;
constexpr std::size_t hugeText = 1'000'000;

std::string textOfLength(std::size_t length) { return "fork" + std::string(length - 4, 'x'); }

bool asksForFork(const DDLogMessage& message) { return message.logMsg().starts_with("fork"); }

struct Way {
  bool isAsynchronous;
  std::size_t length;
};

class ALoggingQueue : public ::testing::Test {
 protected:
  explicit ALoggingQueue(std::uint32_t processors = 0) : log(uniqueName(), folder.path(), nullptr, processors) {}
  ~ALoggingQueue() override { DDLog::removeAllLoggers(); }

  void add(std::function<void(const DDLogMessage&)> work) {
    logger = std::make_shared<WorkingLogger>(std::move(work));
    DDLog::addLogger(logger);
    DDLog::flushLog();
  }
  // Every message in the files, and how often.
  [[nodiscard]] std::map<std::string, int> seen() const {
    std::map<std::string, int> counts;
    for (const auto& message : messagesIn(folder.path())) ++counts[message];
    return counts;
  }
  void expectEachOnce(int count) const {
    const auto all = seen();
    EXPECT_EQ(std::ssize(all), count);
    for (const auto& [message, times] : all) EXPECT_EQ(times, 1) << message.substr(0, 100);
  }

  const tests::TemporaryFolder folder;
  const RealLog log;
  std::shared_ptr<WorkingLogger> logger;
};

class AForkInsideALogger : public ALoggingQueue, public ::testing::WithParamInterface<Way> {
 protected:
  using ALoggingQueue::ALoggingQueue;
  void logWithAFork() const { RealLog::log(GetParam().isAsynchronous, textOfLength(GetParam().length)); }
  void leaveTheRecordToTheParent();
};

}  // namespace

TEST_P(AForkInsideALogger, GivesAChildThatLogsFlushesAndEnds) {
  std::atomic<int> status{-1};
  add([&](const DDLogMessage& message) {
    if (!asksForFork(message)) return;
    const pid_t child = forked();
    if (child != 0) {
      status = statusOf(child);
      return;
    }
    const bool isWhole = message.logMsg() == textOfLength(GetParam().length);
    logAsChild();
    const bool isStillWhole = message.logMsg() == textOfLength(GetParam().length);
    ::_exit(isWhole && isStillWhole ? 0 : 1);
  });
  RealLog::log(true, "before");
  logWithAFork();
  RealLog::log(true, "after");
  DDLog::flushLog();
  EXPECT_EQ(status, 0);
  expectEachOnce(3 + recordsOfAChild);
}

void AForkInsideALogger::leaveTheRecordToTheParent() {
  tests::SharedCount others;
  tests::SharedCount callers;
  std::binary_semaphore isForked(0);
  const pid_t parent = ::getpid();
  pid_t child = 0;
  add([&](const DDLogMessage& message) {
    if (!asksForFork(message)) return;
    child = forked();
    isForked.release();
  });
  add([&](const DDLogMessage& message) {
    if (asksForFork(message) && ::getpid() != parent) others.increment();
  });
  logWithAFork();
  isForked.acquire();
  // A caller who delivered the record himself goes on in the child. The thread that delivers for others ends there.
  if (::getpid() != parent) {
    callers.increment();
    logAsChild();
    ::_exit(0);
  }
  EXPECT_EQ(statusOf(child), 0);
  EXPECT_EQ(others.value(), 0);
  RealLog::log(false, "after");
  expectEachOnce(2 + callers.value() * recordsOfAChild);
}

TEST_P(AForkInsideALogger, LeavesTheRecordToTheParent) { leaveTheRecordToTheParent(); }

TEST_P(AForkInsideALogger, GivesAChildThatLogsWhileTheLoggerReturns) {
  std::binary_semaphore isForked(0);
  const pid_t parent = ::getpid();
  pid_t child = 0;
  add([&](const DDLogMessage& message) {
    if (!asksForFork(message)) return;
    child = forked();
    if (child == 0) {
      std::thread([] {
        logAsChild();
        ::_exit(0);
      }).detach();
    }
    isForked.release();
  });
  logWithAFork();
  isForked.acquire();
  if (::getpid() != parent)
    for (;;) ::pause();
  EXPECT_EQ(statusOf(child), 0);
  DDLog::flushLog();
  expectEachOnce(1 + recordsOfAChild);
}

TEST_P(AForkInsideALogger, OrItsFormatterLeavesTheRecordToTheParent) {
  class ForkingFormatter final : public DDLogFormatter {
   public:
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override {
      if (asksForFork(message)) child = forked();
      return _usual.formatLogMessage(message, buffer);
    }
    std::atomic<pid_t> child{0};

   private:
    DDLogFileFormatterDefault _usual;
  };
  const auto formatter = std::make_shared<ForkingFormatter>();
  log.logger->setLogFormatter(formatter);
  const pid_t parent = ::getpid();
  logWithAFork();
  DDLog::flushLog();
  if (::getpid() != parent) ::_exit(0);
  EXPECT_EQ(statusOf(formatter->child), 0);
  expectEachOnce(1);
}

TEST_P(AForkInsideALogger, DoesNotWaitForTheRecordItHas) {
  std::binary_semaphore isForked(0);
  if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "with one processor loggers run one after the other";
  std::atomic<int> status{-1};
  // The first is stuck until the second, which is therefore started elsewhere, has forked.
  add([&](const DDLogMessage& message) {
    if (asksForFork(message)) isForked.acquire();
  });
  add([&](const DDLogMessage& message) {
    if (!asksForFork(message)) return;
    const pid_t child = forked();
    if (child == 0) {
      const bool isWhole = message.logMsg() == textOfLength(GetParam().length);
      logAsChild();
      const bool isStillWhole = message.logMsg() == textOfLength(GetParam().length);
      ::_exit(isWhole && isStillWhole ? 0 : 1);
    }
    status = statusOf(child);
    isForked.release();
  });
  // The thread that delivers the record does not exist in the child, where others use the memory of its stack.
  std::thread([&] {
    logWithAFork();
    DDLog::flushLog();
  }).join();
  EXPECT_EQ(status, 0);
}

TEST_P(AForkInsideALogger, OrInItsFlushGivesAChildToo) {
  std::atomic<int> status{-1};
  add([](const DDLogMessage&) {});
  bool hasForked = false;
  logger->flushWork = [&] {
    if (std::exchange(hasForked, true)) return;
    const pid_t child = forked();
    if (child == 0) {
      logAsChild();
      ::_exit(0);
    }
    status = statusOf(child);
  };
  logWithAFork();
  DDLog::flushLog();
  EXPECT_EQ(status, 0);
  expectEachOnce(1 + recordsOfAChild);
}

TEST_P(AForkInsideALogger, EndsWithTheFlushInTheChild) {
  // Released when the flushing thread ends.
  static std::binary_semaphore hasEnded(0);
  struct AtTheEnd {
    ~AtTheEnd() { hasEnded.release(); }
  };
  add([](const DDLogMessage&) {});
  pid_t child = 0;
  logger->flushWork = [&] {
    if (child != 0 || (child = forked()) != 0) return;
    child = ::getpid();
    [[maybe_unused]] thread_local const AtTheEnd mark;
    std::thread([] {
      hasEnded.acquire();
      logAsChild();
      ::_exit(0);
    }).detach();
  };
  logWithAFork();
  DDLog::flushLog();
  EXPECT_EQ(statusOf(child), 0);
  expectEachOnce(1 + recordsOfAChild);
}

class AForkInsideALoggerOnOneProcessor : public AForkInsideALogger {
 protected:
  AForkInsideALoggerOnOneProcessor() : AForkInsideALogger(1) {}
};

TEST_P(AForkInsideALoggerOnOneProcessor, LeavesTheRecordToTheParent) { leaveTheRecordToTheParent(); }

INSTANTIATE_TEST_SUITE_P(Records, AForkInsideALoggerOnOneProcessor,
                         ::testing::Values(Way{true, shortText}, Way{false, shortText}));

TEST_F(ALoggingQueue, ThatForksInABlockGivesAChildThatLogs) {
  int status = -1;
  DDLog::loggingQueue().sync([&] {
    const pid_t child = forked();
    if (child == 0) {
      logAsChild();
      ::_exit(0);
    }
    status = statusOf(child);
  });
  EXPECT_EQ(status, 0);
  expectEachOnce(recordsOfAChild);
}

INSTANTIATE_TEST_SUITE_P(Records, AForkInsideALogger,
                         ::testing::Values(Way{true, shortText}, Way{false, shortText}, Way{true, longText},
                                           Way{false, longText}, Way{false, hugeText}),
                         [](const auto& each) {
                           return (each.param.isAsynchronous ? "Asynchronous" : "Synchronous") +
                                  std::to_string(each.param.length);
                         });
