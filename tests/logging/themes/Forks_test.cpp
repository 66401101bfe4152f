// Forks beside logging and inside it, and what happens where the system gives no thread.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <functional>
#include <new>
#include <semaphore>
#include <system_error>
#include <thread>

#include "foundation/dispatch/Threads.h"
#include "logging/DDAbstractDatabaseLogger.h"
#include "logging/LogFileFinisher.h"
#include "platform/LoggingPlatform.h"
#include "platform/linux/OwnThreads.h"
#include "tests/logging/RealLog.h"
#include "tests/support/Eventually.h"

using namespace tests;
using testing::ElementsAre;

namespace {

// Does `work` with each record.
class WorkingLogger final : public DDAbstractLogger {
 public:
  explicit WorkingLogger(std::function<void(const DDLogMessage&)> work)
      : DDAbstractLogger("com.kelto.test.working"), _work(std::move(work)) {}
  void logMessage(const DDLogMessage& message) override { _work(message); }

 private:
  const std::function<void(const DDLogMessage&)> _work;
};

// Forks in the place where it is called; the child dies with this process, or when it hangs.
pid_t forked() {
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(20);
  }
  return child;
}

// The child's own end code, or 128 and the signal that killed it: a code that its parent can end with, too.
int statusOf(pid_t child) {
  int status = -1;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

bool isOver(pid_t child) { return ::waitpid(child, nullptr, WNOHANG) == child; }

// The status of a process that does `work`; one that hangs is killed.
int statusOfProcess(const std::function<void()>& work) {
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = forked();
  if (child != 0) return statusOf(child);
  work();
  ::_exit(0);
}

void add(std::function<void(const DDLogMessage&)> work) {
  DDLog::addLogger(std::make_shared<WorkingLogger>(std::move(work)));
  DDLog::flushLog();
}

bool asksForFork(const DDLogMessage& message) { return message.logMsg() == "fork"; }

// More than the ring holds, so that a child that waits for somebody to deliver them hangs.
constexpr int recordsOfAChild = 1500;

// The status for a child whose statements go to the system log, and there only.
int statusAsStray(RealLog& log) {
  auto& lines = log.fake.systemLog.lines;
  lines.clear();
  for (int i = 0; i < recordsOfAChild; ++i) RealLog::log(i % 100 != 0, "child");
  DDLog::flushLog();
  return std::ranges::count(lines, "child") == recordsOfAChild ? 0 : 1;
}

struct Way {
  bool isAsynchronous;
  std::uint32_t processors;
};

class AForkInsideALogger : public testing::TestWithParam<Way> {
 protected:
  void logWithAFork() const { RealLog::log(GetParam().isAsynchronous, "fork"); }

  const tests::TemporaryFolder folder;
};

}  // namespace

TEST_P(AForkInsideALogger, GivesAChildWhoseStatementsGoToTheSystemLogOnly) {
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path(), nullptr, GetParam().processors);
              std::atomic<int> status{-1};
              add([&](const DDLogMessage& message) {
                if (!asksForFork(message)) return;
                const pid_t child = forked();
                if (child == 0) ::_exit(statusAsStray(log));
                status = statusOf(child);
              });
              logWithAFork();
              RealLog::log(false, "after");
              ::_exit(status);
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("fork", "after"));
}

TEST_P(AForkInsideALogger, LeavesTheRecordToTheParentWhenTheChildReturns) {
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path(), nullptr, GetParam().processors);
              const pid_t parent = ::getpid();
              std::atomic<pid_t> child{0};
              add([&](const DDLogMessage& message) {
                if (asksForFork(message)) child = forked();
              });
              // Of the child's, which would be seen in its status.
              add([&](const DDLogMessage&) {
                if (::getpid() != parent) ::_exit(5);
              });
              logWithAFork();
              DDLog::flushLog();
              // A caller who delivered the record goes on in the child; the watch ends there, and with it the child.
              if (::getpid() != parent) ::_exit(statusAsStray(log));
              ::_exit(statusOf(child));
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("fork"));
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
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path(), nullptr, GetParam().processors);
              const pid_t parent = ::getpid();
              const auto formatter = std::make_shared<ForkingFormatter>();
              log.logger->setLogFormatter(formatter);
              RealLog::log(true, "before");
              logWithAFork();
              DDLog::flushLog();
              if (::getpid() != parent) ::_exit(statusAsStray(log));
              ::_exit(statusOf(formatter->child));
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("before", "fork"));
}

