#pragma once
// The contracts of the small interfaces that logging uses: ProcessInfo, Terminal, SurvivingMemories and SurvivingMemory.
//
// A World for ProcessInfo has: `process()`; for Terminal: `terminal()`, which is a file, and `text()`, all that was
// written; for SurvivingMemories: `memories()`, and `die()`, after which the memories made so far belong to a process
// that has died.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "platform/LoggingHost.h"

namespace tests::contracts {

template <class World>
class ProcessInfoContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(ProcessInfoContract);

TYPED_TEST_P(ProcessInfoContract, TheProcessHasANameAndANumber) {
  EXPECT_NE(this->world.process().processName(), "");
  EXPECT_GT(this->world.process().processIdentifier(), 0);
  EXPECT_GT(this->world.process().processorCount(), 0U);
}

TYPED_TEST_P(ProcessInfoContract, EveryThreadHasANumberOfItsOwn) {
  const auto own = this->world.process().currentThreadIdentifier();
  std::uint32_t other = 0;
  std::thread([&] { other = this->world.process().currentThreadIdentifier(); }).join();
  EXPECT_EQ(this->world.process().currentThreadIdentifier(), own);
  EXPECT_NE(other, own);
}

TYPED_TEST_P(ProcessInfoContract, WhetherThreadsCanBeFencedNeverChanges) {
  EXPECT_EQ(this->world.process().fenceOtherThreads(), this->world.process().fenceOtherThreads());
}

REGISTER_TYPED_TEST_SUITE_P(ProcessInfoContract, TheProcessHasANameAndANumber, EveryThreadHasANumberOfItsOwn,
                            WhetherThreadsCanBeFencedNeverChanges);

template <class World>
class TerminalContract : public testing::Test {
 protected:
  World world;
};

TYPED_TEST_SUITE_P(TerminalContract);

TYPED_TEST_P(TerminalContract, AFileIsNotATerminal) { EXPECT_FALSE(this->world.terminal().isTerminal()); }

TYPED_TEST_P(TerminalContract, PiecesAreWrittenOneAfterTheOther) {
  this->world.terminal().write(std::array<std::string_view, 3>{"one ", "", "two\n"});
  this->world.terminal().write(std::array<std::string_view, 1>{"three\n"});
  EXPECT_EQ(this->world.text(), "one two\nthree\n");
}

REGISTER_TYPED_TEST_SUITE_P(TerminalContract, AFileIsNotATerminal, PiecesAreWrittenOneAfterTheOther);

template <class World>
class SurvivingMemoriesContract : public testing::Test {
 protected:
  static constexpr std::size_t size = 8192;
  World world;
};

TYPED_TEST_SUITE_P(SurvivingMemoriesContract);

TYPED_TEST_P(SurvivingMemoriesContract, NewMemoryIsAllZero) {
  const auto memory = this->world.memories().make("name", this->size);
  ASSERT_NE(memory, nullptr);
  ASSERT_EQ(memory->bytes().size(), this->size);
  EXPECT_THAT(memory->bytes(), testing::Each(std::byte{0}));
}

TYPED_TEST_P(SurvivingMemoriesContract, TheMemoryOfARunningProcessIsNotGivenAway) {
  const auto memory = this->world.memories().make("name", this->size);
  EXPECT_THAT(this->world.memories().orphans("name", this->size), testing::IsEmpty());
}

TYPED_TEST_P(SurvivingMemoriesContract, TheMemoryOfADeadProcessIsGivenToOneCallerWithItsBytes) {
  auto memory = this->world.memories().make("name", this->size);
  memory->bytes()[5] = std::byte{42};
  memory.reset();
  this->world.die();
  const auto orphans = this->world.memories().orphans("name", this->size);
  ASSERT_EQ(orphans.size(), 1U);
  EXPECT_EQ(orphans[0]->bytes()[5], std::byte{42});
  EXPECT_THAT(this->world.memories().orphans("name", this->size), testing::IsEmpty());
}

TYPED_TEST_P(SurvivingMemoriesContract, MemoryOfAnotherNameOrSizeIsNotGivenAway) {
  this->world.memories().make("name", this->size).reset();
  this->world.die();
  EXPECT_THAT(this->world.memories().orphans("another", this->size), testing::IsEmpty());
  EXPECT_THAT(this->world.memories().orphans("name", this->size / 2), testing::IsEmpty());
}

TYPED_TEST_P(SurvivingMemoriesContract, DiscardedMemoryIsForgotten) {
  auto memory = this->world.memories().make("name", this->size);
  memory->discard();
  memory.reset();
  this->world.die();
  EXPECT_THAT(this->world.memories().orphans("name", this->size), testing::IsEmpty());
}

REGISTER_TYPED_TEST_SUITE_P(SurvivingMemoriesContract, NewMemoryIsAllZero, TheMemoryOfARunningProcessIsNotGivenAway,
                            TheMemoryOfADeadProcessIsGivenToOneCallerWithItsBytes, MemoryOfAnotherNameOrSizeIsNotGivenAway,
                            DiscardedMemoryIsForgotten);

}  // namespace tests::contracts
