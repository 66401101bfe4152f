// The end of the platform while other threads log.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <thread>

#include "logging/KTLogger.h"
#include "tests/logging/RealLog.h"

using namespace tests;

namespace {

constexpr int threadCount = 4;
constexpr int platformCount = 50;

// How a process of its own ends that does `work`.
template <class Work>
int statusOfProcess(const Work& work) {
  [[maybe_unused]] const platform::Linux::LoggingHost host;  // makes forks known
  const pid_t child = ::fork();
  if (child == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(100);
    work();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return status;
}

// Threads that call `statement` with numbers that grow, all the time until the end of the object.
class Talkers {
 public:
  explicit Talkers(const std::function<void(int)>& statement) {
    for (int t = 0; t < threadCount; ++t)
      _threads.emplace_back([this, statement] {
        for (int i = 0; !_isOver; ++i) {
          statement(i);
          ++_count;
        }
      });
  }
  ~Talkers() {
    _isOver = true;
    for (auto& thread : _threads) thread.join();
  }
  Talkers(const Talkers&) = delete;
  Talkers& operator=(const Talkers&) = delete;

  // Returns when `count` more statements have been made.
  void waitFor(int count) const {
    const int end = _count + count;
    while (_count < end) std::this_thread::yield();
  }

 private:
  std::atomic<bool> _isOver{false};
  std::atomic<int> _count{0};
  std::vector<std::thread> _threads;
};

}  // namespace

TEST(PlatformEnds, ThreadsMayLogThroughTheCoreMeanwhile) {
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    const Talkers talkers([](int i) { RealLog::log(i % 50 != 0, "a record"); });
    for (int i = 0; i < platformCount; ++i) {
      const RealLog log(uniqueName(), folder.path("logs"));
      talkers.waitFor(100);
    }
    talkers.waitFor(100);
  });
  EXPECT_EQ(status, 0);
}

TEST(PlatformEnds, ThreadsMayLogThroughTheFacadeTheyHoldMeanwhile) {
  const int status = statusOfProcess([] {
    for (int i = 0; i < platformCount; ++i) {
      auto fake = std::make_unique<platform::fake::FakePlatform>();
      fake->clock.stepAside();
      KTLogger* const facade = KTLogger::sharedLogger();
      const Talkers talkers(
          [facade](int number) { facade->log_level_message("test", 3 + number % 3, "one of %d", number); });
      talkers.waitFor(100);
      fake.reset();
      talkers.waitFor(100);
    }
  });
  EXPECT_EQ(status, 0);
}

TEST(PlatformEnds, StatementsThatBeganBeforeHaveReachedTheLoggers) {
  const tests::TemporaryFolder folder;
  std::atomic<int> returned{0};
  {
    auto log = std::make_unique<RealLog>(uniqueName(), folder.path("logs"));
    const Talkers talkers([&returned](int) {
      if (platform::installed() == nullptr) return;
      RealLog::log(true, "a record");
      if (platform::installed() != nullptr) ++returned;
    });
    talkers.waitFor(1000);
    log.reset();
  }
  EXPECT_GE(static_cast<int>(messagesIn(folder.path("logs")).size()), returned);
}

TEST(PlatformEnds, ALoggerMayLogInItsLastMoments) {
  class Talkative : public DDAbstractLogger {
   public:
    Talkative() : DDAbstractLogger("talkative") {}
    void flush() override {
      if (!std::exchange(_hasFlushed, true)) RealLog::log(true, "last words");
    }

   private:
    bool _hasFlushed = false;
  };
  const tests::TemporaryFolder folder;
  {
    const RealLog log(uniqueName(), folder.path("logs"));
    DDLog::addLogger(std::make_shared<Talkative>());
    RealLog::log(true, "life");
  }
  EXPECT_EQ(messagesIn(folder.path("logs")), (std::vector<std::string>{"life", "last words"}));
}