TEST_P(AForkInsideALogger, AndOneOfAnotherThreadDoNotWaitForEachOther) {
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path(), nullptr, GetParam().processors);
              std::binary_semaphore isInside(0);
              std::atomic<pid_t> inner{0};
              add([&](const DDLogMessage& message) {
                if (!asksForFork(message)) return;
                isInside.release();
                for (int i = 0; i < 100; ++i) std::this_thread::yield();
                inner = forked();
                if (inner == 0) ::_exit(0);
              });
              int innerStatus = -1;
              std::thread logging([&] {
                logWithAFork();
                DDLog::flushLog();
                // The child dies with the thread that has forked it.
                innerStatus = statusOf(inner);
              });
              isInside.acquire();
              const pid_t outer = forked();
              if (outer == 0) ::_exit(0);
              logging.join();
              ::_exit(statusOf(outer) + innerStatus);
            }),
            0);
}

INSTANTIATE_TEST_SUITE_P(Records, AForkInsideALogger,
                         testing::Values(Way{true, 0}, Way{false, 0}, Way{true, 1}, Way{false, 1}), [](const auto& each) {
                           return std::string(each.param.isAsynchronous ? "Asynchronous" : "Synchronous") +
                                  (each.param.processors == 1 ? "OnOneProcessor" : "");
                         });

TEST(ForksOfLogging, ABlockOfTheLoggingQueueThatForksGivesAStray) {
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path());
              int status = -1;
              DDLog::loggingQueue().sync([&] {
                const pid_t child = forked();
                if (child == 0) ::_exit(statusAsStray(log));
                status = statusOf(child);
              });
              ::_exit(status);
            }),
            0);
}

// The fork is over before the logger is: the logger waits for it.
TEST(ForksOfLogging, AForkDoesNotWaitForABusyLogger) {
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path());
              std::binary_semaphore isBusy(0);
              std::binary_semaphore hasForked(0);
              add([&](const DDLogMessage& message) {
                if (!asksForFork(message)) return;
                isBusy.release();
                hasForked.acquire();
              });
              RealLog::log(true, "fork");
              isBusy.acquire();
              const pid_t child = forked();
              if (child == 0) ::_exit(statusAsStray(log));
              hasForked.release();
              const int status = statusOf(child);
              DDLog::flushLog();
              ::_exit(status);
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("fork"));
}

TEST(ForksOfLogging, AStrayLeavesTheLinesOfItsParentWhenItEnds) {
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              auto log = std::make_unique<RealLog>(uniqueName(), folder.path());
              pid_t child = 0;
              DDLog::loggingQueue().sync([&] {
                RealLog::log(true, "line");
                child = forked();
              });
              log.reset();
              if (child == 0) ::_exit(0);
              ::_exit(statusOf(child));
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("line"));
}

TEST(ForksOfLogging, AChildEndsItsPlatformThoughAThreadOfItsParentWasLogging) {
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              auto log = std::make_unique<RealLog>(uniqueName(), folder.path());
              std::binary_semaphore isLogging(0);
              std::binary_semaphore hasForked(0);
              std::thread logging([&] {
                const platform::Visit visit;
                isLogging.release();
                hasForked.acquire();
              });
              isLogging.acquire();
              const pid_t child = forked();
              if (child == 0) {
                log.reset();
                ::_exit(0);
              }
              hasForked.release();
              logging.join();
              ::_exit(statusOf(child));
            }),
            0);
}

namespace {

// A file that was deleted and takes long to close.
class DeletedFile final : public platform::LogFile {
 public:
  DeletedFile(std::binary_semaphore& isClosing, std::binary_semaphore& mayClose)
      : _isClosing(isClosing), _mayClose(mayClose) {}
  ~DeletedFile() override {
    _isClosing.release();
    _mayClose.acquire();
  }
  DeletedFile(const DeletedFile&) = delete;
  DeletedFile& operator=(const DeletedFile&) = delete;
  std::size_t append(std::string_view bytes, int&) override { return bytes.size(); }
  [[nodiscard]] std::uint64_t size() const override { return 0; }
  [[nodiscard]] std::string contentsFrom(std::uint64_t) const override { return {}; }
  bool synchronize() override { return true; }
  void endUse() override {}
  [[nodiscard]] Place placeOf(const std::string&) const override { return Place::unlinked; }

