#pragma once
// Rows on their way into a table on a server, so that nobody who logs waits for the network. Any thread.
//
// Rows wait here, in the memory that was set aside for them, until the server has confirmed them. A queue of the feed's own
// hands them to the table in batches. After a failure it waits, longer each time, and hands over the same batch again; the
// table leaves out what it has already.
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "foundation/dispatch/Dispatch.h"
#include "platform/LogTable.h"
#include "platform/SystemLog.h"

class LogTableFeed : public std::enable_shared_from_this<LogTableFeed> {
 public:
  // At most `capacity` bytes wait. `name` begins the lines in the system's log.
  static std::shared_ptr<LogTableFeed> make(std::unique_ptr<platform::LogTable> table, platform::SystemLog& systemLog,
                                            std::string name, std::size_t capacity);
  LogTableFeed(const LogTableFeed&) = delete;
  LogTableFeed& operator=(const LogTableFeed&) = delete;

  // Sets room aside for a row that comes later; false when there is none, and then the row counts as dropped.
  bool reserve(std::size_t bytes);
  static std::size_t sizeOf(const platform::LogRow& row);

  // Rows for which room was set aside.
  void add(std::vector<platform::LogRow> rows);
  void removeBefore(foundation::Date date);
  // Tries at once, and returns when every row is stored, when the server has failed, or after `patience`.
  void flush(foundation::Seconds patience);
  // Tries again and again for that long, and then drops what is left. Nothing runs here any more afterwards.
  void finish(foundation::Seconds patience);

 private:
  LogTableFeed(std::unique_ptr<platform::LogTable> table, platform::SystemLog& systemLog, std::string name,
               std::size_t capacity);
  using Rows = std::vector<platform::LogRow>;

  void start(bool atOnce);
  void work(bool atOnce);
  bool storeAll(std::string& cause);
  bool storeBatch(std::string& cause);
  bool takeBatch();
  void endBatch();
  void divideBatch(const std::string& cause);
  void removeOld();
  void tryLater(const std::string& cause);
  void setTimer(const std::string& cause);
  void dropAll();
  void reportDropped();
  void waitUntilStored(foundation::Seconds patience, bool endsAtFailure);

  const std::unique_ptr<platform::LogTable> _table;
  platform::SystemLog& _systemLog;
  const std::string _name;
  const std::size_t _capacity;
  const std::shared_ptr<foundation::Dispatch::SerialQueue> _queue;

  // On the queue only.
  Rows _batch;
  std::size_t _batchLimit;
  bool _isWaiting = false;    // for the time of the next attempt
  bool _isInTrouble = false;  // since the last success
  foundation::Seconds _delay;
  std::shared_ptr<foundation::Dispatch::TimerSource> _timer;

  std::mutex _mutex;  // guards what follows
  std::condition_variable _hasChanged;
  std::deque<platform::LogRow> _rows;
  std::size_t _rowCount = 0;  // with those of the batch
  std::size_t _bytes = 0;
  std::uint64_t _dropped = 0;
  std::optional<foundation::Date> _removalDate;
  std::uint64_t _attempts = 0;
  std::uint64_t _failedAttempt = 0;
};
