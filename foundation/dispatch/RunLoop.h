#pragma once
// The main run loop: delayed calls and timers.
//
// Main thread only; callbacks run on the main thread, never inside a call of this class. While a modal alert is up or a
// blocking call of the platform runs (a privileged job, the shell), delayed calls and timers wait; they fire afterwards, in
// the order in which they were due. After Application::terminate nothing fires.
#include <functional>
#include <memory>

#include "foundation/runtime/Time.h"

namespace foundation {

// A scheduled timer. The run loop keeps it alive until it is invalidated or, unless it repeats, has fired.
class Timer {
 public:
  virtual ~Timer() = default;
  // Stops the timer for good. May be called from the timer's own callback, and more than once.
  virtual void invalidate() = 0;
  [[nodiscard]] virtual bool isValid() const = 0;
};

class RunLoop {
 public:
  virtual ~RunLoop() = default;

  [[nodiscard]] virtual Date currentDate() const = 0;

  // Calls `action` once, `delay` from now; a negative delay or NaN counts as zero. `target` identifies the call for
  // cancelling and is never dereferenced.
  virtual void performAfterDelay(Seconds delay, const void* target, std::function<void()> action) = 0;

  // Cancels every delayed call for `target` that has not started.
  virtual void cancelPreviousPerformRequests(const void* target) = 0;

  // Calls `action` every `interval`, the first time one interval from now. Skips ticks that were missed while the loop was
  // busy.
  virtual std::shared_ptr<Timer> scheduledTimer(Seconds interval, bool repeats, std::function<void(Timer&)> action) = 0;
};

}  // namespace foundation