 private:
  std::binary_semaphore& _isClosing;
  std::binary_semaphore& _mayClose;
};

// Is destroyed by the process that made it.
struct Own {
  Own() = default;
  ~Own() {
    if (::getpid() != process) ::_exit(7);
  }
  Own(const Own&) = default;
  Own& operator=(const Own&) = delete;
  const pid_t process = ::getpid();
};

}  // namespace

// The list of the files that are finishing is in the middle of a change meanwhile.
TEST(ForksOfLogging, AChildLeavesAloneWhatItsParentWasClosing) {
  EXPECT_EQ(statusOfProcess([] {
              std::binary_semaphore isClosing(0);
              std::binary_semaphore mayClose(0);
              LogFileFinisher finisher;
              for (const char* path : {"one", "two"})
                finisher.finish(std::make_unique<DeletedFile>(isClosing, mayClose), path, [own = Own()](bool) {});
              isClosing.acquire();
              const pid_t child = forked();
              if (child == 0) {
                finisher.didFork();
                bool isFinished = false;
                mayClose.release();
                finisher.finish(std::make_unique<DeletedFile>(isClosing, mayClose), "three",
                                [&](bool) { isFinished = true; });
                finisher.finishNow();
                ::_exit(isFinished ? 0 : 1);
              }
              const int status = statusOf(child);
              mayClose.release();
              isClosing.acquire();
              mayClose.release();
              ::_exit(status);
            }),
            0);
}

// The watch seldom comes between the block and the fork.
TEST(ForksOfLogging, AChildIsThereThoughABlockWaitedWithSomethingThatLogsWhenItEnds) {
  struct Talkative {
    ~Talkative() { RealLog::log(true, "farewell"); }
  };
  constexpr int rounds = 10;
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              const RealLog log(uniqueName(), folder.path());
              for (int i = 0; i < rounds; ++i) {
                DDLog::loggingQueue().async([talkative = std::make_shared<Talkative>()] {});
                const pid_t child = forked();
                if (child == 0) ::_exit(0);
                // One that hangs in its fork has no alarm yet.
                if (!tests::eventually([&] { return isOver(child); }, std::chrono::seconds(10))) {
                  ::kill(child, SIGKILL);
                  ::_exit(1);
                }
                DDLog::flushLog();
              }
              DDLog::flushLog();
              ::_exit(0);
            }),
            0);
  EXPECT_EQ(messagesIn(folder.path()), std::vector<std::string>(rounds, "farewell"));
}

// In some of the rounds the fork falls into the first statement.
TEST(ForksOfLogging, AChildOfAForkDuringTheFirstStatementLogs) {
  const tests::TemporaryFolder folder;
  for (int round = 0; round < 30; ++round) {
    EXPECT_EQ(
        statusOfProcess([&] {
          platform::Linux::LoggingHost host;
          platform::fake::FakePlatform fake;
          fake.clock.stepAside();
          platform::Linux::SurvivingMemories memories(folder.path());
          platform::LoggingHost parts{host.storage, host.process, host.standardError, host.leveledSystemLog, memories};
          fake.platform.loggingHost = &parts;
          std::atomic<bool> hasBegun{false};
          std::thread first([&] {
            hasBegun = true;
            RealLog::log(false, "first");
          });
          while (!hasBegun) std::this_thread::yield();
          const pid_t child = forked();
          if (child == 0) {
            ::alarm(10);
            RealLog::log(false, "child");
            ::_exit(0);
          }
          first.join();
          ::_exit(statusOf(child));
        }),
        0);
  }
}

namespace {

// Counts what is stored, and whether the store was told of a fork.
class CountingDatabase final : public DDAbstractDatabaseLogger {
 public:
  CountingDatabase() : DDAbstractDatabaseLogger("counting") {}
  int batch = 0;
  int saved = 0;
  int forks = 0;

 protected:
  bool db_log(const DDLogMessage&) override {
    ++batch;
    return true;
  }
  void db_save() override { saved += std::exchange(batch, 0); }
  void db_didFork() override {
    batch = 0;
    ++forks;
  }
};

}  // namespace

TEST(ForksOfLogging, AChildDoesNotStoreTheBatchOfItsParent) {
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              RealLog log(uniqueName(), folder.path());
              const auto database = std::make_shared<CountingDatabase>();
              DDLog::addLogger(database);
              for (int i = 0; i < 5; ++i) RealLog::log(true, "parent");
              DDLog::loggingQueue().sync([] {});
              const pid_t child = forked();
              if (child == 0) {
                DDLog::flushLog();
                if (database->saved != 0 || database->forks != 1) ::_exit(1);
                RealLog::log(true, "child");
                DDLog::flushLog();
                ::_exit(database->saved == 1 ? 0 : 2);
              }
              const int status = statusOf(child);
              DDLog::flushLog();
              ::_exit(status != 0 ? status : database->saved == 5 ? 0 : 3);
            }),
            0);
}

