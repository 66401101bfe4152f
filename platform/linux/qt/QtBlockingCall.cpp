#include "platform/linux/qt/QtBlockingCall.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <QAbstractButton>
#include <QApplication>
#include <QEventLoop>
#include <QSocketNotifier>
#include <system_error>

namespace platform::Linux {
namespace {

// Drops what the user does, for as long as it lives. Pointer and key events are taken from the widgets only, so that Qt's
// own account of pressed buttons stays right; shortcuts and closing are taken wherever they go.
class InputFilter final : public QObject {
 public:
  InputFilter() {
    releasePressedButtons();
    qApp->installEventFilter(this);
  }
  ~InputFilter() override { qApp->removeEventFilter(this); }
  InputFilter(const InputFilter&) = delete;
  InputFilter& operator=(const InputFilter&) = delete;

 protected:
  bool eventFilter(QObject* receiver, QEvent* event) override {
    switch (event->type()) {
      case QEvent::Close:
        event->ignore();
        return true;
      case QEvent::Shortcut:
        return true;
      case QEvent::MouseButtonPress:
      case QEvent::MouseButtonRelease:
      case QEvent::MouseButtonDblClick:
      case QEvent::Wheel:
      case QEvent::ContextMenu:
      case QEvent::KeyPress:
      case QEvent::KeyRelease:
      case QEvent::InputMethod:
      case QEvent::TouchBegin:
      case QEvent::TouchUpdate:
      case QEvent::TouchEnd:
      case QEvent::TabletPress:
      case QEvent::TabletRelease:
        if (!receiver->isWidgetType()) return false;
        event->accept();
        return true;
      default:
        return false;
    }
  }

 private:
  // A press that began before the call must not become a click after it.
  static void releasePressedButtons() {
    for (QWidget* widget : QApplication::allWidgets())
      if (auto* button = qobject_cast<QAbstractButton*>(widget); button != nullptr && button->isDown())
        button->setDown(false);
  }
};

class EventDescriptor {
 public:
  EventDescriptor() : number(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~EventDescriptor() {
    if (number >= 0) close(number);
  }
  EventDescriptor(const EventDescriptor&) = delete;
  EventDescriptor& operator=(const EventDescriptor&) = delete;

  const int number;
};

// Runs `call` on a thread of its own and spins the event loop until it has returned. False, with nothing run, when the
// system has no descriptor or thread to spare.
bool runBesideEventLoop(const std::function<void()>& call) {
  const EventDescriptor finished;
  if (finished.number < 0) return false;
  QSocketNotifier notifier(finished.number, QSocketNotifier::Read);
  QEventLoop loop;
  QObject::connect(&notifier, &QSocketNotifier::activated, &loop, &QEventLoop::quit);
  std::thread worker;
  try {
    worker = std::thread([&] {
      call();
      eventfd_write(finished.number, 1);
    });
  } catch (const std::system_error&) {
    return false;
  }
  loop.exec();
  worker.join();
  return true;
}

}  // namespace

void QtBlockingCall::run(const std::function<void()>& call) {
  if (std::this_thread::get_id() != _mainThread) return call();
  const QtRunLoop::Pause pause(_runLoop);
  const InputFilter filter;
  if (!runBesideEventLoop(call)) call();
}

}  // namespace platform::Linux
