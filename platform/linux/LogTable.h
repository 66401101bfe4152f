#pragma once
// A table of log records in PostgreSQL. See platform::LogTable.
//
// Every batch is one COPY, which is one transaction. When the outcome of one is unknown, the next begins with the question
// which number was the last to arrive. Source and number are the table's key, so that a transaction which is still under
// way on a lost connection meets the one that repeats it, and one of the two fails.
#include <memory>
#include <string>

#include "platform/LogTable.h"
#include "platform/linux/PostgreSQL.h"

namespace platform::Linux {

class LogTable final : public platform::LogTable {
 public:
  explicit LogTable(const LogTableAddress& address);
  static std::unique_ptr<platform::LogTable> open(const LogTableAddress& address) {
    return std::make_unique<LogTable>(address);
  }

  Outcome add(std::span<const LogRow> rows, std::string& cause) override;
  bool removeBefore(foundation::Date date, std::string& cause) override;
  void giveUp() override { _limits.hasGivenUp = true; }

 private:
  bool connect(std::string& cause);
  bool prepareTable(std::string& cause);
  bool askForLastNumber(std::string& cause);
  Outcome ended(const PostgreSQL::Reply& reply, std::string& cause);

  const std::string _server;
  const std::string _name;  // in quotation marks, as the next
  const std::string _index;
  const std::string _source;  // of this writer
  const std::string _origin;  // the columns that are the same in every row
  PostgreSQL::Limits _limits;
  std::unique_ptr<PostgreSQL::Connection> _connection;
  std::int64_t _lastNumber = 0;  // of the rows that are known to be there
  bool _isUncertain = false;     // whether others are
};

}  // namespace platform::Linux
