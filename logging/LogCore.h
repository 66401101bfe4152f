#pragma once
// The state behind DDLog, and the logging queue itself.
//
// The idea. Waking a thread costs a caller more than a hundred times as much as writing a record into memory, so a
// statement must not wake anybody. A caller takes a ticket, which is its place in the order, copies its record into the
// slot of that ticket (LogRing.h) and goes on. Another thread, the watch, looks for records by itself: in naps of 50
// microseconds that grow to 10 milliseconds while nothing comes. After a second without records it sleeps for good, and
// only then does the next caller have to wake it (Doorbell.h).
//
// The logging queue is therefore a right and not a thread. The right is called the drain: its holder takes the records and
// blocks in the order of their tickets, and nobody else does. The watch mostly holds it. A caller who has to wait, because
// its statement is synchronous or the ring is full, does not wait for the watch to wake up: it takes the drain if that is
// free and does the work itself, up to its own record, without any change of threads.
//
// Each record goes to every logger before the next one is taken (LogDelivery.h). Loggers may put lines aside to write many
// at once; the holder of the drain has them written before a synchronous statement returns, when they are 200 microseconds
// old, and when the watch finds nothing more to do.
#include <atomic>
#include <deque>
#include <thread>

#include "foundation/dispatch/Fork.h"
#include "logging/CallingThread.h"
#include "logging/DDLogger.h"
#include "logging/Doorbell.h"
#include "logging/LogDelivery.h"
#include "logging/LogJournal.h"
#include "logging/LogRing.h"
#include "platform/LoggingPlatform.h"

class LogCore final : public foundation::Dispatch::Queue {
 public:
  // The core of the installed platform, made at the first call; nullptr without a platform, or when its core is gone.
  static LogCore* current();
  // The core for one call of any thread, during which the platform does not end.
  class Visit {
   public:
    Visit() : _core(_platform || LogDelivery::isAtWork() ? current() : nullptr) {}
    explicit operator bool() const { return _core != nullptr; }
    LogCore* operator->() const { return _core; }
    LogCore& operator*() const { return *_core; }

   private:
    const platform::Visit _platform;
    LogCore* const _core;
  };
  explicit LogCore(platform::LoggingPlatform& platform);
  ~LogCore() override;

  // As a queue: blocks keep their place among the records.
  void async(foundation::Dispatch::Block block) override;
  void sync(const foundation::Dispatch::Block& block) override;

  // `label` may be nullptr: the record then has no label.
  void record(const DDLogMessage::Facts& facts, std::string_view text, std::string_view label, std::string_view fields,
              bool asynchronous);
  void record(const DDLogMessage& message, bool asynchronous);

  // To the system log, unless something else has been thrown before.
  void reportThrown(const char* reason) noexcept { _delivery.report(reason); }

  // Whether this is the child of a fork that no logger was prepared for (DDLogger::didFork): statements go to the system
  // log only, and nothing else here does anything.
  [[nodiscard]] bool isStray() const { return _phase.load(std::memory_order_relaxed) == Phase::stray; }

  // From now on a crash lets the watch write what waits, as far as that is possible within a second.
  void writeOnCrash();

  // The kernel's number of the calling thread.
  [[nodiscard]] std::uint32_t callingThread() const { return CallingThread::identifier(_process); }
  static std::uint32_t threadOfCaller();

  // On the logging queue.
  void lt_addLogger(std::shared_ptr<DDLogger> logger);
  void lt_removeLogger(const std::shared_ptr<DDLogger>& logger);
  void lt_removeAllLoggers();
  void lt_flush();

  // The memory that outlives the process, and what former processes left in theirs.
  [[nodiscard]] const std::shared_ptr<LogJournal>& journal() const { return _journal; }

 private:
  using Ticket = std::uint64_t;
  struct PlacedBlock {
    Ticket before;  // runs before the record with this ticket
    foundation::Dispatch::Block block;
    std::atomic<bool>* isDone;
  };
  static constexpr Ticket none = ~Ticket{0};
  // At the end callers deliver their records themselves.
  enum class Phase : std::uint8_t { running, ending, stray };

  void place(foundation::Dispatch::Block block, std::atomic<bool>* isDone);
  void waitForRoom();
  void waitForSlot(Ticket ticket);
  template <class IsDone>
  void waitUntil(const IsDone& isDone, Ticket limit);

  // The holder of the drain. Nothing of this throws: work of loggers is attempted, and goes on without what is short.
  bool tryHoldDrain();
  void dropDrain();
  bool drain(Ticket limit, Ticket taken) noexcept;
  void runBlocks(Ticket head);
  void deliver(LogDelivery::Round& round, Ticket ticket);
  void writePending(LogDelivery::Round& round);
  void writeWhatIsOld(LogDelivery::Round& round);

  // The watch.
  void rouse() {
    if (_bell.mustWake() && !wakeWatch()) standIn();
  }
  bool wakeWatch();
  void standIn();
  void keepWatch();
  void settle();
  [[nodiscard]] bool hasWork();
  void stopWatch();
  void sleepUntilRoused();

  void finish();
  static void finishAtExit();
  static void writeBeforeDeath();
  void prepareFork();
  void endFork();
  void beginChild();
  void startOver();
  void goAstray();

  platform::SystemLog& _systemLog;
  platform::ProcessInfo* const _process;  // or nullptr
  const std::shared_ptr<LogJournal> _journal;
  LogRing _ring;
  LogDelivery _delivery;

  // Every caller reads these; they are written seldom.
  alignas(64) Doorbell _bell;
  std::atomic<Phase> _phase{Phase::running};
  std::atomic<bool> _isStopping{false};
  std::atomic<Ticket> _nextBlock{none};  // the place of the first waiting block
  std::mutex _watchMutex;
  std::thread _watch;
  std::mutex _blocksMutex;
  std::deque<PlacedBlock> _blocks;
  bool _isAtRest = false;  // while the process forks: whether this thread holds the drain and the loggers' queues
  foundation::Fork::HandlersID _forkHandlers = 0;

  // The holder of the drain writes these, mostly with every record.
  alignas(64) std::atomic<bool> _isDraining{false};
  bool _hasUnwritten = false;
  std::chrono::steady_clock::time_point _unwrittenSince;
  // Every record below this ticket has been handed on by every logger, not only received.
  std::atomic<Ticket> _written{0};
  Ticket _lastSeen = 0;   // the watch's own: the head at its last look,
  Ticket _settledAt = 0;  // and when the loggers were last told that nothing more comes
};
