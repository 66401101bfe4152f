// Queues when the process forks.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "foundation/dispatch/Dispatch.h"
#include "foundation/dispatch/Fork.h"
#include "foundation/dispatch/Threads.h"
#include "tests/foundation/dispatch/ForkedChild.h"
#include "tests/support/Eventually.h"
#include "tests/support/SharedCount.h"

using foundation::Dispatch::Semaphore;
using foundation::Dispatch::SerialQueue;
using tests::isAsleep;
using tests::statusOfChild;

namespace {

// The pool has threads that wait when this is over.
void runSomething() {
  Semaphore done(0);
  SerialQueue::make("some")->async([&] { done.release(); });
  done.acquire();
}

// The system has so many threads more for this process.
void leaveThreads(int count) {
  static std::atomic<int> threads;
  threads = count;
  foundation::Threads::setStarter([](std::function<void()> work) {
    if (threads-- <= 0) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    return std::thread(std::move(work));
  });
}

// Whether `wait`, on the only thread of the pool, returns when `end` is called once it waits.
bool endsWithoutAThread(const std::function<void()>& wait, const std::function<void()>& end) {
  const auto queue = SerialQueue::make("waiting");
  std::atomic<pid_t> waiting{0};
  std::atomic<bool> isOver{false};
  queue->async([&] {
    waiting = ::gettid();
    wait();
    isOver = true;
  });
  if (!tests::eventually([&] { return waiting != 0 && isAsleep(waiting); })) return false;
  end();
  return tests::eventually([&] { return isOver.load(); }, std::chrono::seconds(10));
}

}  // namespace

TEST(DispatchFork, AChildRunsItsOwnBlocks) {
  runSomething();
  EXPECT_EQ(statusOfChild([] {
              for (int i = 0; i < 3; ++i) runSomething();
              return 0;
            }),
            0);
}

TEST(DispatchFork, BlocksOfTheParentRunThereAndOnce) {
  tests::SharedCount count;
  for (int i = 0; i < 50; ++i) {
    const auto queue = SerialQueue::make("parent");
    queue->async([&] { count.increment(); });
    EXPECT_EQ(statusOfChild([] {
                for (int n = 0; n < 3; ++n) runSomething();
                return 0;
              }),
              0);
    queue->sync([] {});
    ASSERT_EQ(count.value(), i + 1);
  }
}

TEST(DispatchFork, ABlockThatHasNoThreadYetDoesNotEndInTheChild) {
  struct Submitting {
    ~Submitting() {
      SerialQueue::make("late")->async([] {});
    }
  };
  static std::atomic<bool> mayBegin{false};
  EXPECT_EQ(statusOfChild([] {
              foundation::Threads::setStarter([](std::function<void()> work) {
                return std::thread([work = std::move(work)] {
                  while (!mayBegin) std::this_thread::yield();
                  work();
                });
              });
              SerialQueue::make("early")->async([submitting = std::make_shared<Submitting>()] {});
              const int status = statusOfChild([] { return 0; });
              mayBegin = true;
              return status == 0 ? 0 : 1;
            }),
            0);
}

TEST(DispatchFork, ABlockThatRunsIsFinishedFirst) {
  Semaphore hasBegun(0);
  std::atomic<bool> isFinished{false};
  const auto queue = SerialQueue::make("running");
  queue->async([&] {
    hasBegun.release();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    isFinished = true;
  });
  hasBegun.acquire();
  EXPECT_EQ(statusOfChild([&] { return isFinished ? 0 : 1; }), 0);
  queue->sync([] {});
}

TEST(DispatchFork, ABlockThatIsStuckHoldsNoForkUp) {
  Semaphore hasBegun(0);
  Semaphore mayEnd(0);
  const auto queue = SerialQueue::make("stuck");
  queue->async([&] {
    hasBegun.release();
    mayEnd.acquire();
  });
  hasBegun.acquire();
  EXPECT_EQ(statusOfChild([] {
              runSomething();
              return 0;
            }),
            0);
  mayEnd.release();
  queue->sync([] {});
}

TEST(DispatchFork, AQueueThatIsKeptAtRestIsFreeInTheChildAndAfterwards) {
  const auto queue = SerialQueue::make("resting");
  ASSERT_TRUE(queue->tryEnter());
  EXPECT_FALSE(queue->tryEnter());
  EXPECT_EQ(statusOfChild([&] {
              queue->resetAfterFork();
              queue->sync([] {});
              return 0;
            }),
            0);
  queue->leave();
  queue->sync([] {});
}

