#pragma once
// The application: its alerts, its end, and the run between launch and end.
//
// Main thread only.
#include <sys/types.h>

#include <functional>
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

  // Called when the run has failed, before the alert that says so is shown.
  std::function<void()> onFailure;

  // Called when the window has been shown.
  std::function<void(QWindow& window)> onShow;

  // Nothing is shown any more after termination, or once a signal has asked for the end.
  void runModal(const Alert& alert) override;
  void terminate(const void* sender) override;

  // Ends the run because the user or the session asks for it. Without effect while the run loop is paused: in the middle of
  // a blocking call, under an alert or after the end.
  void terminateOnRequest(const std::string& cause = "the user cancelled");
  // The same for a signal, which cannot be refused: an alert is closed and none is shown any more, and what the run loop
  // cannot do now it does as soon as the pause is over.
  void terminateOnSignal(const std::string& name);
  // The processes whose windows stay in front of what is shown from now on.
  void stayBehind(const std::vector<pid_t>& processes) { _inFront = processes; }
  // While a job runs, nothing in the window ends the application.
  void setJobRuns(bool runs);
  [[nodiscard]] bool isTerminated() const { return _isTerminated; }

  // Loads the interface description at `path`, makes the delegate that it names, finishes launching and runs until the end.
  // Returns the exit status: how the platform's report says that the run ended, or Ending::failed when it could not start,
  // with the cause in the system log.
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
  RunReport* _report = nullptr;  // while it runs
  std::vector<pid_t> _inFront;
  bool _isTerminated = false;
  bool _isAskedBySignal = false;
};

}  // namespace platform::Linux
