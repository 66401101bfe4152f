#pragma once
// Notifications between the programs of one user session.
#include <string_view>

#include "foundation/runtime/NotificationCenter.h"

namespace platform {

// Main thread only. Handlers run from the main run loop, never inside a call of this class.
class DistributedNotificationCenter {
 public:
  virtual ~DistributedNotificationCenter() = default;

  // Observes `name` from any sender object until the process ends. Delivers every notification posted after this returns,
  // in order; earlier ones are lost. Without a way to receive notifications, logs the reason to the system log.
  virtual void addObserver(std::string_view name, foundation::NotificationHandler handler) = 0;

  // Posts to every observer in the session. False if it could not be sent.
  virtual bool post(const foundation::Notification& notification) = 0;
};

}  // namespace platform
