#pragma once
// SIGTERM and SIGINT as a polite request.
#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace platform::Linux {

// From now until it goes, the first SIGTERM or SIGINT calls `onRequest` on the main thread, from the event loop. A signal
// that was ignored when the program was started stays ignored. One object at a time, main thread.
class TerminationSignals {
 public:
  explicit TerminationSignals(std::function<void()> onRequest);
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

 private:
  std::unique_ptr<QSocketNotifier> _notifier;
};

}  // namespace platform::Linux