// It may have been in the middle of being put in.
TEST(DispatchFork, BlocksThatWaitOnAQueueOfTheParentDoNotEndInTheChild) {
  struct Own {
    ~Own() {
      if (::getpid() != process) ::_exit(7);
    }
    const pid_t process = ::getpid();
  };
  const auto queue = SerialQueue::make("resting");
  ASSERT_TRUE(queue->tryEnter());
  queue->async([own = std::make_shared<Own>()] {});
  EXPECT_EQ(statusOfChild([&] {
              queue->resetAfterFork();
              queue->sync([] {});
              return 0;
            }),
            0);
  queue->leave();
  queue->sync([] {});
}

TEST(DispatchFork, AQueueWithABlockIsNotAtRest) {
  Semaphore mayEnd(0);
  const auto queue = SerialQueue::make("busy");
  queue->async([&] { mayEnd.acquire(); });
  EXPECT_FALSE(queue->tryEnter());
  mayEnd.release();
  queue->sync([] {});
  EXPECT_TRUE(queue->tryEnter());
  queue->leave();
}

TEST(DispatchFork, ABlockThatForksGoesOnInTheChild) {
  EXPECT_EQ(statusOfChild([] {
              const auto queue = SerialQueue::make("forking");
              std::atomic<int> status{-1};
              Semaphore hasForked(0);
              queue->async([&] {
                foundation::Fork::prepare();
                const pid_t child = ::fork();
                if (child == 0) {
                  foundation::Fork::child();
                  ::alarm(30);
                  std::thread([&] {
                    queue->sync([] {});
                    runSomething();
                    ::_exit(0);
                  }).detach();
                  return;
                }
                foundation::Fork::parent();
                int result = -1;
                ::waitpid(child, &result, 0);
                status = result == 0 ? 0 : 1;
                hasForked.release();
              });
              hasForked.acquire();
              return status.load();
            }),
            0);
}

TEST(DispatchPool, WithoutAnyThreadCallersRunTheirJobs) {
  EXPECT_EQ(statusOfChild([] {
              leaveThreads(0);
              const auto outer = SerialQueue::make("outer");
              const auto inner = SerialQueue::make("inner");
              std::string order;
              outer->async([&] {
                order += "a";
                inner->async([&] {
                  order += "b";
                  outer->async([&] { order += "d"; });
                });
                order += "c";
              });
              foundation::Dispatch::Group group;
              inner->async(group, [&] { order += "e"; });
              group.wait();
              outer->sync([&] { order += "f"; });
              return order == "abcdef" ? 0 : 1;
            }),
            0);
}

TEST(DispatchPool, AJobThatWaitsForOneWithoutAThreadRunsIt) {
  EXPECT_EQ(statusOfChild([] {
              leaveThreads(1);
              const auto outer = SerialQueue::make("outer");
              const auto inner = SerialQueue::make("inner");
              Semaphore isOver(0);
              outer->async([&] {
                inner->async([] {});
                inner->sync([] {});
                foundation::Dispatch::Group group;
                inner->async(group, [] {});
                group.wait();
                isOver.release();
              });
              isOver.acquire();
              return 0;
            }),
            0);
}

TEST(DispatchPool, AJobThatAlreadyWaitsForItsTurnRunsTheOneThatComesWithoutAThread) {
  EXPECT_EQ(statusOfChild([] {
              leaveThreads(1);
              const auto queue = SerialQueue::make("awaited");
              std::optional<SerialQueue::Turn> turn(*queue);
              return endsWithoutAThread([&] { queue->sync([] {}); }, [&] { turn.reset(); }) ? 0 : 1;
            }),
            0);
}

TEST(DispatchPool, AJobThatAlreadyWaitsForAGroupRunsTheMemberThatComesWithoutAThread) {
  EXPECT_EQ(statusOfChild([] {
              leaveThreads(1);
              const auto queue = SerialQueue::make("member");
              foundation::Dispatch::Group group;
              group.enter();
              return endsWithoutAThread([&] { group.wait(); }, [&] { queue->async([&] { group.leave(); }); }) ? 0 : 1;
            }),
            0);
}
