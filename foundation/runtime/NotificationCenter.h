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
  std::string object;  // a name of the sender; may be empty, and chooses no observers
  PropertyList::Dictionary userInfo;
};

using NotificationHandler = std::function<void(const Notification&)>;

// Posted when the application is about to terminate.
inline constexpr std::string_view applicationWillTerminateNotification = "NSApplicationWillTerminateNotification";

// The default centre of the process, where an object tells others something without knowing them.
class NotificationCenter {
 public:
  // Has `handler` called for every later notification of that name. Any thread. There is no way to take it back: whatever
  // the handler refers to must outlive the centre.
  void addObserver(std::string_view name, NotificationHandler handler);

  // Calls the handlers of the name, in the order in which they were added, and returns after the last. Main thread. A
  // handler may post, and may add observers, which do not receive the notification under way. It must not throw: the
  // handlers behind it would not be called.
  void post(const Notification& notification);

 private:
  std::mutex _mutex;
  std::map<std::string, std::vector<NotificationHandler>, std::less<>> _observers;
};

}  // namespace foundation
