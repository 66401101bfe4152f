#pragma once
// Notifications inside the process (NotificationCenter) and between processes of one user session
// (DistributedNotificationCenter).
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/plist/PropertyList.h"

namespace platform {

// What an observer receives. Strings and data only cross process borders; `userInfo` is empty when none was given.
struct Notification {
  std::string name;
  std::string object;
  foundation::PropertyList::Dictionary userInfo;
};

using NotificationHandler = std::function<void(const Notification&)>;

// Posted when the application is about to terminate.
inline constexpr std::string_view ApplicationWillTerminateNotification = "NSApplicationWillTerminateNotification";

// The default centre of the process. Observers are added from any thread. Main thread for the rest; handlers run inside
// post, in the order in which they were added, and may add observers (which do not receive the notification under way).
class NotificationCenter {
 public:
  void addObserver(std::string_view name, NotificationHandler handler);
  void post(const Notification& notification);

 private:
  std::mutex _mutex;
  std::map<std::string, std::vector<NotificationHandler>, std::less<>> _observers;
};

// Notifications from other programs of the same user session. Main thread only; a handler runs on the main run loop, never
// inside a call of this class.
class DistributedNotificationCenter {
 public:
  virtual ~DistributedNotificationCenter() = default;

  // Observes `name` from any sender object until the process ends. When this returns, a notification that another program
  // posts from now on will be delivered. Where the session offers no way to post notifications, nothing is delivered and
  // the reason goes to the system log.
  virtual void addObserver(std::string_view name, NotificationHandler handler) = 0;

  // Posts to every observer in the session. False when it could not be sent.
  virtual bool post(const Notification& notification) = 0;
};

}  // namespace platform
