#include "logging/LogCore.h"

#include <cstdlib>
#include <utility>

#include "logging/Nap.h"

using foundation::Dispatch::Block;
using SteadyClock = std::chrono::steady_clock;

namespace {

std::atomic<LogCore*> theCore{nullptr};

// The core whose drain the calling thread holds.
thread_local const LogCore* heldDrain = nullptr;

// What a logger has put aside is handed on at this age.
constexpr std::chrono::microseconds writeAge{200};
// So often the age is looked at while a single logger is busy.
constexpr std::uint64_t recordsBetweenLooks = 32;
// So many records from one look of the watch to the next are a rush: it looks on without a nap for a while, since the ring
// would be full before it woke up.
constexpr std::uint64_t recordsOfARush = 100;
constexpr int breathsInARush = 10;
// So many records ahead the slots are brought into the cache.
constexpr std::uint64_t recordsAhead = 6;

}  // namespace

LogCore* LogCore::current() {
  LogCore* core = theCore.load(std::memory_order_acquire);
  if (core != nullptr) return core;
  platform::Platform* platform = platform::installed();
  if (platform == nullptr) return nullptr;
  return platform->process.once<LogCore>([&] { return std::make_shared<LogCore>(*platform); });
}

LogCore::LogCore(platform::Platform& platform)
    : Queue("cocoa.plamaiskre"),
      _journal(std::make_shared<LogJournal>(platform.loggingHost)),
      _ring(_journal->ringMemory()),
      _delivery(platform.loggingHost != nullptr ? platform.loggingHost->process.processorCount()
                                                : std::thread::hardware_concurrency()),
      _fencesForOthers(platform.loggingHost != nullptr && platform.loggingHost->process.fenceOtherThreads()) {
  _forkHandlers = foundation::Fork::addHandlers({.stage = foundation::Fork::Stage::work,
                                                 .prepare = [this] { prepareFork(); },
                                                 .parent = [this] { endFork(); },
                                                 .child = [this] { beginChild(); }});
  platform.defaultNotificationCenter.addObserver(foundation::applicationWillTerminateNotification,
                                                 [](const foundation::Notification&) {
                                                   LogCore* core = theCore.load(std::memory_order_acquire);
                                                   if (core != nullptr) core->sync([core] { core->lt_flush(); });
                                                 });
  theCore.store(this, std::memory_order_release);
  [[maybe_unused]] static const int once = std::atexit(finishAtExit);
}

LogCore::~LogCore() {
  finish();
  LogCore* self = this;
  theCore.compare_exchange_strong(self, nullptr);
  foundation::Fork::removeHandlers(_forkHandlers);
  stopWatch();
  _delivery.stop();
  _journal->discard();
}

// The last flush, and the last moments of loggers that were removed. Whatever is logged later is written by its caller.
void LogCore::finish() {
  _isExiting.store(true, std::memory_order_release);
  if (heldDrain == this) return;
  sync([this] { lt_flush(); });
  _delivery.waitForRemoved();
}

void LogCore::finishAtExit() {
  LogCore* core = theCore.load(std::memory_order_acquire);
  if (core == nullptr) return;
  core->finish();
  core->_journal->discard();
}

void LogCore::record(const DDLogMessage& message, bool asynchronous) {
  record(message._facts, message._text, message._label, asynchronous);
}

void LogCore::record(const DDLogMessage::Facts& facts, std::string_view text, std::string_view label, bool asynchronous) {
  // A logger that logs while the process ends cannot wait for itself.
  const bool waits = !asynchronous || (_isExiting.load(std::memory_order_relaxed) && heldDrain != this);
  Ticket ticket = 0;
  do {
    // Without a ticket nobody else has to wait for this thread to wake up again.
    if (!_ring.hasRoom()) waitForRoom();
    ticket = _ring.takeTicket();
  } while (!_ring.isFree(ticket) && !waitForSlot(ticket));
  LogSlot& slot = _ring.slotOf(ticket);
  slot.fill(facts, text, label, waits, _ring.texts());
  const std::size_t bytes = slot.filledBytes();
  _ring.publish(ticket);
  rouse();
  _ring.prefetchForWriting(ticket + recordsAhead, bytes);
  if (waits) waitUntil([&] { return _written.load(std::memory_order_acquire) > ticket; }, ticket + 1);
}

