#pragma once
// Notifications between programs of one user session, as signals on the session bus:
//
//   object /com/kelto/DistributedNotifications, interface com.kelto.DistributedNotifications,
//   signal Posted(s name, s object, a{sv} userInfo)
//
// A signal may be broadcast or sent to one connection.
#include <sys/types.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/DistributedNotificationCenter.h"
#include "platform/SystemLog.h"
#include "platform/linux/Bus.h"

namespace platform::Linux {

// The name on the bus of one process of an application, of which several may run.
std::string nameOfProcess(const std::string& applicationIdentifier, pid_t process);

class DistributedNotificationCenter final : public platform::DistributedNotificationCenter {
 public:
  // Runs a call later on the main run loop, never at once.
  using Deliver = std::function<void(std::function<void()>)>;

  // Connects to the session bus. `log` must outlive this object; calls given to `deliver` may run after its end.
  DistributedNotificationCenter(std::string applicationIdentifier, platform::SystemLog& log, Deliver deliver);

  // With the first observer the connection also takes two names on the bus: nameOfProcess for this process, and
  // `applicationIdentifier` when nobody else has it. The program that started this one can wait for a name and then send to
  // this connection alone.
  void addObserver(std::string_view name, foundation::NotificationHandler handler) override;

  // Gives both names up: nothing is to be sent to this program any more.
  void giveUpNames();

  // Values that D-Bus cannot carry (dates) are left out.
  bool post(const foundation::Notification& notification) override;
  // Sends to the connection that owns `busName`, and to nobody else. False also when nobody owns it.
  bool postTo(const foundation::Notification& notification, const std::string& busName);

  // Readable when `process` should be called; -1 without a bus, and from the `process` on that found the connection broken.
  [[nodiscard]] int fileDescriptor() const;
  // Reads what has arrived, without waiting, and hands the handlers' calls to `deliver`.
  void process();

 private:
  struct State;
  std::shared_ptr<State> _state;
};

}  // namespace platform::Linux
