#pragma once
// Log records in an SQLite database: a model for a database logger of one's own.
//
//   auto logger = SQLiteLogger::open("/path/to/log.sqlite");
//   if (logger) DDLog::addLogger(logger);
//
// The table `logs` has the columns timestamp (seconds since 1970, real), level, flag, context, thread, queue, file,
// function, line and message. Other connections and programs may read it at any time: the database is in write-ahead mode,
// and every batch is one transaction.
#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "logging/DDAbstractDatabaseLogger.h"

class SQLiteLogger : public DDAbstractDatabaseLogger {
  struct Connection {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
  };
  struct Statement {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Database = std::unique_ptr<sqlite3, Connection>;
  using Query = std::unique_ptr<sqlite3_stmt, Statement>;

 public:
  // Makes the database and its table when they are not there; nullptr when that is not possible.
  static std::shared_ptr<SQLiteLogger> open(const std::string& path);
  // Public for std::make_shared only; use open().
  explicit SQLiteLogger(std::string path);

 protected:
  bool db_log(const DDLogMessage& message) override;
  void db_save() override;
  void db_delete() override;
  void db_saveAndDelete() override;
  void db_didFork() override;

 private:
  bool connect();
  bool execute(const char* sql);
  bool insertAll();
  bool insertOne(const DDLogMessage& message);
  bool removeOld();
  template <class Work>
  bool inTransaction(const Work& work);

  const std::string _path;
  Database _database;  // nullptr in a forked child until it stores something
  Query _insert;
  Query _remove;
  std::vector<DDLogMessage> _batch;  // until it is committed
};
