#include "platform/fake/FakeUserInterface.h"

namespace platform::fake {

void FakeWindow::setFrame(const foundation::Rect& frame, bool display) {
  note("window.setFrame");
  currentFrame = frame;
  displays.push_back(display);
}

void FakeWindow::setFrameOrigin(foundation::Point origin) {
  note("window.setFrameOrigin");
  currentFrame.origin = origin;
}

void FakeWindow::center() {
  note("window.center");
  currentFrame.origin = {(screen.width - currentFrame.size.width) / 2, (screen.height - currentFrame.size.height) / 2};
  isCentered = true;
}

void FakeWindow::setTitle(std::string_view text) {
  note("window.setTitle");
  title = text;
}

void FakeWindow::makeKeyAndOrderFront() {
  note("window.makeKeyAndOrderFront");
  isKey = true;
}

void FakeTextField::setStringValue(std::string_view value) {
  note("textField.setStringValue");
  text = value;
}

void FakeButton::setTitle(std::string_view value) {
  note("button.setTitle");
  title = value;
}

void FakeProgressIndicator::startAnimation() {
  note("progressIndicator.startAnimation");
  isAnimating = true;
}

void FakeApplication::runModal(const Alert& alert) {
  note("application.runModal " + alert.messageText);
  if (isTerminated) return;
  alerts.push_back(alert);
  const FakeRunLoop::Pause pause(_runLoop);
  if (whileAlertIsUp) whileAlertIsUp(alert);
}

void FakeApplication::terminate(const void* sender) {
  note("application.terminate");
  terminateSenders.push_back(sender);
  if (isTerminated) return;
  isTerminated = true;
  _runLoop.stop();
  const foundation::Notification notification{std::string(foundation::applicationWillTerminateNotification), {}, {}};
  if (delegate != nullptr) delegate->applicationWillTerminate(notification);
  _center.post(notification);
}

}  // namespace platform::fake
