#include "platform/linux/RunLoop.h"

#include <algorithm>
#include <utility>

namespace platform::Linux {
namespace {

using std::chrono::nanoseconds;

// In seconds; a deadline of the steady clock can hold this with room to spare.
constexpr double longestDelay = 1e9;
// A repeating timer cannot fire more often than this.
constexpr double shortestInterval = 0.0001;

nanoseconds bounded(foundation::Seconds delay, double shortest) {
  const double seconds = delay.count() > shortest ? std::min(delay.count(), longestDelay) : shortest;
  return std::chrono::duration_cast<nanoseconds>(foundation::Seconds(seconds));
}

}  // namespace

class RunLoop::ScheduledTimer final : public foundation::Timer {
 public:
  ScheduledTimer(nanoseconds interval, bool repeats, std::function<void(foundation::Timer&)> action)
      : interval(interval), repeats(repeats), _action(std::move(action)) {}

  void invalidate() override { _isValid = false; }
  [[nodiscard]] bool isValid() const override { return _isValid; }

  void fire() {
    if (!repeats) _isValid = false;
    _action(*this);
  }

  // The first tick after `now` on the timer's own grid: ticks that were missed are left out.
  [[nodiscard]] Clock::time_point nextTick(Clock::time_point due, Clock::time_point now) const {
    const auto missed = now > due ? (now - due) / interval : 0;
    return due + (missed + 1) * interval;
  }

  const nanoseconds interval;
  const bool repeats;

 private:
  std::function<void(foundation::Timer&)> _action;
  bool _isValid = true;
};

foundation::Date RunLoop::currentDate() const {
  return std::chrono::time_point_cast<foundation::Date::duration>(std::chrono::system_clock::now());
}

void RunLoop::performAfterDelay(foundation::Seconds delay, const void* target, std::function<void()> action) {
  schedule(Clock::now() + bounded(delay, 0), target, std::move(action));
}

void RunLoop::cancelPreviousPerformRequests(const void* target) {
  std::erase_if(_events, [target](const auto& entry) { return entry.second.target == target; });
  arm();
}

std::shared_ptr<foundation::Timer> RunLoop::scheduledTimer(foundation::Seconds interval, bool repeats,
                                                           std::function<void(foundation::Timer&)> action) {
  auto timer = std::make_shared<ScheduledTimer>(bounded(interval, shortestInterval), repeats, std::move(action));
  scheduleTick(timer, Clock::now() + timer->interval);
  return timer;
}

void RunLoop::deliver(std::function<void()> action) { schedule(Clock::now(), this, std::move(action)); }

void RunLoop::scheduleTick(const std::shared_ptr<ScheduledTimer>& timer, Clock::time_point due) {
  schedule(due, timer.get(), [this, timer, due] {
    if (!timer->isValid()) return;
    timer->fire();
    if (timer->isValid()) scheduleTick(timer, timer->nextTick(due, Clock::now()));
  });
}

void RunLoop::schedule(Clock::time_point due, const void* target, std::function<void()> action) {
  _events.emplace(Place{due, _order++}, Event{target, std::move(action)});
  arm();
}

std::optional<RunLoop::Clock::time_point> RunLoop::nextDue() const {
  return isPaused() || _events.empty() ? std::nullopt : std::optional(_events.begin()->first.first);
}

void RunLoop::fireWhatIsDue() {
  const auto now = Clock::now();
  while (!isPaused() && !_events.empty() && _events.begin()->first.first <= now) {
    const auto entry = _events.extract(_events.begin());
    entry.mapped().action();
  }
  arm();
}

void RunLoop::stop() {
  ++_pauses;
  arm();
}

RunLoop::Pause::Pause(RunLoop& runLoop) : _runLoop(runLoop) {
  ++_runLoop._pauses;
  _runLoop.arm();
}

RunLoop::Pause::~Pause() {
  --_runLoop._pauses;
  _runLoop.arm();
}

}  // namespace platform::Linux
