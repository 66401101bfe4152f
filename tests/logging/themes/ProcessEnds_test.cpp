// Records and loggers at the very end of a process, and in children that end at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "tests/logging/ForwardingStorage.h"
#include "tests/logging/RealLog.h"
#include "tests/support/Eventually.h"

using namespace tests;
using testing::SizeIs;

namespace {

// Made before anything that logs, and so destroyed after it.
bool saysFarewell = false;
struct Talkative {
  ~Talkative() {
    if (!saysFarewell) return;
    for (int i = 0; i < 20; ++i) RealLog::log(true, "farewell");
    // Nobody gets the time to write them later.
    ::_exit(0);
  }
};
const Talkative talkative;

// The exit status of a process that does `work`; one that hangs is killed.
int statusOfProcess(const std::function<void()>& work) {
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(30);
    work();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

}  // namespace

TEST(ProcessEnds, AnAsynchronousRecordOfAStaticObjectIsOnFile) {
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    // Never destroyed, as an object of `main` is not when somebody calls exit.
    new RealLog(uniqueName(), folder.path());
    RealLog::log(true, "life");
    saysFarewell = true;
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(21));
}

TEST(ProcessEnds, AnEndByExitLeavesNothingToComplete) {
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    new RealLog(uniqueName(), folder.path());
    RealLog::log(true, "life");
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::filesystem::is_empty(RealLog::memoryFolder(folder.path())));
}

TEST(ProcessEnds, RecordsThatAFullDiskHasNotTakenAreThereForTheNextProcess) {
  // Takes nothing.
  class FullStorage final : public ForwardingStorage {
   public:
    class FullFile final : public ForwardingFile {
     public:
      using ForwardingFile::ForwardingFile;
      std::size_t append(std::string_view, int& error) override {
        error = ENOSPC;
        return 0;
      }
    };
    std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
      return std::make_unique<FullFile>(ForwardingStorage::openFile(path));
    }
  };
  const tests::TemporaryFolder folder;
  const std::string name = uniqueName();
  const int status = statusOfProcess([&] {
    new RealLog(name, folder.path(), new FullStorage);
    for (int i = 0; i < 200; ++i) RealLog::log(true, std::to_string(i));
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  { const RealLog next(name, folder.path()); }
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(200));
}

TEST(ProcessEnds, OtherThreadsMayLogWhileItEnds) {
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    new RealLog(uniqueName(), folder.path());
    std::atomic<int> begun{0};
    for (int t = 0; t < 4; ++t)
      std::thread([&begun, t] {
        for (int i = 0;; ++i) {
          RealLog::log(i % 5 != 0, "thread " + std::to_string(t));
          if (i == 10) ++begun;
        }
      }).detach();
    while (begun < 4) std::this_thread::yield();
    RealLog::log(true, "the last of main");
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  const auto messages = messagesIn(folder.path());
  EXPECT_EQ(std::ranges::count(messages, "the last of main"), 1);
}

TEST(ProcessEnds, AChildThatEndsAtOnceHarmsNothing) {
  const tests::TemporaryFolder folder;
  const RealLog log(uniqueName(), folder.path());
  for (int i = 0; i < 20; ++i) {
    RealLog::log(true, "before " + std::to_string(i));
    EXPECT_EQ(statusOfProcess([] {}), 0);
  }
  DDLog::flushLog();
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(20));
}

TEST(ProcessEnds, ALoggerThatIsRemovedRightBeforeIsToldAndGone) {
  class Slow : public DDAbstractLogger {
   public:
    explicit Slow(std::string path) : DDAbstractLogger("slow"), _path(std::move(path)) {}
    ~Slow() override { tests::writeFile(_path, _notes + "gone"); }
    void willRemoveLogger() override {
      for (int i = 0; i < 100; ++i) std::this_thread::yield();
      _notes = "told ";
    }

   private:
    const std::string _path;
    std::string _notes;
  };
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    new RealLog(uniqueName(), folder.path());
    DDLog::addLogger(std::make_shared<Slow>(folder.path("slow")));
    RealLog::log(true, "one");
    DDLog::removeAllLoggers();
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_EQ(tests::readFile(folder.path("slow")), "told gone");
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(1));
}

TEST(ProcessEnds, RecordsOfALoggerBeforeItsRemovalAreOnFileAfterAFlush) {
  const tests::TemporaryFolder folder;
  const RealLog log(uniqueName(), folder.path());
  for (int i = 0; i < 50; ++i) RealLog::log(true, "one");
  DDLog::removeLogger(log.logger);
  DDLog::flushLog();
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(50));
}

