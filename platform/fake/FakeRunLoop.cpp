#include "platform/fake/FakeRunLoop.h"

#include <algorithm>

namespace platform::fake {
namespace {

using std::chrono::nanoseconds;

// A delay that is below zero, or not a number, counts as zero; an endless one as thirty years.
nanoseconds lengthOf(foundation::Seconds delay) {
  constexpr foundation::Seconds longest(1e9);
  if (!(delay.count() > 0)) return nanoseconds(0);
  return std::chrono::duration_cast<nanoseconds>(std::min(delay, longest));
}

}  // namespace

// Only the state of a timer; the run loop acts on it.
struct FakeRunLoop::ScheduledTimer final : foundation::Timer {
  void invalidate() override { isOver = true; }
  [[nodiscard]] bool isValid() const override { return !isOver; }

  foundation::Seconds asked{};
  nanoseconds interval{};
  foundation::Uptime due;
  bool repeats = false;
  bool isOver = false;
  std::function<void(foundation::Timer&)> action;
};

void FakeRunLoop::schedule(foundation::Uptime due, const void* target, std::function<void()> action) {
  _events.push_back({due, _order++, target, std::move(action)});
}

void FakeRunLoop::performAfterDelay(foundation::Seconds delay, const void* target, std::function<void()> action) {
  schedule(_clock.uptime() + lengthOf(delay), target, std::move(action));
}

void FakeRunLoop::cancelPreviousPerformRequests(const void* target) {
  std::erase_if(_events, [target](const Event& event) { return event.target == target; });
}

std::shared_ptr<foundation::Timer> FakeRunLoop::scheduledTimer(foundation::Seconds interval, bool repeats,
                                                               std::function<void(foundation::Timer&)> action) {
  const auto timer = std::make_shared<ScheduledTimer>();
  timer->asked = interval;
  timer->interval = std::max(lengthOf(interval), nanoseconds(1));
  timer->due = _clock.uptime() + timer->interval;
  timer->repeats = repeats;
  timer->action = std::move(action);
  _timers.push_back(timer);
  scheduleTick(timer);
  return timer;
}

// The next tick lies on the timer's grid, after now: those that passed while the main thread was busy are skipped.
void FakeRunLoop::scheduleTick(const std::shared_ptr<ScheduledTimer>& timer) {
  schedule(timer->due, timer.get(), [this, timer] {
    if (timer->isOver) return;
    timer->isOver = !timer->repeats;
    timer->action(*timer);
    if (timer->isOver) return;
    while (timer->due <= _clock.uptime()) timer->due += timer->interval;
    scheduleTick(timer);
  });
}

// The clock drops fractions of a nanosecond; half a nanosecond more makes up for the rounding of the seconds.
void FakeRunLoop::moveClockTo(foundation::Uptime moment) {
  const auto step = moment - _clock.uptime();
  if (step.count() <= 0) return;
  _clock.advance(std::chrono::duration<double, std::nano>(static_cast<double>(step.count()) + 0.5));
}

bool FakeRunLoop::runNext(foundation::Uptime end) {
  if (_pauses > 0) return false;
  const auto next =
      std::ranges::min_element(_events, {}, [](const Event& event) { return std::pair(event.due, event.order); });
  if (next == _events.end() || next->due > end) return false;
  const Event event = std::move(*next);
  _events.erase(next);
  moveClockTo(event.due);
  event.action();
  return true;
}

void FakeRunLoop::advance(foundation::Seconds duration) {
  const foundation::Uptime end = _clock.uptime() + lengthOf(duration);
  while (runNext(end)) {
  }
  moveClockTo(end);
}

std::vector<foundation::Seconds> FakeRunLoop::pendingDelays(const void* target) const {
  std::vector<foundation::Seconds> delays;
  for (const auto& event : _events)
    if (event.target == target) delays.emplace_back(event.due - _clock.uptime());
  std::ranges::sort(delays);
  return delays;
}

std::vector<foundation::Seconds> FakeRunLoop::timerIntervals() const {
  std::vector<foundation::Seconds> intervals;
  for (const auto& weak : _timers)
    if (const auto timer = weak.lock(); timer && timer->isValid()) intervals.push_back(timer->asked);
  return intervals;
}

}  // namespace platform::fake
