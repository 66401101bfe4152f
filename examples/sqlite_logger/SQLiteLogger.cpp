#include "examples/sqlite_logger/SQLiteLogger.h"

#include "foundation/dispatch/Clock.h"

namespace {

constexpr const char* preparation =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "CREATE TABLE IF NOT EXISTS logs (timestamp REAL NOT NULL, level INTEGER NOT NULL, flag INTEGER NOT NULL,"
    " context INTEGER NOT NULL, thread INTEGER NOT NULL, queue TEXT, file TEXT, function TEXT, line INTEGER NOT NULL,"
    " message TEXT NOT NULL);"
    "CREATE INDEX IF NOT EXISTS logs_by_time ON logs (timestamp);";
constexpr const char* insertion = "INSERT INTO logs VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";
constexpr const char* removal = "DELETE FROM logs WHERE timestamp < ?";

// Another program may hold the lock for a moment.
constexpr int lockPatience = 2000;  // milliseconds
// A batch that cannot be committed is kept for the next save, up to this many records.
constexpr std::size_t longestBatch = 20000;

double secondsOf(foundation::Date date) { return foundation::Seconds(date.time_since_epoch()).count(); }

void bindText(sqlite3_stmt* statement, int place, std::optional<std::string_view> text) {
  if (text)
    sqlite3_bind_text(statement, place, text->data(), static_cast<int>(text->size()), SQLITE_TRANSIENT);
  else
    sqlite3_bind_null(statement, place);
}

sqlite3_stmt* prepared(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return statement;
}

}  // namespace

std::shared_ptr<SQLiteLogger> SQLiteLogger::open(const std::string& path) {
  auto logger = std::make_shared<SQLiteLogger>(path);
  return logger->connect() ? logger : nullptr;
}

SQLiteLogger::SQLiteLogger(std::string path) : DDAbstractDatabaseLogger("sqlite"), _path(std::move(path)) {}

bool SQLiteLogger::connect() {
  sqlite3* handle = nullptr;
  const int status = sqlite3_open(_path.c_str(), &handle);
  Database database(handle);
  if (status != SQLITE_OK) return false;
  sqlite3_busy_timeout(handle, lockPatience);
  if (sqlite3_exec(handle, preparation, nullptr, nullptr, nullptr) != SQLITE_OK) return false;
  Query insert(prepared(handle, insertion));
  Query remove(prepared(handle, removal));
  if (!insert || !remove) return false;
  _database = std::move(database);
  _insert = std::move(insert);
  _remove = std::move(remove);
  return true;
}

// The handles must not be closed in a child: that would take away the parent's locks.
void SQLiteLogger::db_didFork() {
  _batch.clear();
  [[maybe_unused]] const void* const left[] = {_insert.release(), _remove.release(), _database.release()};
}

bool SQLiteLogger::db_log(const DDLogMessage& message) {
  if (_batch.size() >= longestBatch) return false;
  _batch.push_back(message);
  return true;
}

void SQLiteLogger::db_save() {
  if (inTransaction([this] { return insertAll(); })) _batch.clear();
}

void SQLiteLogger::db_delete() {
  inTransaction([this] { return removeOld(); });
}

void SQLiteLogger::db_saveAndDelete() {
  if (inTransaction([this] { return insertAll() && removeOld(); })) _batch.clear();
}

template <class Work>
bool SQLiteLogger::inTransaction(const Work& work) {
  if (!_database && !connect()) return false;
  if (!execute("BEGIN IMMEDIATE")) return false;
  if (work() && execute("COMMIT")) return true;
  execute("ROLLBACK");
  return false;
}

bool SQLiteLogger::execute(const char* sql) {
  return sqlite3_exec(_database.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool SQLiteLogger::insertAll() {
  for (const auto& message : _batch)
    if (!insertOne(message)) return false;
  return true;
}

bool SQLiteLogger::insertOne(const DDLogMessage& message) {
  sqlite3_stmt* row = _insert.get();
  sqlite3_bind_double(row, 1, secondsOf(message.timestamp()));
  sqlite3_bind_int(row, 2, message.logLevel());
  sqlite3_bind_int(row, 3, message.logFlag());
  sqlite3_bind_int(row, 4, message.logContext());
  sqlite3_bind_int64(row, 5, message.machThreadID());
  bindText(row, 6, message.queueLabel());
  bindText(row, 7, message.fileName());
  bindText(row, 8, message.methodName());
  sqlite3_bind_int(row, 9, message.lineNumber());
  bindText(row, 10, message.logMsg());
  const bool isInserted = sqlite3_step(row) == SQLITE_DONE;
  sqlite3_reset(row);
  return isInserted;
}

bool SQLiteLogger::removeOld() {
  if (maxAge() <= 0) return true;
  sqlite3_bind_double(_remove.get(), 1, secondsOf(foundation::Clock::current().now()) - maxAge());
  const bool isDone = sqlite3_step(_remove.get()) == SQLITE_DONE;
  sqlite3_reset(_remove.get());
  return isDone;
}
