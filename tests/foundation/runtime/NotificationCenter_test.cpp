#include "foundation/runtime/NotificationCenter.h"

#include <gtest/gtest.h>

using foundation::Notification;
using foundation::NotificationCenter;

TEST(NotificationCenter, CallsTheObserversOfTheNameInTheOrderOfAdding) {
  NotificationCenter center;
  std::string calls;
  center.addObserver("a", [&](const Notification&) { calls += "1"; });
  center.addObserver("b", [&](const Notification&) { calls += "x"; });
  center.addObserver("a", [&](const Notification&) { calls += "2"; });
  center.post({"a", "", {}});
  EXPECT_EQ(calls, "12");
}

TEST(NotificationCenter, HandsOverTheNotification) {
  NotificationCenter center;
  Notification seen;
  center.addObserver("a", [&](const Notification& notification) { seen = notification; });
  center.post({"a", "sender", {{"key", "value"}}});
  EXPECT_EQ(seen.object, "sender");
  EXPECT_EQ(*seen.userInfo.at("key").as<std::string>(), "value");
}

TEST(NotificationCenter, AnObserverAddedWhilePostingMissesTheNotificationUnderWay) {
  NotificationCenter center;
  int calls = 0;
  center.addObserver("a", [&](const Notification&) { center.addObserver("a", [&](const Notification&) { ++calls; }); });
  center.post({"a", "", {}});
  EXPECT_EQ(calls, 0);
  center.post({"a", "", {}});
  EXPECT_EQ(calls, 1);
}
