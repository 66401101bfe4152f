#pragma once
// Shell lines through the C library's `system`, as this user.
#include "platform/Shell.h"
#include "platform/linux/BlockingCall.h"

namespace platform::Linux {

// Main thread. `blockingCall` must outlive it.
class Shell final : public platform::Shell {
 public:
  explicit Shell(BlockingCall& blockingCall) : _blockingCall(blockingCall) {}
  int system(const std::string& commandLine) override;

 private:
  BlockingCall& _blockingCall;
};

}  // namespace platform::Linux
