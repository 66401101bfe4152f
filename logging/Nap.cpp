#include "logging/Nap.h"

#include <algorithm>
#include <thread>

using std::chrono::microseconds;
using std::chrono::milliseconds;

const Nap::Habit Nap::patient{
    .yields = 32, .shortest = microseconds(50), .longest = milliseconds(1), .patience = Duration::max()};
const Nap::Habit Nap::watchful{
    .yields = 0, .shortest = microseconds(50), .longest = milliseconds(10), .patience = milliseconds(1000)};

void Nap::startOver() {
  _yields = _habit.yields;
  _next = _habit.shortest;
  _slept = Duration::zero();
}

Nap::Verdict Nap::take() {
  if (_yields > 0) {
    --_yields;
    std::this_thread::yield();
    return goOn;
  }
  std::this_thread::sleep_for(_next);
  _slept += _next;
  _next = std::min(_habit.longest, _next + _next / 2);
  return _slept < _habit.patience ? goOn : enough;
}

void Nap::breathe() {
  const auto end = std::chrono::steady_clock::now() + microseconds(10);
  while (std::chrono::steady_clock::now() < end) {
  }
}
