// The watch: the thread that looks for records by itself (LogCore.h).
#include <exception>
#include <utility>

#include "foundation/dispatch/Threads.h"
#include "logging/LogCore.h"
#include "logging/Nap.h"

namespace {

// With this many records from one look of the watch to the next there is a rush: the watch takes no nap for a while, since
// the ring would be full before it woke up.
constexpr std::uint64_t recordsOfARush = 100;
constexpr int breathsInARush = 10;

}  // namespace

// False when there is no thread to be had, or no memory for it; the next caller asks again.
bool LogCore::wakeWatch() {
  const std::lock_guard lock(_watchMutex);
  try {
    if (!_watch.joinable()) _watch = foundation::Threads::start([this] { keepWatch(); });
  } catch (const std::exception&) {
    _bell.hasNoSleeper();
    return false;
  }
  _bell.wake();
  return true;
}

// A caller does what the watch would do, unless it is inside a block or a logger: whoever runs that goes on.
void LogCore::standIn() {
  while (Queue::current() == nullptr && hasWork() && tryHoldDrain()) {
    drain(_ring.nextTicket(), _ring.nextTicket());
    settle();
    dropDrain();
  }
}

bool LogCore::hasWork() { return _ring.hasRecord() || _nextBlock.load(std::memory_order_seq_cst) != none; }

void LogCore::keepWatch() {
  Nap nap(Nap::watchful);
  Ticket seen = _ring.head();
  for (int breaths = 0; !_isStopping.load(std::memory_order_acquire);) {
    bool hasAdvanced = false;
    bool isBusy = true;
    if (tryHoldDrain()) {
      // Outside a rush the tail is left with those who take tickets.
      const Ticket taken = breaths > 0 ? _ring.nextTicket() : 0;
      hasAdvanced = drain(breaths > 0 ? taken : _ring.head() + recordsOfARush, taken);
      if (!hasAdvanced) settle();
      isBusy = _hasUnwritten;
      dropDrain();
    }
    // Others may have drained meanwhile.
    const Ticket head = _ring.head();
    const Ticket count = head - std::exchange(seen, head);
    if (hasAdvanced || count > 0) nap.startOver();
    if (count >= recordsOfARush) {
      breaths = breathsInARush;
    } else if (breaths > 0) {
      --breaths;
      Nap::breathe();
    } else if (nap.take() == Nap::enough && !isBusy && _ring.head() == _settledAt) {
      sleepUntilRoused();
      nap.startOver();
    }
  }
}

// Nothing has come since the last look.
void LogCore::settle() {
  if (_hasUnwritten) {
    LogDelivery::Round round(_delivery);
    writePending(round);
  }
  const Ticket head = _ring.head();
  if (head == _settledAt) return;
  // Callers who wait for their records deliver them without the watch seeing them come.
  if (std::exchange(_lastSeen, head) != head) return;
  _settledAt = head;
  _delivery.didBecomeIdle();
}

void LogCore::sleepUntilRoused() {
  _bell.sleepUnless([this] { return hasWork() || _isStopping.load(std::memory_order_acquire); });
}

void LogCore::stopWatch() {
  std::thread watch;
  {
    const std::lock_guard lock(_watchMutex);
    _isStopping.store(true, std::memory_order_release);
    _bell.wake();
    watch = std::move(_watch);
  }
  if (watch.joinable()) watch.join();
}
