#pragma once
// Durations and points in time as the whole system counts them.
//
// A Date is wall-clock time in whole nanoseconds, so that a deadline compares exactly: five seconds after a moment is later
// than that moment by exactly five seconds. Any thread.
#include <chrono>

namespace foundation {

using Seconds = std::chrono::duration<double>;
using Date = std::chrono::sys_time<std::chrono::nanoseconds>;

// The date `delay` after `date`; fractions of a nanosecond are dropped.
constexpr Date dateByAdding(Date date, Seconds delay) {
  return date + std::chrono::duration_cast<std::chrono::nanoseconds>(delay);
}

}  // namespace foundation
