#pragma once
// The contract of DistributedNotificationCenter.
//
// A World has: `observer()` and `poster()`, the centres of two programs of one session; `waitFor(condition)`, which runs
// the observer's run loop until the condition holds, and false if it never does; `settle()`, true once all that was posted
// has arrived; `disconnect()`, which ends the traffic of the session.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/DistributedNotificationCenter.h"

namespace tests::contracts {

template <class World>
class DistributedNotificationCenterContract : public testing::Test {
 protected:
  void observe(const std::string& name) {
    world.observer().addObserver(name, [this](const foundation::Notification& one) { received.push_back(one); });
  }
  bool receives(std::size_t count) {
    return world.waitFor([&] { return received.size() >= count; });
  }

  std::vector<foundation::Notification> received;
  World world;
};

TYPED_TEST_SUITE_P(DistributedNotificationCenterContract);

TYPED_TEST_P(DistributedNotificationCenterContract, ANotificationArrivesWithItsObjectAndItsValues) {
  using foundation::PropertyList::Data;
  const foundation::PropertyList::Dictionary values{
      {"data", Data(32, std::byte{7})}, {"text", "Kéltö"}, {"flag", true}, {"number", 42}};
  this->observe("name");
  EXPECT_TRUE(this->world.poster().post({"name", "sender", values}));
  ASSERT_TRUE(this->receives(1));
  EXPECT_EQ(this->received[0].name, "name");
  EXPECT_EQ(this->received[0].object, "sender");
  EXPECT_EQ(this->received[0].userInfo, values);
}

TYPED_TEST_P(DistributedNotificationCenterContract, AHandlerNeverRunsInsideAPost) {
  this->observe("name");
  this->world.observer().post({"name", "own", {}});
  this->world.poster().post({"name", "other", {}});
  EXPECT_THAT(this->received, testing::IsEmpty());
  EXPECT_TRUE(this->receives(1));
}

TYPED_TEST_P(DistributedNotificationCenterContract, OnlyObserversOfTheNameAreToldAndInOrder) {
  this->observe("name");
  this->world.poster().post({"another", "x", {}});
  this->world.poster().post({"name", "a", {}});
  this->world.poster().post({"name", "b", {}});
  ASSERT_TRUE(this->receives(2));
  EXPECT_EQ(this->received[0].object, "a");
  EXPECT_EQ(this->received[1].object, "b");
}

TYPED_TEST_P(DistributedNotificationCenterContract, AnEarlierNotificationIsLost) {
  this->world.poster().post({"name", "early", {}});
  EXPECT_TRUE(this->world.settle());
  this->observe("name");
  this->world.poster().post({"name", "late", {}});
  ASSERT_TRUE(this->receives(1));
  EXPECT_EQ(this->received[0].object, "late");
}

TYPED_TEST_P(DistributedNotificationCenterContract, EveryObserverIsTold) {
  this->observe("name");
  this->observe("name");
  this->world.poster().post({"name", "", {}});
  EXPECT_TRUE(this->receives(2));
}

TYPED_TEST_P(DistributedNotificationCenterContract, APostThatCannotBeSentIsReported) {
  this->observe("name");
  this->world.disconnect();
  EXPECT_FALSE(this->world.poster().post({"name", "", {}}));
}

REGISTER_TYPED_TEST_SUITE_P(DistributedNotificationCenterContract, ANotificationArrivesWithItsObjectAndItsValues,
                            AHandlerNeverRunsInsideAPost, OnlyObserversOfTheNameAreToldAndInOrder,
                            AnEarlierNotificationIsLost, EveryObserverIsTold, APostThatCannotBeSentIsReported);

}  // namespace tests::contracts
