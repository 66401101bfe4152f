#include "platform/linux/OwnThreads.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>

namespace platform::Linux {
namespace {

TEST(OwnThreads, TakeNoSignalsButTheirOwnFaults) {
  sigset_t mask{};
  OwnThreads::start([&] { ::pthread_sigmask(SIG_SETMASK, nullptr, &mask); }).join();
  for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGALRM, SIGCHLD, SIGUSR1, SIGPIPE})
    EXPECT_EQ(sigismember(&mask, signal), 1) << signal;
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) EXPECT_EQ(sigismember(&mask, fault), 0) << fault;
}

TEST(OwnThreads, LeaveTheSignalsOfTheirMakerAsTheyAre) {
  sigset_t mask{};
  OwnThreads::start([] {}).join();
  ::pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  EXPECT_EQ(sigismember(&mask, SIGTERM), 0);
}

TEST(OwnThreads, AreNotBoundToTheProcessorOfTheirMaker) {
  cpu_set_t before;
  ASSERT_EQ(::sched_getaffinity(0, sizeof before, &before), 0);
  if (CPU_COUNT(&before) < 2) GTEST_SKIP() << "one processor only";
  cpu_set_t seen;
  CPU_ZERO(&seen);
  // A maker of its own, whose binding ends with it.
  std::thread([&] {
    cpu_set_t own;
    CPU_ZERO(&own);
    CPU_SET(::sched_getcpu(), &own);
    ::sched_setaffinity(0, sizeof own, &own);
    OwnThreads::start([&] { ::sched_getaffinity(0, sizeof seen, &seen); }).join();
  }).join();
  EXPECT_EQ(CPU_COUNT(&seen), CPU_COUNT(&before));
}

TEST(OwnThreads, DoNotRunInRealTimeLikeTheirMaker) {
  int policy = -1;
  bool isRealTime = false;
  std::thread([&] {
    const sched_param lowest{1};
    isRealTime = ::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &lowest) == 0;
    OwnThreads::start([&] { policy = ::sched_getscheduler(0); }).join();
  }).join();
  if (!isRealTime) GTEST_SKIP() << "real-time scheduling needs a right";
  EXPECT_EQ(policy, SCHED_OTHER);
}

}  // namespace
}  // namespace platform::Linux
