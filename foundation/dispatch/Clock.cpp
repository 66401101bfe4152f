#include "foundation/dispatch/Clock.h"

#include <atomic>
#include <condition_variable>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "foundation/dispatch/Fork.h"
#include "foundation/dispatch/Threads.h"
#include "foundation/runtime/Lasting.h"

namespace foundation {
namespace {

// Calls wait in the order of their time; one thread, made for the first of them, sleeps until the next is due.
class SystemClock final : public Clock {
 public:
  SystemClock() {
    _handlers = Fork::addHandlers({.prepare = [this] { _mutex.lock(); },
                                   .parent = [this] { _mutex.unlock(); },
                                   .child =
                                       [this] {
                                         _hasThread = false;
                                         _calls.clear();
                                         std::construct_at(&_changed);  // the thread that is gone was waiting on it
                                         _mutex.unlock();
                                       }});
  }

  // Before its first call.
  ~SystemClock() override { Fork::removeHandlers(_handlers); }
  SystemClock(const SystemClock&) = delete;
  SystemClock& operator=(const SystemClock&) = delete;

  [[nodiscard]] Date now() const override { return std::chrono::system_clock::now(); }
  [[nodiscard]] Uptime uptime() const override { return std::chrono::steady_clock::now(); }

  CallID callAt(Uptime when, std::function<void()> action) override {
    const std::lock_guard lock(_mutex);
    const CallID call = ++_lastCall;
    const auto place = _calls.emplace(std::pair(when, call), std::move(action)).first;
    if (!_hasThread) startThread();
    if (place == _calls.begin()) _changed.notify_one();
    return call;
  }

  void cancel(CallID call) override {
    const std::lock_guard lock(_mutex);
    std::erase_if(_calls, [&](const auto& entry) { return entry.first.second == call; });
  }

 private:
  // Without a thread or the memory for it the next call tries again.
  void startThread() {
    try {
      Threads::start([this] { run(); }).detach();
      _hasThread = true;
    } catch (const std::exception&) {
    }
  }

  // False when memory is short.
  static bool isMade(const std::function<void()>& action) {
    try {
      action();
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  }

  [[noreturn]] void run() {
    std::unique_lock lock(_mutex);
    for (;;) {
      if (_calls.empty()) {
        _changed.wait(lock);
      } else if (const Uptime due = _calls.begin()->first.first; due > uptime()) {
        _changed.wait_until(lock, due);
      } else {
        auto call = _calls.extract(_calls.begin());
        lock.unlock();
        const bool isOver = isMade(call.mapped());
        if (isOver) call = {};
        lock.lock();
        if (isOver) continue;
        call.key().first = uptime() + moment;
        _calls.insert(std::move(call));
      }
    }
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  std::map<std::pair<Uptime, CallID>, std::function<void()>> _calls;
  CallID _lastCall = 0;
  bool _hasThread = false;
  Fork::HandlersID _handlers = 0;
};

constinit std::atomic<Clock*> replacement{nullptr};
// Objects of static storage may still ask for the time while the process ends.
constinit Lasting<Clock> systemClock;

}  // namespace

Clock& Clock::current() {
  if (Clock* clock = replacement.load(std::memory_order_acquire)) return *clock;
  return systemClock.get([] { return std::make_unique<SystemClock>(); });
}

void Clock::replaceCurrent(Clock* clock) { replacement.store(clock, std::memory_order_release); }

}  // namespace foundation
