#pragma once
// How the Linux platform makes a call that may take long.
//
// The seam's calls block their caller by design. On the main thread of a desktop program that must not freeze the window,
// so every such call of this folder goes through a BlockingCall.
#include <functional>

namespace platform::Linux {

class BlockingCall {
 public:
  virtual ~BlockingCall() = default;
  // Runs `call` once, perhaps on another thread, and returns when it has finished. Everything that the caller did before
  // happens before the call, and the call before the return. `call` must not throw.
  virtual void run(const std::function<void()>& call) = 0;
};

// For programs without a window, and for tests.
class DirectCall final : public BlockingCall {
 public:
  void run(const std::function<void()>& call) override { call(); }
};

}  // namespace platform::Linux