TEST(ProcessEnds, AChildDoesNotWaitForAFileThatItsParentIsFinishing) {
  // A medium that takes its time.
  class SlowStorage final : public ForwardingStorage {
   public:
    class SlowFile final : public ForwardingFile {
     public:
      SlowFile(std::unique_ptr<platform::LogFile> file, SlowStorage& storage)
          : ForwardingFile(std::move(file)), _storage(storage) {}
      bool synchronize() override {
        _storage.isBusy = true;
        return tests::eventually([&] { return !_storage.isSlow; }, std::chrono::seconds(60));
      }

     private:
      SlowStorage& _storage;
    };
    std::unique_ptr<platform::LogFile> openFile(const std::string& path) override {
      return std::make_unique<SlowFile>(ForwardingStorage::openFile(path), *this);
    }
    std::atomic<bool> isSlow{true};
    std::atomic<bool> isBusy{false};
  };
  const tests::TemporaryFolder folder;
  SlowStorage storage;
  RealLog log(uniqueName(), folder.path(), &storage);
  RealLog::log(false, "parent");
  log.logger->rollLogFile();
  ASSERT_TRUE(tests::eventually([&] { return storage.isBusy.load(); }));
  const int status = statusOfProcess([&] {
    storage.isSlow = false;
    RealLog::log(false, "child");
    log.logger->rollLogFile();
    DDLog::removeAllLoggers();
    DDLog::flushLog();
    // The core has let go of it then, and it ends here.
    log.logger->loggerQueue()->sync([] {});
    log.logger.reset();
  });
  storage.isSlow = false;
  EXPECT_EQ(status, 0);
  EXPECT_THAT(messagesIn(folder.path()), testing::UnorderedElementsAre("parent", "child"));
}

TEST(ProcessEnds, ARecordThatTheFileLoggerDroppedOrHadWrittenIsNotBroughtBack) {
  class Dropping : public DDLogFormatter {
   public:
    std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string&) override {
      return message.logMsg() == "dropped" ? std::nullopt : std::optional(message.logMsg());
    }
  };
  class Deadly : public DDAbstractLogger {
   public:
    explicit Deadly(std::string last) : DDAbstractLogger("deadly"), _last(std::move(last)) {}
    void logMessage(const DDLogMessage& message) override {
      if (message.logMsg() == _last) ::raise(SIGKILL);
    }

   private:
    const std::string _last;
  };
  // Too long to be put aside.
  const std::string tooLong(100000, 'x');
  for (const std::string& last : {std::string("dropped"), tooLong}) {
    const tests::TemporaryFolder folder;
    const std::string name = uniqueName();
    const int status = statusOfProcess([&] {
      const RealLog log(name, folder.path());
      log.logger->setLogFormatter(std::make_shared<Dropping>());
      DDLog::addLogger(std::make_shared<Deadly>(last));
      RealLog::log(false, last);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    { const RealLog next(name, folder.path()); }
    EXPECT_THAT(messagesIn(folder.path()), SizeIs(last == tooLong ? 1 : 0));
  }
}

// Loggers that log themselves while the process ends.

namespace {

// Logs once in one of its moments.
class Chatty : public DDAbstractLogger {
 public:
  enum class Moment { record, flush, removal };
  explicit Chatty(Moment moment) : DDAbstractLogger("chatty"), _moment(moment) {}
  void logMessage(const DDLogMessage& /*message*/) override { speakAt(Moment::record); }
  void flush() override { speakAt(Moment::flush); }
  void willRemoveLogger() override { speakAt(Moment::removal); }

 private:
  void speakAt(Moment moment) {
    if (moment == _moment && !std::exchange(_hasSpoken, true)) RealLog::log(true, "by the way");
  }

  const Moment _moment;
  bool _hasSpoken = false;
};

// The messages on file of a process that ends by exit with such a logger.
std::vector<std::string> messagesWithLoggerThatLogsAt(Chatty::Moment moment) {
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    new RealLog(uniqueName(), folder.path());
    const auto chatty = std::make_shared<Chatty>(moment);
    DDLog::addLogger(chatty);
    DDLog::loggingQueue().sync([] {});
    if (moment == Chatty::Moment::removal) DDLog::removeLogger(chatty);
    saysFarewell = moment == Chatty::Moment::record;
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  return messagesIn(folder.path());
}

}  // namespace

TEST(ProcessEnds, ALoggerMayLogWhileItHasTheRecordOfAStaticObject) {
  const auto messages = messagesWithLoggerThatLogsAt(Chatty::Moment::record);
  EXPECT_EQ(std::ranges::count(messages, "farewell"), 20);
  EXPECT_EQ(std::ranges::count(messages, "by the way"), 1);
}

TEST(ProcessEnds, ALoggerMayLogWhileItFlushes) {
  EXPECT_THAT(messagesWithLoggerThatLogsAt(Chatty::Moment::flush), testing::ElementsAre("by the way"));
}

TEST(ProcessEnds, ALoggerMayLogWhileItIsRemoved) {
  EXPECT_THAT(messagesWithLoggerThatLogsAt(Chatty::Moment::removal), testing::ElementsAre("by the way"));
}
