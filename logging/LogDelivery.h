#pragma once
// The loggers, and how one record reaches all of them.
//
// The idea. Every logger has a queue of its own, and two loggers may wait for each other, so each record must be able to be
// with all of them at once. But handing a record to another thread costs more than most loggers need for it. So the thread
// that drains pretends: it runs each logger's part itself, in order, as the current block of that logger's queue. That is
// right as long as no part waits for a later one. A second thread, the onlooker, checks that: when a delivery stands where
// it stood a millisecond ago, it starts the parts that have not begun on threads of their own. Both threads move the same
// counter on by compare-and-swap, so each part is started exactly once. When a millisecond has passed without a delivery
// the onlooker sleeps, and the next delivery rings for it (Doorbell.h). With one processor there is no onlooker, and
// loggers run strictly one after the other.
//
// Everything runs on the logging queue, except for the onlooker's thread, which comes with the second logger.
#include <atomic>
#include <thread>
#include <vector>

#include "logging/DDLogger.h"
#include "logging/Doorbell.h"
#include "logging/LogAttempt.h"
#include "platform/SystemLog.h"

// The core's entry for one logger.
struct DDLoggerNode {
  std::shared_ptr<DDLogger> logger;
  std::shared_ptr<foundation::Dispatch::SerialQueue> loggerQueue;
};

class LogDelivery {
 public:
  // `process` may be nullptr.
  LogDelivery(platform::ProcessInfo* process, platform::SystemLog& systemLog);
  ~LogDelivery();
  LogDelivery(const LogDelivery&) = delete;
  LogDelivery& operator=(const LogDelivery&) = delete;

  // Appends; tells the logger on its queue.
  void add(std::shared_ptr<DDLogger> logger);
  // The first entry of this very logger; nothing when there is none. Lines that the logger put aside are handed on at once;
  // it is told on its queue.
  void remove(const std::shared_ptr<DDLogger>& logger);
  void removeAll();
  // Returns when the loggers that were removed have been told, and those that nobody else had are gone.
  void waitForRemoved() { _leaving.wait(); }
  [[nodiscard]] bool hasSeveral() const { return _nodes.size() > 1; }

  // Some records in a row. An only logger keeps its queue's turn from one to the next, as long as nothing else waits for
  // it there.
  class Round {
   public:
    explicit Round(LogDelivery& delivery) : _delivery(delivery) {}

    // Returns when every logger has had the record, and written it on when asked to.
    void deliver(const DDLogMessage& message, bool andWrite);
    void writePending();
    // Before anything else happens to the loggers or on their queues.
    void pause() { _turn.reset(); }

   private:
    DDLogger& only();

    LogDelivery& _delivery;
    std::optional<foundation::Dispatch::SerialQueue::Turn> _turn;
  };

  // Runs `work`, in which a logger, a formatter or a block may throw. The first time that happens goes to the system log;
  // the record counts as handled, and everybody who waits goes on.
  template <class Work>
  void attempt(const Work& work) {
    if (_isStray) return;
    const AtWork atWork;
    logging::attempt(work, [this](const char* reason) { report(reason); });
  }

  void report(const char* reason) noexcept;

  // Whether the calling thread is in the middle of such work, which the end of the platform waits for.
  static bool isAtWork() { return AtWork::depth > 0; }

  void didBecomeIdle();
  // The process ends.
  void willEnd();
  // Every logger on its own queue and all at once; returns when all have flushed.
  void flush();

  // No more onlooker; what is on its way to the loggers' queues has been done.
  void stop();

  // Around a fork. Keeps every logger's queue at rest, or none of them: false when one of them is busy.
  bool tryHold();
  void letGo();
  // In a forked child, with all queues at rest.
  void didFork();
  // In a forked child, with some logger in the middle of its work. No logger is called any more.
  void goAstray();

 private:
  struct AtWork {
    AtWork() { ++depth; }
    ~AtWork() { --depth; }
    AtWork(const AtWork&) = delete;
    AtWork& operator=(const AtWork&) = delete;
    static inline constinit thread_local int depth = 0;
  };

  // Where the delivery of a record stands: its number, how many loggers there are, and how many have begun. Without loggers
  // when it is over, or the onlooker's. The thread that moves it on by compare-and-swap runs the logger it passes.
  using Progress = std::uint64_t;
  static constexpr Progress indexBits = 12;
  static constexpr Progress indexMask = (Progress{1} << indexBits) - 1;
  static Progress progress(std::uint64_t number, std::size_t count, std::size_t begun) {
    return number << (2 * indexBits) | count << indexBits | begun;
  }
  static std::uint64_t numberOf(Progress progress) { return progress >> (2 * indexBits); }
  static bool hasRest(Progress progress) { return (progress & indexMask) < (progress >> indexBits & indexMask); }

  void perform(DDLogger& logger, const DDLogMessage& message, bool andWrite);
  template <class Part>
  void performOnQueues(const Part& part);
  void startPart(foundation::Dispatch::SerialQueue& queue, const foundation::Dispatch::Block& part);
  void dismiss(DDLoggerNode node);
  void deliverInTurn(const DDLogMessage& message, bool andWrite);
  void deliverWatched(const DDLogMessage& message, bool andWrite);
  void lookOn();
  void startRestElsewhere(Progress seen);
  void wakeOnlooker();
  void forgetThreads();

  const std::uint32_t _processors;
  platform::SystemLog& _systemLog;
  std::atomic<bool> _hasReported{false};
  bool _isStray = false;
  std::vector<DDLoggerNode> _nodes;
  std::vector<foundation::Dispatch::SerialQueue*> _held;
  foundation::Dispatch::Group _group;
  foundation::Dispatch::Group _leaving;  // the loggers that were removed and may not know it yet

  alignas(64) std::atomic<Progress> _progress{0};
  std::atomic<std::uint64_t> _startedElsewhere{0};  // the number of the record whose rest was
  std::uint64_t _number = 0;
  const DDLogMessage* _message = nullptr;
  bool _andWrite = false;

  std::atomic<bool> _isStopping{false};
  Doorbell _bell;
  std::thread _onlooker;
};
