#include <mutex>
#include <new>
#include <utility>

#include "foundation/dispatch/Dispatch.h"

namespace foundation::Dispatch {

std::shared_ptr<TimerSource> TimerSource::make(std::weak_ptr<Queue> queue, Block handler) {
  return std::shared_ptr<TimerSource>(new TimerSource(std::move(queue), std::move(handler)));
}

TimerSource::~TimerSource() { cancel(); }

void TimerSource::set(Uptime start, Seconds interval) {
  const std::lock_guard lock(_mutex);
  disarm();
  _due = start;
  _interval = std::chrono::duration_cast<std::chrono::nanoseconds>(interval);
  if (!_isSuspended) arm();
}

void TimerSource::resume() {
  const std::lock_guard lock(_mutex);
  if (!_isSuspended) return;
  arm();
  _isSuspended = false;
}

void TimerSource::suspend() {
  const std::lock_guard lock(_mutex);
  _isSuspended = true;
  disarm();
}

void TimerSource::cancel() {
  const std::lock_guard lock(_mutex);
  _isCancelled = true;
  disarm();
}

void TimerSource::arm() {
  if (_isCancelled || !_due) return;
  _call = Clock::current().callAt(*_due, [weak = weak_from_this(), setting = _setting] {
    if (const auto self = weak.lock()) self->fire(setting);
  });
}

// From here on, what is already under way belongs to an older setting and does nothing.
void TimerSource::disarm() {
  ++_setting;
  if (_call) Clock::current().cancel(*_call);
  _call.reset();
}

// All of it or, when memory is short, nothing: then the clock tries again.
void TimerSource::fire(std::uint64_t setting) {
  const auto queue = _queue.lock();
  std::unique_lock lock(_mutex);
  if (setting != _setting) return;
  const auto due = _due;
  const auto call = std::exchange(_call, std::nullopt);
  try {
    armForNext();
    lock.unlock();
    if (queue) submit(*queue, setting);
  } catch (const std::bad_alloc&) {
    if (!lock.owns_lock()) lock.lock();
    if (setting != _setting) return;
    if (_call) Clock::current().cancel(*_call);
    _due = due;
    _call = call;
    throw;
  }
}

// A suspended timer has another setting than the one that fires.
void TimerSource::armForNext() {
  if (_interval.count() > 0) {
    const auto late = Clock::current().uptime() - *_due;
    *_due += (late / _interval + 1) * _interval;
  } else {
    _due.reset();
  }
  arm();
}

void TimerSource::submit(Queue& queue, std::uint64_t setting) {
  queue.async([weak = weak_from_this(), setting] {
    const auto self = weak.lock();
    if (self && self->isCurrentSetting(setting)) self->_handler();
  });
}

bool TimerSource::isCurrentSetting(std::uint64_t setting) {
  const std::lock_guard lock(_mutex);
  return setting == _setting;
}

}  // namespace foundation::Dispatch
