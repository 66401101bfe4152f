#pragma once
// Notifications inside the process, and the value that notifications between processes share.
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/plist/PropertyList.h"

namespace foundation {

// The value that an observer receives. Only strings and data cross process borders.
struct Notification {
  std::string name;
  std::string object;
  PropertyList::Dictionary userInfo;
};

using NotificationHandler = std::function<void(const Notification&)>;

// Posted when the application is about to terminate.
inline constexpr std::string_view applicationWillTerminateNotification = "NSApplicationWillTerminateNotification";

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

}  // namespace foundation