TEST(ThreadsOfLogging, ThatCannotBeHadLeaveTheWorkToTheCallers) {
  const tests::TemporaryFolder folder;
  ::chmod(folder.path().c_str(), 0777);
  EXPECT_EQ(statusOfProcess([&] {
              // Root is above the limit; a user with no other process is not.
              if (::geteuid() == 0 && ::setuid(54321) != 0) ::_exit(9);
              const rlimit none{0, 0};
              ::setrlimit(RLIMIT_NPROC, &none);
              RealLog log(uniqueName(), folder.path());
              std::atomic<int> count{0};
              add([&](const DDLogMessage&) { ++count; });
              for (int i = 0; i < 2500; ++i) RealLog::log(true, "one");
              if (count != 2500) ::_exit(2);
              RealLog::log(false, "two");
              DDLog::flushLog();
              ::_exit(count == 2501 && messagesIn(folder.path()).size() == 2501 ? 0 : 1);
            }),
            0);
}

namespace {

// Two loggers that need the onlooker for "awaited" have had it although there was `error` instead of a thread at first.
template <class Error>
void expectThreadsAfter(const Error& error) {
  static const Error* shortage;
  static std::atomic<bool> hasThreads;
  shortage = &error;
  hasThreads = false;
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              foundation::Threads::setStarter([](std::function<void()> work) {
                if (!hasThreads) throw Error(*shortage);
                return platform::Linux::OwnThreads::start(std::move(work));
              });
              RealLog log(uniqueName(), folder.path(), nullptr, 2);
              std::binary_semaphore hasCome(0);
              const auto isAwaited = [](const DDLogMessage& message) { return message.logMsg() == "awaited"; };
              add([&](const DDLogMessage& message) {
                if (isAwaited(message)) hasCome.acquire();
              });
              add([&](const DDLogMessage& message) {
                if (isAwaited(message)) hasCome.release();
              });
              RealLog::log(false, "one");
              hasThreads = true;
              RealLog::log(false, "awaited");
              ::_exit(0);
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), ElementsAre("one", "awaited"));
}

}  // namespace

TEST(ThreadsOfLogging, ThatNeverComeLeaveEverythingToTheCallers) {
  class Guest final : public DDAbstractLogger {
   public:
    explicit Guest(std::vector<std::string>& notes) : DDAbstractLogger("guest"), _notes(notes) {}
    ~Guest() override { _notes.emplace_back("gone"); }
    void didAddLogger() override { _notes.emplace_back("added"); }
    void logMessage(const DDLogMessage& message) override { _notes.emplace_back(message.logMsg()); }
    void flush() override { _notes.emplace_back("flushed"); }
    void willRemoveLogger() override { _notes.emplace_back("removed"); }

   private:
    std::vector<std::string>& _notes;
  };
  const tests::TemporaryFolder folder;
  EXPECT_EQ(statusOfProcess([&] {
              foundation::Threads::setStarter([](std::function<void()>) -> std::thread {
                throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
              });
              std::vector<std::string> notes;
              auto log = std::make_unique<RealLog>(uniqueName(), folder.path());
              auto guest = std::make_shared<Guest>(notes);
              // Each is done when the call returns: no other thread could do it.
              DDLog::addLogger(guest);
              RealLog::log(true, "one");
              RealLog::log(true, "two");
              RealLog::log(false, "three");
              DDLog::loggingQueue().async([&] { notes.emplace_back("block"); });
              DDLog::flushLog();
              log->logger->rollLogFile();
              DDLog::removeLogger(std::move(guest));
              RealLog::log(true, "four");
              const std::vector<std::string> expected{"added", "one",     "two",     "three",
                                                      "block", "flushed", "removed", "gone"};
              if (notes != expected) ::_exit(1);
              log.reset();
              ::_exit(0);
            }),
            0);
  EXPECT_THAT(messagesIn(folder.path()), testing::UnorderedElementsAre("one", "two", "three", "four"));
}

TEST(ThreadsOfLogging, ThatCouldNotBeHadAreAskedForAgain) {
  expectThreadsAfter(std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again)));
}

TEST(ThreadsOfLogging, ThatFoundNoMemoryAreAskedForAgain) { expectThreadsAfter(std::bad_alloc()); }
