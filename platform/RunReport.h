#pragma once
// How the run ends and, unless it succeeds, why: one line in the system log for each failure, and the exit status.
//
// The parts that know a cause report it; nobody above them has to. Main thread.
#include <optional>
#include <string>

#include "platform/SystemLog.h"

namespace platform {

// The ways of ending, with the exit status of each.
enum class Ending : int {
  done = 0,
  failed = 1,
  badArguments = 2,
  noDisplay = 3,
  refused = 4,
  stillRunning = 5,
  cancelled = 6,
};

struct Failure {
  Ending ending = Ending::failed;
  std::string step;
  std::string path;  // may be empty
  std::string cause;
};

class RunReport {
 public:
  // `log` outlives the report.
  explicit RunReport(SystemLog& log) : _log(log) {}

  // The failure if the run fails before anything else is reported: the run is waiting for something. Replaces the
  // failure that was expected before.
  void expect(Failure failure) { _expected = std::move(failure); }
  // The run waits for nothing any more.
  void expectNothing() { _expected.reset(); }

  // Writes the failure to the log. The first one decides how the run ends; none does when the run is done.
  void fail(const Failure& failure);
  // The run fails for the reason that was expected. Without effect if nothing was, since a cause has been reported then.
  void failAsExpected();
  // The run ends because the user or a signal asks for it, whatever it was waiting for.
  void cancel(const std::string& cause);
  // The run has reached its aim, and only leaves.
  void succeed() { _isDone = true; }

  [[nodiscard]] const std::optional<Failure>& failure() const { return _failure; }
  [[nodiscard]] Ending ending() const { return _failure ? _failure->ending : Ending::done; }

 private:
  SystemLog& _log;
  std::optional<Failure> _expected;
  std::optional<Failure> _failure;
  bool _isDone = false;
};

}  // namespace platform