void LogCore::waitForRoom() {
  rouse();
  waitUntil([&] { return _ring.hasRoom(); }, _ring.nextTicket());
}

bool LogCore::waitForSlot(Ticket ticket) {
  rouse();
  return waitUntil([&] { return _ring.isFree(ticket); }, ticket);
}

void LogCore::async(Block block) { place(std::move(block), nullptr); }

void LogCore::sync(const Block& block) {
  std::atomic<bool> isDone{false};
  do place(block, &isDone);
  while (!waitUntil([&] { return isDone.load(std::memory_order_acquire); }, _ring.nextTicket()));
}

void LogCore::place(Block block, std::atomic<bool>* isDone) {
  {
    const std::lock_guard lock(_blocksMutex);
    const Ticket before = _ring.nextTicket();
    _blocks.push_back({.before = before, .block = std::move(block), .isDone = isDone});
    if (_blocks.size() == 1) _nextBlock.store(before, std::memory_order_seq_cst);
  }
  rouse();
}

// Waits by doing the work, as long as nobody else does it. Returns false in a child that was forked by this work: tickets
// and blocks of the parent mean nothing there.
template <class IsDone>
bool LogCore::waitUntil(const IsDone& isDone, Ticket limit) {
  for (Nap nap(Nap::patient); !isDone();) {
    bool hasAdvanced = false;
    if (tryHoldDrain()) {
      hasAdvanced = drain(limit, limit);
      if (!dropDrain()) return false;
    }
    if (!hasAdvanced) nap.take();
  }
  return true;
}

bool LogCore::tryHoldDrain() {
  if (_isDraining.load(std::memory_order_relaxed) || _isDraining.exchange(true, std::memory_order_acquire)) return false;
  heldDrain = this;
  return true;
}

// Returns false in a child that was forked while this thread held the drain, where it holds nothing.
bool LogCore::dropDrain() {
  if (heldDrain != this) return false;
  heldDrain = nullptr;
  _isDraining.store(false, std::memory_order_release);
  return true;
}

// Runs blocks and delivers records until it comes to `limit` or to a record that is not there yet. Whether anything was.
// The tickets below `taken` have been taken: a slot that waits for the next one is not fetched from those who will fill it.
bool LogCore::drain(Ticket limit, Ticket taken) {
  const Current queue(this);
  LogDelivery::Round round(_delivery);
  bool hasAdvanced = false;
  _delivery.wakeOnlooker();
  for (;;) {
    const Ticket head = _ring.head();
    if (_nextBlock.load(std::memory_order_acquire) <= head) {
      round.pause();
      runBlocks(head);
    } else if (head < limit && _ring.hasRecord()) {
      if (head + recordsAhead < taken) _ring.prefetchForReading(head + recordsAhead, _ring.slotOf(head).filledBytes());
      deliver(round, head);
    } else {
      return hasAdvanced;
    }
    if (heldDrain != this) return true;
    hasAdvanced = true;
  }
}

void LogCore::runBlocks(Ticket head) {
  std::unique_lock lock(_blocksMutex);
  while (!_blocks.empty() && _blocks.front().before <= head) {
    PlacedBlock next = std::move(_blocks.front());
    _blocks.pop_front();
    _nextBlock.store(_blocks.empty() ? none : _blocks.front().before, std::memory_order_relaxed);
    lock.unlock();
    next.block();
    next.block = nullptr;
    if (heldDrain != this) return;
    if (next.isDone != nullptr) next.isDone->store(true, std::memory_order_release);
    lock.lock();
  }
}

void LogCore::deliver(LogDelivery::Round& round, Ticket ticket) {
  const LogSlot& slot = _ring.slotOf(ticket);
  const bool isSynchronous = slot.isSynchronous;
  _journal->setTicket(ticket);
  _isDelivering = true;
  round.deliver(slot.message(), isSynchronous);
  if (heldDrain != this) return;
  _isDelivering = false;
  _ring.release(ticket);
  if (isSynchronous) {
    _hasUnwritten = false;
    _written.store(ticket + 1, std::memory_order_release);
    return;
  }
  if (!std::exchange(_hasUnwritten, true))
    _unwrittenSince = SteadyClock::now();
  else if (_delivery.hasSeveral() || ticket % recordsBetweenLooks == 0)
    writeWhatIsOld(round);
}

