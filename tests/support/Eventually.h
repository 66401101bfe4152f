#pragma once
// Waiting for a condition, with a deadline and no fixed sleep.
#include <poll.h>

#include <chrono>

namespace tests {

// Tries `condition` until it holds; false when it does not within the time.
template <class Condition>
bool eventually(Condition condition, std::chrono::milliseconds time = std::chrono::seconds(20)) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    ::poll(nullptr, 0, 2);
  }
  return true;
}

}  // namespace tests
