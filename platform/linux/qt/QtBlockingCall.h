#pragma once
// Long calls that leave the window alive.
#include <memory>
#include <thread>

#include "platform/linux/BlockingCall.h"
#include "platform/linux/qt/QtRunLoop.h"

namespace platform::Linux {

// On the main thread (the one that made this object) the call runs on the worker, one thread for the life of this object,
// while the event loop goes on painting. Nothing of the run loop fires meanwhile, and what the user does (keys, pointer,
// closing) is dropped, not kept for afterwards. On any other thread the call is simply made, and so is a call inside a
// call: the worker is busy then.
class QtBlockingCall final : public BlockingCall {
 public:
  explicit QtBlockingCall(QtRunLoop& runLoop);
  ~QtBlockingCall() override;
  QtBlockingCall(const QtBlockingCall&) = delete;
  QtBlockingCall& operator=(const QtBlockingCall&) = delete;

  void run(const std::function<void()>& call) override;

 private:
  class Worker;

  [[nodiscard]] Worker* freeWorker();

  QtRunLoop& _runLoop;
  std::thread::id _mainThread = std::this_thread::get_id();
  std::unique_ptr<Worker> _worker;  // made for the first call
};

}  // namespace platform::Linux
