#pragma once
// SIGTERM, SIGINT and SIGHUP as a polite request.
#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace platform::Linux {

// From now until it goes, SIGTERM, SIGINT and SIGHUP call `onRequest` with their name on the main thread, from any event
// loop. A signal that was ignored when the program was started stays ignored. One object at a time, main thread.
class TerminationSignals {
 public:
  explicit TerminationSignals(std::function<void(const char* name)> onRequest);
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

 private:
  std::unique_ptr<QSocketNotifier> _notifier;
};

}  // namespace platform::Linux
