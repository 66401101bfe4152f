#pragma once
// Time for everything that measures ages and arms timers, so that tests can let days pass in no time. Any thread.
#include <cstdint>
#include <functional>

#include "foundation/Api.h"
#include "foundation/runtime/Time.h"

namespace foundation {

// Time since some fixed moment; never set back, and standing still while the machine sleeps.
using Uptime = std::chrono::time_point<std::chrono::steady_clock, std::chrono::nanoseconds>;

class KELTO_API Clock {
 public:
  using CallID = std::uint64_t;
  virtual ~Clock() = default;

  // Wall-clock time; the user may set it.
  [[nodiscard]] virtual Date now() const = 0;
  [[nodiscard]] virtual Uptime uptime() const = 0;
  // Calls `action` once, at `when` or as soon as possible after it, on a thread of the clock's own. It must be brief. One
  // that throws std::bad_alloc, and nothing else, is called again a moment later.
  virtual CallID callAt(Uptime when, std::function<void()> action) = 0;
  // A call that has not begun never does. One that is under way is not waited for, and may still be made again; an unknown
  // number is ignored.
  virtual void cancel(CallID call) = 0;

  // The clock of the process: the operating system's, unless a test has put its own in place.
  static Clock& current();

 protected:
  // The moment after which a call that found no memory is made again.
  static constexpr std::chrono::milliseconds moment{10};

  // Makes `clock` the one of the process, or with nullptr gives the process its own back.
  static void replaceCurrent(Clock* clock);
};

}  // namespace foundation
