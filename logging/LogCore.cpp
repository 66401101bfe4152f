#include "logging/LogCore.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

#include "logging/Nap.h"

using foundation::Dispatch::Block;
using SteadyClock = std::chrono::steady_clock;

namespace {

constinit std::atomic<LogCore*> theCore{nullptr};

// The core whose drain the calling thread holds.
thread_local const LogCore* heldDrain = nullptr;

// Lines that a logger has put aside are handed on at this age.
constexpr std::chrono::microseconds writeAge{200};
// The age is looked at after this many records while a single logger is busy.
constexpr std::uint64_t recordsBetweenLooks = 32;
// A crashing thread waits this long for the watch, looking at it this often.
constexpr std::chrono::milliseconds crashPatience{1000};
constexpr std::chrono::milliseconds crashLook{1};
// A fork waits this long for the loggers to come to rest.
constexpr std::chrono::milliseconds forkPatience{200};
// Prefetch distance, in records.
constexpr std::uint64_t recordsAhead = 6;

// The calling thread's errno, as it was, at the end of the scope.
class PreservedError {
 public:
  PreservedError() = default;
  ~PreservedError() { errno = _error; }
  PreservedError(const PreservedError&) = delete;
  PreservedError& operator=(const PreservedError&) = delete;

 private:
  const int _error = errno;
};

}  // namespace

LogCore* LogCore::current() {
  LogCore* core = theCore.load(std::memory_order_acquire);
  if (core != nullptr) return core;
  platform::LoggingPlatform* platform = platform::installed();
  if (platform == nullptr) return nullptr;
  return platform->process.once<LogCore>([&] { return std::make_shared<LogCore>(*platform); });
}

