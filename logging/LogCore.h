#pragma once
// The state behind DDLog, and the logging queue itself.
//
// Nobody owns the queue's thread: whoever holds the drain runs what waits. Mostly that is the watch, a thread that looks
// for records in short naps while there are any about and sleeps when there are none; a caller who has to wait for
// something drains himself. So a statement wakes nobody and hands over nothing in the common case.
#include <atomic>
#include <deque>
#include <thread>

#include "foundation/dispatch/Fork.h"
#include "logging/DDLogger.h"
#include "logging/LogDelivery.h"
#include "logging/LogJournal.h"
#include "logging/LogRing.h"
#include "platform/Platform.h"

class LogCore final : public foundation::Dispatch::Queue {
 public:
  // The core of the installed platform, made at the first call; nullptr without a platform, or when its core is gone.
  static LogCore* current();
  explicit LogCore(platform::Platform& platform);
  ~LogCore() override;

  // As a queue: blocks keep their place among the records.
  void async(foundation::Dispatch::Block block) override;
  void sync(const foundation::Dispatch::Block& block) override;

  // A label at nullptr is none.
  void record(const DDLogMessage::Facts& facts, std::string_view text, std::string_view label, bool asynchronous);
  void record(const DDLogMessage& message, bool asynchronous);

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

  void place(foundation::Dispatch::Block block, std::atomic<bool>* isDone);
  void waitForRoom();
  bool waitForSlot(Ticket ticket);
  template <class IsDone>
  bool waitUntil(const IsDone& isDone, Ticket limit);

  // Whoever holds the drain.
  bool tryHoldDrain();
  bool dropDrain();
  bool drain(Ticket limit, Ticket taken);
  void runBlocks(Ticket head);
  void deliver(LogDelivery::Round& round, Ticket ticket);
  void writePending(LogDelivery::Round& round);
  void writeWhatIsOld(LogDelivery::Round& round);

  // The watch.
  void rouse();
  void wakeWatch();
  void keepWatch();
  void settle();
  [[nodiscard]] bool hasWork();
  void stopWatch();
  void sleepUntilRoused();

  void finish();
  static void finishAtExit();
  void prepareFork();
  void endFork();
  void beginChild();

  const std::shared_ptr<LogJournal> _journal;
  LogRing _ring;
  LogDelivery _delivery;

  // What every caller reads, and what is written seldom.
  // The watch fences for everybody before it sleeps; otherwise everybody fences for himself.
  alignas(64) const bool _fencesForOthers;
  std::atomic<bool> _isAsleep{true};
  std::atomic<bool> _isExiting{false};
  std::atomic<bool> _isStopping{false};
  std::atomic<std::uint32_t> _calls{0};
  std::atomic<Ticket> _nextBlock{none};  // the place of the first waiting block
  std::mutex _watchMutex;
  std::thread _watch;
  std::mutex _blocksMutex;
  std::deque<PlacedBlock> _blocks;
  // While the process forks: whether that happens inside a logger's part or a block, and the record that is being
  // delivered.
  bool _forkedInside = false;
  std::optional<LogRing::HeadCopy> _headAtFork;
  foundation::Fork::HandlersID _forkHandlers = 0;

  // What whoever holds the drain writes, mostly with every record.
  alignas(64) std::atomic<bool> _isDraining{false};
  bool _isDelivering = false;
  bool _hasUnwritten = false;
  std::chrono::steady_clock::time_point _unwrittenSince;
  // Every record below this ticket has been handed on by every logger, not only received.
  std::atomic<Ticket> _written{0};
  Ticket _lastSeen = 0;   // the watch's own: the head at its last look,
  Ticket _settledAt = 0;  // and when the loggers were last told that nothing more comes
};
