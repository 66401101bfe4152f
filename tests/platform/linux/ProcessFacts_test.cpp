#include "platform/linux/ProcessFacts.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>

namespace platform::Linux {
namespace {

TEST(ProcessFacts, AProcessThatEndsWhileItIsLookedAtHasEmptyFacts) {
  std::atomic<pid_t> process = 0;
  std::atomic<bool> isOver = false;
  std::thread looker([&] {
    while (!isOver) {
      const pid_t looked = process;
      if (looked == 0) continue;
      EXPECT_LT(argumentsOf(looked).size(), 100U);
      EXPECT_EQ(environmentValueOf(looked, "KELTO_NO_SUCH_VARIABLE"), std::nullopt);
    }
  });
  for (int times = 0; times < 500; ++times) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    process = child;
    ::waitpid(child, nullptr, 0);
  }
  isOver = true;
  looker.join();
  EXPECT_EQ(argumentsOf(process), std::vector<std::string>());
  EXPECT_EQ(startOf(process), 0U);
}

}  // namespace
}  // namespace platform::Linux
