#include <algorithm>

#include "platform/fake/FakePlatform.h"

namespace platform::fake {

class FakeRunLoop::FakeTimer final : public foundation::Timer, public std::enable_shared_from_this<FakeTimer> {
 public:
  FakeTimer(foundation::Seconds interval, bool repeats, std::function<void(foundation::Timer&)> action)
      : interval(interval), repeats(repeats), _action(std::move(action)) {}

  void invalidate() override { _isValid = false; }
  [[nodiscard]] bool isValid() const override { return _isValid; }

  void fire() {
    if (!repeats) _isValid = false;
    _action(*this);
  }

  const foundation::Seconds interval;
  const bool repeats;

 private:
  std::function<void(foundation::Timer&)> _action;
  bool _isValid = true;
};

void FakeRunLoop::schedule(foundation::Date due, const void* target, std::function<void()> action) {
  _events.push_back({due, _order++, target, std::move(action)});
}

void FakeRunLoop::performAfterDelay(foundation::Seconds delay, const void* target, std::function<void()> action) {
  schedule(foundation::dateByAdding(_now, delay), target, std::move(action));
}

void FakeRunLoop::cancelPreviousPerformRequests(const void* target) {
  std::erase_if(_events, [target](const Event& event) { return event.target == target; });
}

void FakeRunLoop::scheduleTick(const std::shared_ptr<FakeTimer>& timer, foundation::Date due) {
  schedule(due, nullptr, [this, timer, due] {
    if (!timer->isValid()) return;
    timer->fire();
    if (timer->isValid()) scheduleTick(timer, foundation::dateByAdding(due, timer->interval));
  });
}

std::shared_ptr<foundation::Timer> FakeRunLoop::scheduledTimer(foundation::Seconds interval, bool repeats,
                                                               std::function<void(foundation::Timer&)> action) {
  auto timer = std::make_shared<FakeTimer>(interval, repeats, std::move(action));
  _timers.push_back(timer);
  scheduleTick(timer, foundation::dateByAdding(_now, interval));
  return timer;
}

void FakeRunLoop::advance(foundation::Seconds duration) {
  const foundation::Date end = foundation::dateByAdding(_now, duration);
  for (;;) {
    const auto next = std::ranges::min_element(
        _events, [](const Event& a, const Event& b) { return std::pair(a.due, a.order) < std::pair(b.due, b.order); });
    if (next == _events.end() || next->due > end) break;
    const Event event = std::move(*next);
    _events.erase(next);
    _now = std::max(_now, event.due);
    event.action();
  }
  _now = std::max(_now, end);
}

std::vector<foundation::Seconds> FakeRunLoop::pendingDelays(const void* target) const {
  std::vector<foundation::Seconds> delays;
  for (const auto& event : _events)
    if (event.target == target) delays.emplace_back(event.due - _now);
  std::ranges::sort(delays);
  return delays;
}

std::vector<foundation::Seconds> FakeRunLoop::timerIntervals() const {
  std::vector<foundation::Seconds> intervals;
  for (const auto& weak : _timers)
    if (const auto timer = weak.lock(); timer && timer->isValid()) intervals.push_back(timer->interval);
  return intervals;
}

}  // namespace platform::fake
