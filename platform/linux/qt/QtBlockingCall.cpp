#include "platform/linux/qt/QtBlockingCall.h"

#include <QAbstractButton>
#include <QApplication>
#include <QEventLoop>
#include <chrono>
#include <condition_variable>
#include <mutex>
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
      case QEvent::ShortcutOverride:
        event->accept();
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

}  // namespace

// Takes one call at a time. Most calls of a run are over within a moment; only a longer one needs the event loop.
class QtBlockingCall::Worker {
 public:
  ~Worker() {
    {
      const std::lock_guard lock(_mutex);
      _isOver = true;
    }
    _changed.notify_all();
    _thread.join();
  }

  [[nodiscard]] bool isBusy() const { return _isBusy; }

  void make(const std::function<void()>& call) {
    _isBusy = true;
    QEventLoop loop;
    {
      const std::lock_guard lock(_mutex);
      _call = &call;
      _loop = nullptr;
    }
    _changed.notify_all();
    if (!isMadeWithinAMoment(loop)) loop.exec();
    // The loop ends early, or at once, when the application has ended.
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _call == nullptr; });
    _isBusy = false;
  }

 private:
  // When not, `loop` is told of the end.
  bool isMadeWithinAMoment(QEventLoop& loop) {
    constexpr std::chrono::milliseconds moment{2};
    std::unique_lock lock(_mutex);
    if (_changed.wait_for(lock, moment, [this] { return _call == nullptr; })) return true;
    _loop = &loop;
    return false;
  }

  void work() {
    std::unique_lock lock(_mutex);
    for (;;) {
      _changed.wait(lock, [this] { return _call != nullptr || _isOver; });
      if (_call == nullptr) return;
      const auto* call = _call;
      lock.unlock();
      (*call)();
      lock.lock();
      _call = nullptr;
      if (_loop != nullptr) QMetaObject::invokeMethod(_loop, &QEventLoop::quit, Qt::QueuedConnection);
      _changed.notify_all();
    }
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  const std::function<void()>* _call = nullptr;
  QEventLoop* _loop = nullptr;
  bool _isOver = false;
  bool _isBusy = false;  // of the main thread
  std::thread _thread{[this] { work(); }};
};

QtBlockingCall::QtBlockingCall(QtRunLoop& runLoop) : _runLoop(runLoop) {}

QtBlockingCall::~QtBlockingCall() = default;

// Nothing when it is at work, or when the system has no thread to spare.
QtBlockingCall::Worker* QtBlockingCall::freeWorker() {
  try {
    if (!_worker) _worker = std::make_unique<Worker>();
  } catch (const std::system_error&) {
    return nullptr;
  }
  return _worker->isBusy() ? nullptr : _worker.get();
}

void QtBlockingCall::run(const std::function<void()>& call) {
  if (std::this_thread::get_id() != _mainThread) return call();
  const QtRunLoop::Pause pause(_runLoop);
  const InputFilter filter;
  if (Worker* worker = freeWorker())
    worker->make(call);
  else
    call();
  QCoreApplication::processEvents();  // what was typed or clicked up to now goes with the filter
}

}  // namespace platform::Linux
