#pragma once
// How callers wake a thread that sleeps until there is work, at the price of one read while it is awake.
//
// A caller puts its work where the sleeper looks, and then reads whether the sleeper is asleep. The sleeper says that it is
// asleep, and then looks for work once more. Each writes first and reads second, so at least one of the two sees the other:
// either the caller finds the sleeper asleep and wakes it, or the sleeper finds the work and stays awake. That holds only
// if neither processor lets its read overtake its write, which takes a full fence on both sides. Callers come often and the
// sleeper sleeps seldom, so where the system can do it the sleeper fences for all threads of the process, and a caller's
// fence costs nothing.
#include <atomic>
#include <cstdint>

#include "platform/LoggingHost.h"

class Doorbell {
 public:
  // `process` may be nullptr. The sleeper counts as asleep until it first looks for work.
  explicit Doorbell(platform::ProcessInfo* process)
      : _fencesForOthers(process != nullptr && process->fenceOtherThreads()), _process(process) {}

  // Any thread, after it has put its work in. Whether the sleeper must be woken, which only one of several callers is told.
  bool mustWake() {
    std::atomic_signal_fence(std::memory_order_seq_cst);
    if (!_fencesForOthers) _calls.fetch_add(0, std::memory_order_acq_rel);
    return _isAsleep.load(std::memory_order_relaxed) && _isAsleep.exchange(false);
  }
  // Any thread.
  void wake() {
    _calls.fetch_add(1, std::memory_order_release);
    _calls.notify_all();
  }

  // The sleeper. Returns when it was woken, and at once when `hasWork` finds some.
  template <class HasWork>
  void sleepUnless(const HasWork& hasWork) {
    const std::uint32_t calls = _calls.load(std::memory_order_acquire);
    _isAsleep.store(true, std::memory_order_seq_cst);
    _calls.fetch_add(0, std::memory_order_acq_rel);
    if (_fencesForOthers) _process->fenceOtherThreads();
    // The caller that put the work in may have taken the sleeper for awake.
    if (hasWork() && _isAsleep.exchange(false)) return;
    _calls.wait(calls, std::memory_order_acquire);
  }

  // There is no sleeper, in a forked child for example: the next caller is told to wake one.
  void hasNoSleeper() { _isAsleep.store(true); }

 private:
  const bool _fencesForOthers;
  std::atomic<bool> _isAsleep{true};
  std::atomic<std::uint32_t> _calls{0};
  platform::ProcessInfo* const _process;
};
