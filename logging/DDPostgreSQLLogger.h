#pragma once
// Log records in a table of a PostgreSQL server, to which the processes of many machines write.
//
//   const platform::LogTableAddress address{.server = "host=logs dbname=logs"};
//   DDLog::addLogger(std::make_shared<DDPostgreSQLLogger>(platform, address));
//
// A batch is one COPY. Nobody who logs waits for the network: rows wait in memory until the server has confirmed them,
// while it is away as well, and then are stored once each. libpq is loaded when the first batch is due.
//
// The columns: source (a writer: one logger of one process), number (of the record there, from 1; a gap is a record that
// was dropped), time, machine, process, pid, level, flag, context, thread, queue, file, function, line, message, fields.
// The table is made where it is missing, with source and number as its key, and an index over time.
#include <atomic>
#include <memory>

#include "foundation/Api.h"
#include "logging/DDAbstractDatabaseLogger.h"
#include "platform/LogTable.h"
#include "platform/LoggingPlatform.h"

class LogTableFeed;

class KELTO_API DDPostgreSQLLogger : public DDAbstractDatabaseLogger {
 public:
  // `capacity` is the memory, in bytes, for rows that wait. When it is full, new records are dropped, which goes to the
  // system's log with their number.
  explicit DDPostgreSQLLogger(platform::LoggingPlatform& platform, platform::LogTableAddress address,
                              std::size_t capacity = std::size_t{32} << 20U);
  ~DDPostgreSQLLogger() override;

  // The longest time that `flush`, the logger's removal and the end of the process wait for the server, in seconds; 2 at
  // first. A flush returns earlier when the server cannot be reached. The other two try again until then, and drop what is
  // left. Any thread.
  void setPatience(double seconds) { _patience = seconds; }

  void willRemoveLogger() override;
  void flush() override;
  void willEnd() override;

 protected:
  bool db_log(const DDLogMessage& message) override;
  void db_save() override;
  void db_delete() override;
  void db_saveAndDelete() override;
  void db_didFork() override;

 private:
  bool makeFeed();
  void endFeed();
  platform::LogRow rowOf(const DDLogMessage& message, std::string_view text);

  platform::LoggingHost* const _host;
  platform::SystemLog& _systemLog;
  const platform::LogTableAddress _address;
  const std::size_t _capacity;
  std::atomic<double> _patience = 2;
  std::shared_ptr<LogTableFeed> _feed;  // nullptr until the first record, and in a forked child
  std::vector<platform::LogRow> _batch;
  std::int64_t _number = 0;
  bool _hasEnded = false;
};
