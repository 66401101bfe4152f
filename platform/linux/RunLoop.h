#pragma once
// The main run loop but for its waiting, which a subclass does: it calls fireWhatIsDue when the time has come.
//
// Main thread only. One queue of deadlines holds delayed calls, timer ticks and delivered callbacks; they run in the order
// in which they were due, from fireWhatIsDue and never inside another call of this class. While the loop is paused nothing
// runs. Deadlines are kept on the steady clock, so setting the machine's clock neither hastens nor delays anything.
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

#include "foundation/dispatch/RunLoop.h"

namespace platform::Linux {

class RunLoop : public foundation::RunLoop {
 public:
  using Clock = std::chrono::steady_clock;

  [[nodiscard]] foundation::Date currentDate() const override;
  // A delay that is not a number, or below zero, counts as zero; one of more than thirty years as thirty years.
  void performAfterDelay(foundation::Seconds delay, const void* target, std::function<void()> action) override;
  void cancelPreviousPerformRequests(const void* target) override;
  std::shared_ptr<foundation::Timer> scheduledTimer(foundation::Seconds interval, bool repeats,
                                                    std::function<void(foundation::Timer&)> action) override;

  // Runs `action` later, as soon as the loop is not paused: for what comes from outside the process.
  void deliver(std::function<void()> action);

  // As long as a Pause lives nothing fires; what falls due waits. Pauses nest.
  class Pause {
   public:
    explicit Pause(RunLoop& runLoop);
    ~Pause();
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    RunLoop& _runLoop;
  };

  [[nodiscard]] bool isPaused() const { return _pauses > 0; }

  // Nothing fires any more: the application has ended.
  void stop();

  // When there is something to fire; nullopt when there is nothing, or the loop is paused.
  [[nodiscard]] std::optional<Clock::time_point> nextDue() const;
  void fireWhatIsDue();

 private:
  using Place = std::pair<Clock::time_point, std::uint64_t>;
  struct Event {
    const void* target;
    std::function<void()> action;
  };
  class ScheduledTimer;

  void schedule(Clock::time_point due, const void* target, std::function<void()> action);
  void scheduleTick(const std::shared_ptr<ScheduledTimer>& timer, Clock::time_point due);
  // nextDue may have changed.
  virtual void arm() {}

  std::map<Place, Event> _events;
  std::uint64_t _order = 0;
  int _pauses = 0;
};

}  // namespace platform::Linux
