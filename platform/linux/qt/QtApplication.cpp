#include "platform/linux/qt/QtApplication.h"

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <algorithm>

#include "platform/linux/CloseWindows.h"
#include "platform/linux/qt/QtAlert.h"

namespace platform::Linux {
namespace {

// Runs an action once, as the first event of the loop. Among the events that wait for the loop can be one of the toolkit's
// that calls the accessibility bus and holds the main thread until a service has been started there.
class FirstEvent final : public QObject {
 public:
  explicit FirstEvent(std::function<void()> action) : _action(std::move(action)) {
    QCoreApplication::postEvent(this, new QEvent(QEvent::User), Qt::HighEventPriority);
  }

 protected:
  void customEvent(QEvent* /*event*/) override { _action(); }

 private:
  const std::function<void()> _action;
};

}  // namespace

QtApplication::QtApplication(QtRunLoop& runLoop, foundation::NotificationCenter& center, std::string name)
    : _runLoop(runLoop), _center(center), _name(std::move(name)) {}

void QtApplication::runModal(const Alert& alert) {
  if (_isTerminated) return;
  if (_report != nullptr) _report->failAsExpected();
  if (onFailure) onFailure();
  if (_isAskedBySignal) return;
  const QtRunLoop::Pause pause(_runLoop);
  QWidget* const window = _interface ? &_interface->window() : nullptr;
  if (_inFront.empty()) return runAlert(alert, _name, window);
  if (_interface) _interface->setActionsEnabled(false);
  runAlert(alert, _name, window, [this] { raiseWindows(_inFront); });
}

void QtApplication::terminate(const void* /*sender*/) {
  if (_isTerminated) return;
  _isTerminated = true;
  _runLoop.stop();
  const foundation::Notification notification{std::string(foundation::applicationWillTerminateNotification), {}, {}};
  if (_delegate) _delegate->applicationWillTerminate(notification);
  _center.post(notification);
  QCoreApplication::exit(0);
}

void QtApplication::terminateOnRequest(const std::string& cause) {
  if (_runLoop.isPaused()) return;
  if (_report != nullptr) _report->cancel(cause);
  terminate(nullptr);
}

void QtApplication::terminateOnSignal(const std::string& name) {
  _isAskedBySignal = true;
  for (QWidget* window : QApplication::topLevelWidgets())
    if (auto* alert = qobject_cast<QDialog*>(window)) alert->close();
  _runLoop.deliver([this, name] { terminateOnRequest(name); });
}

void QtApplication::setJobRuns(bool runs) {
  if (_interface) _interface->setActionsEnabled(!runs);
}

int QtApplication::run(Platform& platform, const std::string& path, const std::vector<DelegateClass>& classes,
                       const std::vector<ViewClass>& viewClasses) {
  _report = &platform.report;
  if (!load(platform, path, classes, viewClasses)) return static_cast<int>(Ending::failed);
  const FirstEvent launch([this] {
    _delegate->applicationDidFinishLaunching({"NSApplicationDidFinishLaunchingNotification", {}, {}});
  });
  QCoreApplication::exec();
  return static_cast<int>(_report->ending());
}

bool QtApplication::load(Platform& platform, const std::string& path, const std::vector<DelegateClass>& classes,
                         const std::vector<ViewClass>& viewClasses) {
  std::string cause;
  _interface = InterfaceDescription::load(path, [this] { terminateOnRequest(); }, cause, {platform.runLoop, viewClasses});
  if (!_interface) {
    platform.systemLog.log("cannot load the interface description " + path + ": " + cause);
    return false;
  }
  _interface->window().onShow = onShow;
  const auto name = _interface->delegateClass();
  const auto found = std::ranges::find(classes, name, &DelegateClass::name);
  if (found == classes.end()) {
    platform.systemLog.log("the interface description " + path + " names the unknown delegate class \"" + name + "\"");
    return false;
  }
  _delegate = found->make(platform);
  _interface->connectOutlets(*_delegate);
  return true;
}

}  // namespace platform::Linux
