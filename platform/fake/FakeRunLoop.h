#pragma once
// A run loop on a virtual clock: nothing runs until a test lets time pass. One thread.
#include "foundation/dispatch/RunLoop.h"
#include "platform/fake/FakeLogging.h"

namespace platform::fake {

class FakeRunLoop final : public foundation::RunLoop {
 public:
  explicit FakeRunLoop(FakeClock& clock) : _clock(clock) {}

  [[nodiscard]] foundation::Date currentDate() const override { return _clock.now(); }
  void performAfterDelay(foundation::Seconds delay, const void* target, std::function<void()> action) override;
  void cancelPreviousPerformRequests(const void* target) override;
  std::shared_ptr<foundation::Timer> scheduledTimer(foundation::Seconds interval, bool repeats,
                                                    std::function<void(foundation::Timer&)> action) override;

  // Lets time pass, running what falls due in order, each at its own time. To let time pass while the main thread is busy,
  // so that nothing runs, move the clock instead.
  void advance(foundation::Seconds duration);
  // Runs what is due now.
  void runPending() { advance(foundation::Seconds(0)); }

  // As long as a Pause lives nothing runs, as while an alert is up. Pauses nest.
  class Pause {
   public:
    explicit Pause(FakeRunLoop& runLoop) : _runLoop(runLoop) { ++_runLoop._pauses; }
    ~Pause() { --_runLoop._pauses; }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    FakeRunLoop& _runLoop;
  };
  // Nothing runs any more: the application has ended.
  void stop() { ++_pauses; }

  // The delays of the calls for `target` that are still to be made, measured from now, soonest first.
  [[nodiscard]] std::vector<foundation::Seconds> pendingDelays(const void* target) const;
  [[nodiscard]] std::size_t pendingCount() const { return _events.size(); }
  // The interval of every timer that is scheduled and valid.
  [[nodiscard]] std::vector<foundation::Seconds> timerIntervals() const;

 private:
  struct Event {
    foundation::Uptime due;
    std::uint64_t order;
    const void* target;
    std::function<void()> action;
  };
  struct ScheduledTimer;

  void schedule(foundation::Uptime due, const void* target, std::function<void()> action);
  void scheduleTick(const std::shared_ptr<ScheduledTimer>& timer);
  void moveClockTo(foundation::Uptime moment);
  bool runNext(foundation::Uptime end);

  FakeClock& _clock;
  std::uint64_t _order = 0;
  int _pauses = 0;
  std::vector<Event> _events;
  std::vector<std::weak_ptr<ScheduledTimer>> _timers;
};

}  // namespace platform::fake
