#pragma once
// The contract of UserDefaults.
//
// A World has: `defaults()`, empty at first, and `unstorable()`, defaults that can store nothing.
#include <gtest/gtest.h>

#include "platform/UserDefaults.h"

namespace tests::contracts {

template <class World>
class UserDefaultsContract : public testing::Test {
 protected:
  platform::UserDefaults& defaults() { return world.defaults(); }
  World world;
};

TYPED_TEST_SUITE_P(UserDefaultsContract);

TYPED_TEST_P(UserDefaultsContract, AnUnknownKeyHasNoValue) {
  EXPECT_EQ(this->defaults().objectForKey("key"), std::nullopt);
  EXPECT_EQ(this->defaults().stringForKey("key"), std::nullopt);
  EXPECT_FALSE(this->defaults().boolForKey("key"));
  EXPECT_EQ(this->defaults().integerForKey("key"), 0);
}

TYPED_TEST_P(UserDefaultsContract, AValueThatWasSetComesBackUntilItIsRemoved) {
  const foundation::PropertyList::Value value(foundation::PropertyList::Array{"a", 1, true});
  EXPECT_TRUE(this->defaults().setObject("key", value));
  EXPECT_EQ(this->defaults().objectForKey("key"), value);
  EXPECT_TRUE(this->defaults().removeObject("key"));
  EXPECT_EQ(this->defaults().objectForKey("key"), std::nullopt);
  EXPECT_TRUE(this->defaults().removeObject("key"));
}

TYPED_TEST_P(UserDefaultsContract, ALaterValueReplacesAnEarlierOne) {
  this->defaults().setObject("key", "first");
  this->defaults().setObject("key", 2);
  EXPECT_EQ(this->defaults().stringForKey("key"), "2");
}

TYPED_TEST_P(UserDefaultsContract, ValuesAreReadWithTheUsualConversions) {
  this->defaults().setObject("text", "YES");
  this->defaults().setObject("number", 42);
  this->defaults().setObject("flag", true);
  EXPECT_TRUE(this->defaults().boolForKey("text"));
  EXPECT_EQ(this->defaults().integerForKey("text"), 0);
  EXPECT_EQ(this->defaults().stringForKey("number"), "42");
  EXPECT_TRUE(this->defaults().boolForKey("number"));
  EXPECT_EQ(this->defaults().integerForKey("flag"), 1);
}

TYPED_TEST_P(UserDefaultsContract, TheGenerationChangesWithEveryChangeAndWithNothingElse) {
  const auto generation = this->defaults().generation();
  const std::uint64_t first = *generation;
  EXPECT_NE(first, 0U);
  EXPECT_FALSE(this->defaults().objectForKey("key"));
  EXPECT_EQ(*generation, first);
  this->defaults().setObject("key", 1);
  const std::uint64_t second = *generation;
  EXPECT_NE(second, first);
  this->defaults().setObject("key", 2);
  const std::uint64_t third = *generation;
  EXPECT_NE(third, second);
  this->defaults().removeObject("key");
  const std::uint64_t fourth = *generation;
  EXPECT_NE(fourth, third);
  EXPECT_EQ(*generation, fourth);
}

TYPED_TEST_P(UserDefaultsContract, AValueThatCannotBeStoredIsReportedAndNotThere) {
  EXPECT_FALSE(this->world.unstorable().setObject("key", 1));
  EXPECT_EQ(this->world.unstorable().objectForKey("key"), std::nullopt);
}

REGISTER_TYPED_TEST_SUITE_P(UserDefaultsContract, AnUnknownKeyHasNoValue, AValueThatWasSetComesBackUntilItIsRemoved,
                            ALaterValueReplacesAnEarlierOne, ValuesAreReadWithTheUsualConversions,
                            TheGenerationChangesWithEveryChangeAndWithNothingElse,
                            AValueThatCannotBeStoredIsReportedAndNotThere);

}  // namespace tests::contracts
