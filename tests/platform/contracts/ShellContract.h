#pragma once
// The contract of Shell.
//
// A World has: `shell()` that knows the lines "true" and "exit 3".
#include <gtest/gtest.h>
#include <sys/wait.h>

#include "platform/Shell.h"

namespace tests::contracts {

template <class World>
class ShellContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(ShellContract);

TYPED_TEST_P(ShellContract, ASuccessfulLineGivesZero) { EXPECT_EQ(this->world.shell().system("true"), 0); }

TYPED_TEST_P(ShellContract, AFailedLineGivesTheStatusAsForWait) {
  const int status = this->world.shell().system("exit 3");
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TYPED_TEST_P(ShellContract, EachLineHasAStatusOfItsOwn) {
  this->world.shell().system("exit 3");
  EXPECT_EQ(this->world.shell().system("true"), 0);
}

REGISTER_TYPED_TEST_SUITE_P(ShellContract, ASuccessfulLineGivesZero, AFailedLineGivesTheStatusAsForWait,
                            EachLineHasAStatusOfItsOwn);

}  // namespace tests::contracts
