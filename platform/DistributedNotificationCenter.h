#pragma once
// Notifications between the programs of one user session. Main thread.
#include <string_view>

#include "foundation/runtime/NotificationCenter.h"

namespace platform {

// Notifications from other programs of the same user session. Main thread only; a handler runs on the main run loop, never
// inside a call of this class.
class DistributedNotificationCenter {
 public:
  virtual ~DistributedNotificationCenter() = default;

  // Observes `name` from any sender object until the process ends. When this returns, a notification that another program
  // posts from now on will be delivered. Where the session offers no way to post notifications, nothing is delivered and
  // the reason goes to the system log.
  virtual void addObserver(std::string_view name, foundation::NotificationHandler handler) = 0;

  // Posts to every observer in the session. False when it could not be sent.
  virtual bool post(const foundation::Notification& notification) = 0;
};

}  // namespace platform
