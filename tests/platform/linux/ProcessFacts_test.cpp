#include "platform/linux/ProcessFacts.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/Eventually.h"

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

TEST(ProcessFacts, AVariableIsFoundByItsWholeName) {
  using namespace std::string_view_literals;
  constexpr auto environment = "LONG_NAME=1\0NAME_LONG=2\0NAME\0NAME=a=b\0NAME=later\0EMPTY=\0LAST=3"sv;
  EXPECT_EQ(valueIn(environment, "NAME"), "a=b");
  EXPECT_EQ(valueIn(environment, "EMPTY"), "");
  EXPECT_EQ(valueIn(environment, "LAST"), "3");
  EXPECT_EQ(valueIn(environment, "LON"), std::nullopt);
  EXPECT_EQ(valueIn("", "NAME"), std::nullopt);
}

TEST(ProcessFacts, AnEnvironmentOfManyPagesIsReadToItsEnd) {
  const std::string value(100'000, 'x');
  const std::string large = "LARGE=" + value;
  const char* words[] = {"sleep", "1000", nullptr};
  const char* variables[] = {large.c_str(), "LAST=here", nullptr};
  const pid_t process = ::fork();
  if (process == 0) {
    ::execve("/bin/sleep", const_cast<char**>(words), const_cast<char**>(variables));
    ::_exit(127);
  }
  EXPECT_TRUE(tests::eventually([&] { return environmentValueOf(process, "LAST") == "here"; }));
  EXPECT_EQ(environmentValueOf(process, "LARGE"), value);
  ::kill(process, SIGKILL);
  ::waitpid(process, nullptr, 0);
}

}  // namespace
}  // namespace platform::Linux
