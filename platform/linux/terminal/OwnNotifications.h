#pragma once
// Notifications of a program that is controller and installer in one: they stay inside the process, so that nobody else can
// send or see any. Main thread.
#include <functional>
#include <string>

#include "platform/DistributedNotificationCenter.h"

namespace platform::Linux {

class OwnNotifications final : public platform::DistributedNotificationCenter {
 public:
  // Runs a call later on the main run loop, never at once.
  using Deliver = std::function<void(std::function<void()>)>;

  explicit OwnNotifications(Deliver deliver) : _deliver(std::move(deliver)) {}

  void addObserver(std::string_view name, foundation::NotificationHandler handler) override {
    _observers.addObserver(name, std::move(handler));
  }
  bool post(const foundation::Notification& notification) override {
    _deliver([this, notification] { _observers.post(notification); });
    return true;
  }

 private:
  Deliver _deliver;
  foundation::NotificationCenter _observers;
};

}  // namespace platform::Linux
