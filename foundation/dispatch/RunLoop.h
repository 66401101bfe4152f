#pragma once
// The main run loop: delayed calls and timers.
//
// Main thread only; callbacks run on the main thread. While a modal alert is up or a blocking call of the platform runs
// (a privileged job, the shell), no delayed call and no timer fires: they wait and fire afterwards, in the order in which
// they were due.
#include <functional>
#include <memory>

#include "foundation/runtime/Time.h"

namespace foundation {

// A timer that has been scheduled. The run loop keeps it alive until it is invalidated or, when it does not repeat, has
// fired.
class Timer {
 public:
  virtual ~Timer() = default;
  // The timer never fires again. May be called from its own callback; calling it again does nothing.
  virtual void invalidate() = 0;
  [[nodiscard]] virtual bool isValid() const = 0;
};

class RunLoop {
 public:
  virtual ~RunLoop() = default;

  [[nodiscard]] virtual Date currentDate() const = 0;

  // Calls `action` once, `delay` from now. `target` names the receiver for cancelling and is not dereferenced.
  virtual void performAfterDelay(Seconds delay, const void* target, std::function<void()> action) = 0;

  // Forgets every delayed call for `target` that has not started.
  virtual void cancelPreviousPerformRequests(const void* target) = 0;

  // Fires `action` every `interval`, first one interval from now. Ticks that were missed while the loop was busy are
  // skipped, not made up for.
  virtual std::shared_ptr<Timer> scheduledTimer(Seconds interval, bool repeats, std::function<void(Timer&)> action) = 0;
};

}  // namespace foundation
