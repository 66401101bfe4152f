#include "foundation/dispatch/Dispatch.h"

#include <chrono>
#include <new>
#include <string_view>
#include <thread>
#include <utility>

#include "foundation/dispatch/DispatchPool.h"

namespace foundation::Dispatch {
namespace {

// Of a turn for which there is no memory to wait in the queue.
constexpr std::chrono::microseconds nap{200};

// Static objects are made on the main thread.
const std::thread::id mainThread = std::this_thread::get_id();

thread_local const Queue* currentQueue = nullptr;

}  // namespace

void Group::enter() { _count.fetch_add(1, std::memory_order_relaxed); }

// A thread that waits may destroy the group as soon as nobody is in it.
void Group::leave() {
  if (_count.fetch_sub(1, std::memory_order_acq_rel) == 1) Pool::shared().tellWaiting();
}

void Group::wait() {
  const auto isEmpty = [this] { return _count.load(std::memory_order_acquire) == 0; };
  if (!isEmpty()) Pool::shared().waitUntil(isEmpty);
}

const Queue* Queue::current() { return currentQueue; }

Queue::Current::Current(const Queue* queue) : _outer(std::exchange(currentQueue, queue)) {}

Queue::Current::~Current() { currentQueue = _outer; }

std::string_view currentQueueLabel() {
  if (currentQueue != nullptr) return currentQueue->label() ? std::string_view(*currentQueue->label()) : std::string_view();
  return std::this_thread::get_id() == mainThread ? mainThreadLabel : std::string_view();
}

// A thread that waits for its turn. The queue hands the turn over as it is, still busy.
struct SerialQueue::Waiter {
  std::atomic<bool> hasTurn{false};
};

std::shared_ptr<SerialQueue> SerialQueue::make(std::optional<std::string> label) {
  return std::shared_ptr<SerialQueue>(new SerialQueue(std::move(label)));
}

void SerialQueue::async(Block block) { append({.block = std::move(block)}); }

void SerialQueue::async(Group& group, Block block) {
  group.enter();
  try {
    async([&group, block = std::move(block)] {
      block();
      group.leave();
    });
  } catch (...) {
    group.leave();
    throw;
  }
}

void SerialQueue::sync(const Block& block) {
  const Turn turn(*this);
  block();
}

SerialQueue::Turn::Turn(SerialQueue& queue) : _queue(queue.take()), _current(&queue) {}

SerialQueue::Turn::~Turn() { _queue.leave(); }

bool SerialQueue::tryEnter() {
  std::uint32_t idle = 0;
  return _state.compare_exchange_strong(idle, busy, std::memory_order_acquire);
}

SerialQueue& SerialQueue::take() {
  if (tryEnter()) return *this;
  Waiter waiter;
  try {
    append({.block = nullptr, .waiter = &waiter});
  } catch (const std::bad_alloc&) {
    // Without a place in the queue it comes when the queue is idle: its callers are in the middle of something.
    while (!tryEnter()) std::this_thread::sleep_for(nap);
    return *this;
  }
  Pool::shared().waitUntil([&] { return waiter.hasTurn.load(std::memory_order_acquire); });
  return *this;
}

void SerialQueue::leave() {
  if (_state.fetch_sub(busy, std::memory_order_acq_rel) != busy) schedule();
}

void SerialQueue::append(Entry entry) {
  std::uint32_t before = 0;
  {
    const std::lock_guard lock(_mutex);
    _entries.push_back(std::move(entry));
    before = _state.fetch_add(waiting, std::memory_order_acq_rel);
  }
  // Otherwise whoever has the turn, or is about to take it, finds the entry.
  if (before == 0) schedule();
}

// Nobody else schedules what waits here. So when memory is short, this thread runs it.
void SerialQueue::schedule() {
  try {
    Pool::shared().submit([queue = shared_from_this()] { queue->drain(); });
  } catch (const std::bad_alloc&) {
    drain();
  }
}

// Only one drain is ever on its way: it is scheduled by the first entry of an idle queue, or by the turn that ends before
// waiting entries.
void SerialQueue::drain() {
  _state.fetch_add(busy, std::memory_order_acq_rel);
  const Current current(this);
  for (;;) {
    Entry entry = next();
    if (entry.waiter != nullptr) {
      entry.waiter->hasTurn.store(true, std::memory_order_release);
      Pool::shared().tellWaiting();
      return;
    }
    entry.block();
    entry.block = nullptr;
    std::uint32_t alone = busy;
    if (_state.compare_exchange_strong(alone, 0, std::memory_order_acq_rel)) return;
  }
}

SerialQueue::Entry SerialQueue::next() {
  const std::lock_guard lock(_mutex);
  Entry entry = std::move(_entries.front());
  _entries.pop_front();
  _state.fetch_sub(waiting, std::memory_order_acq_rel);
  return entry;
}

// A thread of the parent may have been putting an entry in, and that is how it still looks here: nothing is destroyed.
void SerialQueue::resetAfterFork() {
  std::construct_at(&_mutex);
  std::construct_at(&_entries);
  _state.store(0, std::memory_order_relaxed);
}

}  // namespace foundation::Dispatch