LogCore::LogCore(platform::LoggingPlatform& platform)
    : Queue("cocoa.plamaiskre"),
      _systemLog(platform.systemLog),
      _process(platform.loggingHost != nullptr ? &platform.loggingHost->process : nullptr),
      _journal(std::make_shared<LogJournal>(platform.loggingHost)),
      _ring(_journal->ringMemory()),
      _delivery(_process, platform.systemLog),
      _bell(_process) {
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

std::uint32_t LogCore::threadOfCaller() {
  const Visit core;
  return core ? core->callingThread() : CallingThread::identifier(nullptr);
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

// The last flush, and the last moments of loggers that were removed. Later statements are written by their callers.
void LogCore::finish() {
  Phase running = Phase::running;
  _phase.compare_exchange_strong(running, Phase::ending);
  if (heldDrain == this || isStray()) return;
  sync([this] { lt_flush(); });
  _delivery.waitForRemoved();
  // Loggers may have logged in their last moments; those records wait for nobody but this.
  sync([this] {
    lt_flush();
    _delivery.willEnd();
  });
}

void LogCore::finishAtExit() {
  LogCore* core = theCore.load(std::memory_order_acquire);
  if (core == nullptr) return;
  core->finish();
  core->_journal->discard();
}

void LogCore::writeOnCrash() {
  const platform::LoggingHost* host = _journal->host();
  if (host != nullptr && host->callBeforeCrash) host->callBeforeCrash(writeBeforeDeath);
}

// In a signal handler, so without locks and memory: the watch does the work. A crash inside a logger leaves the rest to the
// next process (LogJournal.h).
void LogCore::writeBeforeDeath() {
  LogCore* core = theCore.load(std::memory_order_acquire);
  if (core == nullptr || core->isStray() || heldDrain == core) return;
  const Ticket end = core->_ring.nextTicket();
  if (core->_bell.mustWake()) core->_bell.wake();
  for (auto waited = crashLook; core->_written.load() < end && waited < crashPatience; waited += crashLook)
    std::this_thread::sleep_for(crashLook);
}

void LogCore::record(const DDLogMessage& message, bool asynchronous) {
  record(message._facts, message._text, message._label, message._fields, asynchronous);
}

void LogCore::record(const DDLogMessage::Facts& facts, std::string_view text, std::string_view label,
                     std::string_view fields, bool asynchronous) {
  const Phase phase = _phase.load(std::memory_order_relaxed);
  if (phase == Phase::stray) {
    _systemLog.log(text);
    return;
  }
  // While the process ends a block cannot wait for its record: a logger that logs would wait for itself.
  const bool waits = !asynchronous || (phase == Phase::ending && Queue::current() == nullptr);
  // Without a ticket nobody else has to wait for this thread to wake up again.
  if (!_ring.hasRoom()) waitForRoom();
  const Ticket ticket = _ring.takeTicket();
  if (!_ring.isFree(ticket)) waitForSlot(ticket);
  LogSlot& slot = _ring.slotOf(ticket);
  slot.fill(facts, text, label, waits, _ring.texts(), fields);
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

void LogCore::waitForSlot(Ticket ticket) {
  rouse();
  waitUntil([&] { return _ring.isFree(ticket); }, ticket);
}

void LogCore::async(Block block) {
  if (!isStray()) place(std::move(block), nullptr);
}

void LogCore::sync(const Block& block) {
  if (isStray()) return;
  std::atomic<bool> isDone{false};
  place(block, &isDone);
  waitUntil([&] { return isDone.load(std::memory_order_acquire); }, _ring.nextTicket());
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

// Waits by doing the work, as long as nobody else does it. In a child that was forked by this work there is nothing to wait
// for.
template <class IsDone>
void LogCore::waitUntil(const IsDone& isDone, Ticket limit) {
  // A statement between a failed call and the look at its error must not change the error.
  const PreservedError error;
  for (Nap nap(Nap::patient); !isDone() && !isStray();) {
    bool hasAdvanced = false;
    if (tryHoldDrain()) {
      hasAdvanced = drain(limit, limit);
      dropDrain();
    }
    if (!hasAdvanced) nap.take();
  }
}

bool LogCore::tryHoldDrain() {
  if (_isDraining.load(std::memory_order_relaxed) || _isDraining.exchange(true, std::memory_order_acquire)) return false;
  heldDrain = this;
  return true;
}

void LogCore::dropDrain() {
  heldDrain = nullptr;
  _isDraining.store(false, std::memory_order_release);
}

// Runs blocks and delivers records until it comes to `limit` or to a record that is not there yet. Whether anything was.
// The tickets below `taken` have been taken: a slot that waits for the next one is not fetched from those who will fill it.
bool LogCore::drain(Ticket limit, Ticket taken) noexcept {
  const Current queue(this);
  LogDelivery::Round round(_delivery);
  bool hasAdvanced = false;
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
    if (isStray()) return true;
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
    _delivery.attempt(next.block);
    next.block = nullptr;
    if (isStray()) return;
    if (next.isDone != nullptr) next.isDone->store(true, std::memory_order_release);
    lock.lock();
  }
}

void LogCore::deliver(LogDelivery::Round& round, Ticket ticket) {
  const LogSlot& slot = _ring.slotOf(ticket);
  const bool isSynchronous = slot.isSynchronous;
  _journal->setTicket(ticket);
  round.deliver(slot.message(), isSynchronous);
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
  _written.store(_ring.head(), std::memory_order_release);
}

void LogCore::lt_addLogger(std::shared_ptr<DDLogger> logger) { _delivery.add(std::move(logger)); }

void LogCore::lt_removeLogger(const std::shared_ptr<DDLogger>& logger) { _delivery.remove(logger); }

void LogCore::lt_removeAllLoggers() { _delivery.removeAll(); }

void LogCore::lt_flush() {
  _delivery.flush();
  _hasUnwritten = false;
  _written.store(_ring.head(), std::memory_order_release);
}

// Forks. Nobody delivers anything and no logger does anything while the process forks: then the child can go on with
// loggers of its own. If that cannot be had, because a logger forks or one is busy for long, the child is a stray: it must
// not touch what was in the middle of something in the parent.

void LogCore::prepareFork() {
  const auto end = SteadyClock::now() + forkPatience;
  for (Nap nap(Nap::patient); !_isAtRest && heldDrain != this && !isStray() && SteadyClock::now() < end;) {
    if (tryHoldDrain()) {
      _isAtRest = _delivery.tryHold();
      if (!_isAtRest) dropDrain();
    }
    if (!_isAtRest) nap.take();
  }
  _blocksMutex.lock();
  _watchMutex.lock();
}

void LogCore::endFork() {
  _watchMutex.unlock();
  _blocksMutex.unlock();
  if (!std::exchange(_isAtRest, false)) return;
  _delivery.letGo();
  dropDrain();
}

void LogCore::beginChild() {
  // The threads are the parent's, and cannot be joined here.
  std::construct_at(&_watch);
  _bell.hasNoSleeper();
  if (_isAtRest)
    startOver();
  else
    goAstray();
  endFork();
}

// The waiting records and blocks are the parent's. Objects that the blocks hold must not end here, where they cannot log.
void LogCore::startOver() {
  _ring.reset();
  std::construct_at(&_blocks);
  _nextBlock.store(none);
  _written.store(0);
  _hasUnwritten = false;
  _lastSeen = _settledAt = 0;
  _delivery.didFork();
}

void LogCore::goAstray() {
  _phase.store(Phase::stray);
  _isStopping.store(true);
  _delivery.goAstray();
}