void LogCore::writeWhatIsOld(LogDelivery::Round& round) {
  if (SteadyClock::now() - _unwrittenSince >= writeAge) writePending(round);
}

void LogCore::writePending(LogDelivery::Round& round) {
  round.writePending();
  _hasUnwritten = false;
}

void LogCore::lt_addLogger(std::shared_ptr<DDLogger> logger) { _delivery.add(std::move(logger)); }

void LogCore::lt_removeLogger(const std::shared_ptr<DDLogger>& logger) { _delivery.remove(logger); }

void LogCore::lt_removeAllLoggers() { _delivery.removeAll(); }

void LogCore::lt_flush() {
  _delivery.flush();
  _hasUnwritten = false;
}

// The watch.

// Whoever put something in and finds the watch awake, and the watch that looks once more before it sleeps, cannot both miss
// each other: between the two steps of each lies a fence.
void LogCore::rouse() {
  std::atomic_signal_fence(std::memory_order_seq_cst);
  if (!_fencesForOthers) _calls.fetch_add(0, std::memory_order_acq_rel);
  if (_isAsleep.load(std::memory_order_relaxed) && _isAsleep.exchange(false)) wakeWatch();
}

void LogCore::wakeWatch() {
  const std::lock_guard lock(_watchMutex);
  if (!_watch.joinable()) _watch = std::thread([this] { keepWatch(); });
  _calls.fetch_add(1, std::memory_order_release);
  _calls.notify_one();
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
      if (!dropDrain()) return;
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
  _delivery.letOnlookerSleep();
  const std::uint32_t calls = _calls.load(std::memory_order_acquire);
  _isAsleep.store(true, std::memory_order_seq_cst);
  _calls.fetch_add(0, std::memory_order_acq_rel);
  if (_fencesForOthers) _journal->host()->process.fenceOtherThreads();
  if (hasWork() || _isStopping.load(std::memory_order_acquire)) {
    // Whoever put it there may have taken the watch for awake.
    if (_isAsleep.exchange(false)) return;
  }
  _calls.wait(calls, std::memory_order_acquire);
}

void LogCore::stopWatch() {
  std::thread watch;
  {
    const std::lock_guard lock(_watchMutex);
    _isStopping.store(true, std::memory_order_release);
    _calls.fetch_add(1, std::memory_order_release);
    _calls.notify_one();
    watch = std::move(_watch);
  }
  if (watch.joinable()) watch.join();
}

// Forks. Nobody delivers anything and nobody starts a thread while the process forks, unless it is a logger that forks:
// then whoever drains is inside that logger's part, or waits for it.

void LogCore::prepareFork() {
  _forkedInside = heldDrain == this || _delivery.isPartHere();
  for (Nap nap(Nap::patient); !_forkedInside && !tryHoldDrain();) nap.take();
  if (_forkedInside && _isDelivering) _headAtFork = _ring.copyOfHead();
  _blocksMutex.lock();
  _watchMutex.lock();
}

void LogCore::endFork() {
  _headAtFork.reset();
  _watchMutex.unlock();
  _blocksMutex.unlock();
  if (!_forkedInside) dropDrain();
}

void LogCore::beginChild() {
  // What waits is the parent's, and so are the threads, which cannot be joined here.
  std::construct_at(&_watch);
  if (_headAtFork) {
    // Which is still being read where it is; the child's own records go elsewhere.
    _ring.putBack(*_headAtFork);
    std::construct_at(&_ring, _journal->anotherRingMemory());
  } else {
    _ring.reset();
  }
  _isDelivering = false;
  _blocks.clear();
  _nextBlock.store(none);
  _written.store(0);
  _hasUnwritten = false;
  _lastSeen = _settledAt = 0;
  _isAsleep.store(true);
  _delivery.didFork();
  // Whoever held the drain, only this thread is left to drop it; a logger that forked is not inside anything here.
  heldDrain = this;
  _forkedInside = false;
  endFork();
}
