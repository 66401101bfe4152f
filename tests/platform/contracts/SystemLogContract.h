#pragma once
// The contract of SystemLog.
//
// A World has: `log()`, and `lines()`: the lines that came out so far, without what the log puts in front of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/SystemLog.h"

namespace tests::contracts {

template <class World>
class SystemLogContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(SystemLogContract);

TYPED_TEST_P(SystemLogContract, LinesComeOutInOrder) {
  this->world.log().log("first line");
  this->world.log().log("second %s line");
  EXPECT_THAT(this->world.lines(), testing::ElementsAre("first line", "second %s line"));
}

TYPED_TEST_P(SystemLogContract, ControlCharactersComeOutAsHexadecimal) {
  this->world.log().log("two\nlines \x1B[0m");
  EXPECT_THAT(this->world.lines(), testing::ElementsAre("two\\x0alines \\x1b[0m"));
}

REGISTER_TYPED_TEST_SUITE_P(SystemLogContract, LinesComeOutInOrder, ControlCharactersComeOutAsHexadecimal);

}  // namespace tests::contracts
