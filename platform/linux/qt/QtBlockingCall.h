#pragma once
// Long calls that leave the window alive.
#include <thread>

#include "platform/linux/BlockingCall.h"
#include "platform/linux/qt/QtRunLoop.h"

namespace platform::Linux {

// On the main thread (the one that made this object) the call runs on a thread of its own while the event loop goes on
// painting. Nothing of the run loop fires meanwhile, and what the user does (keys, pointer, closing) is dropped, not kept
// for afterwards. On any other thread the call is simply made. A call inside a call works the same way.
class QtBlockingCall final : public BlockingCall {
 public:
  explicit QtBlockingCall(QtRunLoop& runLoop) : _runLoop(runLoop) {}
  void run(const std::function<void()>& call) override;

 private:
  QtRunLoop& _runLoop;
  std::thread::id _mainThread = std::this_thread::get_id();
};

}  // namespace platform::Linux
