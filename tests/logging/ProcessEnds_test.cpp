// Records at the very end of a process, and in children that end at once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <thread>

#include "tests/logging/RealLog.h"

using testing::SizeIs;

namespace {

// The exit status of a process that does `work`; one that hangs is killed.
int statusOfProcess(const std::function<void()>& work) {
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

TEST(ProcessEnds, WhatAStaticObjectLogsAsynchronouslyIsOnFile) {
  struct Talkative {
    ~Talkative() {
      for (int i = 0; i < 20; ++i) RealLog::log(true, "farewell");
    }
  };
  const tests::TemporaryFolder folder;
  const int status = statusOfProcess([&] {
    static const Talkative talkative;
    // Never destroyed, as an object of `main` is not when somebody calls exit.
    new RealLog(uniqueName(), folder.path());
    RealLog::log(true, "life");
    std::exit(0);
  });
  EXPECT_EQ(status, 0);
  EXPECT_THAT(messagesIn(folder.path()), SizeIs(21));
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
