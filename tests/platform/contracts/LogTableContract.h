#pragma once
// The contract of LogTable.
//
// A World has: `table()`, a new writer; `texts()`, of all rows in the order of their numbers; `disappear()` and `appear()`,
// for the server.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "platform/LogTable.h"

namespace tests::contracts {

template <class World>
class LogTableContract : public testing::Test {
 protected:
  using Outcome = platform::LogTable::Outcome;

  static constexpr foundation::Date now{std::chrono::seconds(1'700'000'000)};
  static platform::LogRow row(std::int64_t number, std::string text, foundation::Date time = now) {
    return {.number = number, .time = time, .text = std::move(text)};
  }

  World world;
  std::string cause;
};

TYPED_TEST_SUITE_P(LogTableContract);

TYPED_TEST_P(LogTableContract, RowsThatAreThereAreLeftOut) {
  const auto table = this->world.table();
  const std::vector rows{this->row(1, "one"), this->row(2, "two"), this->row(4, "four")};
  EXPECT_EQ(table->add(std::span(rows).first(2), this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_EQ(table->add(rows, this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_EQ(table->add(rows, this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_THAT(this->world.texts(), testing::ElementsAre("one", "two", "four"));
}

TYPED_TEST_P(LogTableContract, EveryWriterHasNumbersOfItsOwn) {
  const std::vector first{this->row(1, "one")};
  const std::vector second{this->row(1, "another")};
  EXPECT_EQ(this->world.table()->add(first, this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_EQ(this->world.table()->add(second, this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_THAT(this->world.texts(), testing::UnorderedElementsAre("one", "another"));
}

TYPED_TEST_P(LogTableContract, AWriterGoesOnWhenTheServerIsBack) {
  const auto table = this->world.table();
  const std::vector rows{this->row(1, "one"), this->row(2, "two")};
  EXPECT_EQ(table->add(std::span(rows).first(1), this->cause), TestFixture::Outcome::stored) << this->cause;
  this->world.disappear();
  EXPECT_EQ(table->add(rows, this->cause), TestFixture::Outcome::failed);
  EXPECT_NE(this->cause, "");
  EXPECT_FALSE(table->removeBefore(this->now, this->cause));
  this->world.appear();
  EXPECT_EQ(table->add(rows, this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_THAT(this->world.texts(), testing::ElementsAre("one", "two"));
}

TYPED_TEST_P(LogTableContract, OldRowsOfEveryWriterAreRemoved) {
  const std::vector old{this->row(1, "old", this->now - std::chrono::hours(1))};
  const std::vector recent{this->row(1, "recent")};
  EXPECT_EQ(this->world.table()->add(old, this->cause), TestFixture::Outcome::stored) << this->cause;
  const auto table = this->world.table();
  EXPECT_EQ(table->add(recent, this->cause), TestFixture::Outcome::stored) << this->cause;
  EXPECT_TRUE(table->removeBefore(this->now, this->cause)) << this->cause;
  EXPECT_THAT(this->world.texts(), testing::ElementsAre("recent"));
}

TYPED_TEST_P(LogTableContract, AWriterThatHasGivenUpFails) {
  const auto table = this->world.table();
  table->giveUp();
  const std::vector rows{this->row(1, "one")};
  EXPECT_EQ(table->add(rows, this->cause), TestFixture::Outcome::failed);
  EXPECT_THAT(this->world.texts(), testing::IsEmpty());
}

REGISTER_TYPED_TEST_SUITE_P(LogTableContract, RowsThatAreThereAreLeftOut, EveryWriterHasNumbersOfItsOwn,
                            AWriterGoesOnWhenTheServerIsBack, OldRowsOfEveryWriterAreRemoved, AWriterThatHasGivenUpFails);

}  // namespace tests::contracts
