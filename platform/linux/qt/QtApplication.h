#pragma once
// The application: its alerts, its end, and the run between launch and end.
//
// Main thread only.
#include <memory>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/linux/qt/InterfaceDescription.h"
#include "platform/linux/qt/QtRunLoop.h"

namespace platform::Linux {

class QtApplication final : public Application {
 public:
  // `name` titles the alerts.
  QtApplication(QtRunLoop& runLoop, foundation::NotificationCenter& center, std::string name);

  // Nothing is shown any more after termination.
  void runModal(const Alert& alert) override;
  void terminate(const void* sender) override;

  // Ends the run because the user or the session asks for it. Without effect while the run loop is paused: in the middle of
  // a blocking call, under an alert or after the end.
  void terminateOnRequest();

  // Loads the interface description at `path`, makes the delegate that it names, finishes launching and runs until the end.
  // Returns the exit status: 0 after an ordinary end, 1 when it could not start, with the cause in the system log.
  int run(Platform& platform, const std::string& path, const std::vector<DelegateClass>& classes,
          const std::vector<ViewClass>& viewClasses = {});

 private:
  bool load(Platform& platform, const std::string& path, const std::vector<DelegateClass>& classes,
            const std::vector<ViewClass>& viewClasses);

  QtRunLoop& _runLoop;
  foundation::NotificationCenter& _center;
  const std::string _name;
  std::unique_ptr<InterfaceDescription> _interface;
  std::unique_ptr<ApplicationDelegate> _delegate;
  bool _isTerminated = false;
};

}  // namespace platform::Linux
