#include "foundation/dispatch/Clock.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <new>
#include <optional>
#include <semaphore>
#include <system_error>
#include <thread>

#include "foundation/dispatch/Threads.h"
#include "tests/foundation/dispatch/ForkedChild.h"
#include "tests/support/Eventually.h"

using foundation::Clock;
using foundation::Uptime;

namespace {

constexpr std::chrono::seconds longTime{20};

bool isCalledSoon(const std::function<void()>& before) {
  const auto isCalled = std::make_shared<std::binary_semaphore>(0);
  before();
  Clock::current().callAt(Uptime{}, [isCalled] { isCalled->release(); });
  return isCalled->try_acquire_for(longTime);
}

// The status of a process in which the clock's thread cannot be started for `Error` at first.
template <class Error>
int statusWithoutAThread(Error error) {
  static std::optional<Error> shortage;
  static std::atomic<bool> hasThreads{false};
  shortage = error;
  hasThreads = false;
  return tests::statusOfChild([] {
    foundation::Threads::setStarter([](std::function<void()> work) {
      if (!hasThreads) throw Error(*shortage);
      return std::thread(std::move(work));
    });
    std::atomic<int> calls{0};
    Clock::current().callAt(Uptime{}, [&] { ++calls; });
    hasThreads = true;
    Clock::current().callAt(Uptime{}, [&] { ++calls; });
    return tests::eventually([&] { return calls == 2; }) ? 0 : 1;
  });
}

// Ends this process, which must not have asked for the time yet, with 0 when the child of a fork in the middle of another
// thread's first look at the clock can look at it too.
[[noreturn]] void forkDuringTheFirstLook() {
  // A clock that is being made waits from here on.
  foundation::Fork::prepare();
  std::atomic<pid_t> looking{0};
  std::thread first([&] {
    looking = ::gettid();
    Clock::current();
  });
  if (!tests::eventually([&] { return looking != 0 && tests::isAsleep(looking); })) ::_exit(2);
  const pid_t child = ::fork();
  if (child == 0) {
    ::alarm(10);
    foundation::Fork::child();
    Clock::current();
    ::_exit(0);
  }
  foundation::Fork::parent();
  first.join();
  int status = -1;
  ::waitpid(child, &status, 0);
  ::_exit(status == 0 ? 0 : 1);
}

}  // namespace

TEST(SystemClock, IsThereForAChildOfAForkDuringAnotherThreadsFirstLook) {
  // In a process of its own, where nobody has looked.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(forkDuringTheFirstLook(), testing::ExitedWithCode(0), "");
}

TEST(SystemClock, MakesACallAgainThatFoundNoMemory) {
  std::atomic<int> calls{0};
  EXPECT_TRUE(isCalledSoon([&] {
    Clock::current().callAt(Uptime{}, [&] {
      if (++calls < 3) throw std::bad_alloc();
    });
  }));
  EXPECT_TRUE(tests::eventually([&] { return calls == 3; }));
  // The clock is done with it.
  EXPECT_TRUE(isCalledSoon([] {}));
  EXPECT_EQ(calls, 3);
}

TEST(SystemClock, AsksForItsThreadAgainWhenTheSystemHadNone) {
  EXPECT_EQ(statusWithoutAThread(std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again))), 0);
}

TEST(SystemClock, AsksForItsThreadAgainWhenThereWasNoMemoryForIt) { EXPECT_EQ(statusWithoutAThread(std::bad_alloc()), 0); }
