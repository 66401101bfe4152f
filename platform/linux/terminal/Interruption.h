#pragma once
// SIGTERM, SIGINT and SIGHUP of a program without a window, also while it is in a call that takes long.
#include <functional>
#include <string>

#include "platform/linux/BlockingCall.h"
#include "posix/Descriptor.h"

namespace platform::Linux {

// From its making on the three signals are kept for this object; one that was ignored when the program was started stays
// ignored. Make one before other threads start. Main thread.
class TerminationRequests {
 public:
  TerminationRequests();

  // Readable when a signal has come.
  [[nodiscard]] int descriptor() const { return _signals.get(); }
  // The name of the next signal that has come; empty if there is none.
  [[nodiscard]] std::string next() const;

 private:
  posix::Descriptor _signals;
};

// Makes each call on a thread of its own, so that a signal is noticed meanwhile.
class InterruptibleCall final : public BlockingCall {
 public:
  // Called on the main thread with the name of a signal that comes during a call. The call goes on when this returns.
  std::function<void(const std::string& signal)> onSignal = [](const std::string&) {};

  // `requests` outlives this object.
  explicit InterruptibleCall(const TerminationRequests& requests) : _requests(requests) {}
  void run(const std::function<void()>& call) override;

 private:
  void waitFor(int done) const;

  const TerminationRequests& _requests;
};

}  // namespace platform::Linux
