#pragma once
// Serial queues, groups, semaphores and timers on queues. Any thread may call anything here.
//
// A queue is a place, not a thread: its blocks run one at a time and in the order of submission, on whichever thread is at
// hand, and while one runs the queue is the current one of that thread.
#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>

#include "foundation/Api.h"
#include "foundation/dispatch/Clock.h"

namespace foundation::Dispatch {

using Block = std::function<void()>;
using Semaphore = std::counting_semaphore<>;

// Counts blocks under way. `wait` returns when all that were entered have left; a group can be used again afterwards.
class KELTO_API Group {
 public:
  void enter();
  void leave();
  void wait();

 private:
  std::atomic<std::size_t> _count{0};
};

class KELTO_API Queue {
 public:
  virtual ~Queue() = default;
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  // Runs `block` after all that was submitted before, at some later time.
  virtual void async(Block block) = 0;
  // The same, and returns when it has run. Never from the queue itself: that would wait for itself.
  virtual void sync(const Block& block) = 0;

  [[nodiscard]] const std::optional<std::string>& label() const { return _label; }
  // Whether the calling thread is running one of this queue's blocks (and no block of another queue inside it).
  [[nodiscard]] bool isCurrent() const { return current() == this; }
  // The queue whose block the calling thread is running; nullptr for none.
  [[nodiscard]] static const Queue* current();

 protected:
  explicit Queue(std::optional<std::string> label) : _label(std::move(label)) {}

  // Makes `queue` the current one of this thread for as long as it lives.
  class Current {
   public:
    explicit Current(const Queue* queue);
    ~Current();
    Current(const Current&) = delete;
    Current& operator=(const Current&) = delete;

   private:
    const Queue* _outer;
  };

 private:
  const std::optional<std::string> _label;
};

// The main thread's label when it runs no queue's block.
inline constexpr std::string_view mainThreadLabel = "com.apple.main-thread";

// The label of the current queue; at nullptr when it has none or there is no queue. Valid while the current block runs.
KELTO_API std::string_view currentQueueLabel();

class KELTO_API SerialQueue final : public Queue, public std::enable_shared_from_this<SerialQueue> {
 public:
  static std::shared_ptr<SerialQueue> make(std::optional<std::string> label);

  void async(Block block) override;
  // As a member of `group` from now until it has run.
  void async(Group& group, Block block);
  void sync(const Block& block) override;

  // A turn on the queue, taken by the calling thread for as long as the object lives. Free of locks and allocations when
  // nothing runs or waits on the queue; otherwise it waits for its place in the order.
  class Turn {
   public:
    explicit Turn(SerialQueue& queue);
    ~Turn();
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    // Whether anything waits on the queue: all that was submitted before something that the calling thread has seen.
    [[nodiscard]] bool isAwaited() const { return _queue._state.load(std::memory_order_acquire) != busy; }

   private:
    SerialQueue& _queue;
    Current _current;
  };

  // Keeps the queue at rest: takes the turn if nothing runs or waits there, without becoming the current queue. The turn
  // ends with `leave`.
  bool tryEnter();
  void leave();
  // In a forked child: free, with nothing waiting. Nothing that the parent has left there is ever destroyed.
  void resetAfterFork();

 private:
  struct Waiter;
  struct Entry {
    Block block;
    Waiter* waiter = nullptr;
  };

  explicit SerialQueue(std::optional<std::string> label) : Queue(std::move(label)) {}
  SerialQueue& take();
  void append(Entry entry);
  void schedule();
  void drain();
  Entry next();

  static constexpr std::uint32_t busy = 1;
  static constexpr std::uint32_t waiting = 2;
  // 1 while somebody has the turn, and 2 for every entry that waits.
  std::atomic<std::uint32_t> _state{0};
  std::mutex _mutex;
  std::deque<Entry> _entries;
};

// Fires a handler on a queue. Made suspended; a firing that falls due meanwhile happens at the next resume.
class KELTO_API TimerSource : public std::enable_shared_from_this<TimerSource> {
 public:
  // Neither suspended nor cancelled timers keep their queue busy; the handler never runs after `cancel` when that was
  // called on the queue.
  static std::shared_ptr<TimerSource> make(std::weak_ptr<Queue> queue, Block handler);

  // First at `start` (at once when that has passed), then every `interval`; an interval of zero means once. Replaces what
  // was set before. Throws std::bad_alloc, like `resume`; a firing waits for memory.
  void set(Uptime start, Seconds interval);
  void resume();
  void suspend();
  void cancel();

  TimerSource(const TimerSource&) = delete;
  TimerSource& operator=(const TimerSource&) = delete;
  ~TimerSource();

 private:
  TimerSource(std::weak_ptr<Queue> queue, Block handler) : _queue(std::move(queue)), _handler(std::move(handler)) {}
  // With the lock held.
  void arm();
  void armForNext();
  void disarm();

  void fire(std::uint64_t setting);
  void submit(Queue& queue, std::uint64_t setting);
  bool isCurrentSetting(std::uint64_t setting);

  const std::weak_ptr<Queue> _queue;
  const Block _handler;
  std::mutex _mutex;
  bool _isSuspended = true;
  bool _isCancelled = false;
  std::optional<Uptime> _due;
  std::chrono::nanoseconds _interval{0};
  std::uint64_t _setting = 0;
  std::optional<Clock::CallID> _call;
};

}  // namespace foundation::Dispatch
