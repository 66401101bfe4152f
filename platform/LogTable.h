#pragma once
// A table of log records on a database server, for the processes of many machines.
#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "foundation/runtime/Time.h"

namespace platform {

struct LogTableAddress {
  // As the database's own library takes it: "host=logs.example.com dbname=logs user=writer".
  std::string server;
  std::string table = "logs";
  // Columns of every row. Without a machine it is the name of the one that the process runs on.
  std::string machine{};
  std::string process{};
  // A connection is given up when the server has not answered for this long.
  std::chrono::milliseconds patience = std::chrono::seconds(30);
};

struct LogRow {
  std::int64_t number = 0;  // grows from row to row, from 1
  foundation::Date time;
  std::int32_t level = 0;
  std::int32_t flag = 0;
  std::int32_t context = 0;
  std::uint32_t thread = 0;
  std::optional<std::string> queue{};
  std::optional<std::string> file{};
  std::optional<std::string> function{};
  std::int32_t line = 0;
  std::string text{};
  std::optional<std::string> fields{};  // an object of JSON
};

// One writer of a table. One thread at a time, but for `giveUp`.
class LogTable {
 public:
  // Ends the connection.
  virtual ~LogTable() = default;

  // Removes every writer's rows that are older. `cause` tells why it did not succeed.
  virtual bool removeBefore(foundation::Date date, std::string& cause) = 0;

  enum class Outcome {
    stored,
    failed,   // nothing is known: the same rows, in the same order, can be added again, and none will be there twice
    refused,  // nothing was stored, because of what is in the rows
  };
  // Adds all rows at once, and makes the table where it is missing. Rows that this writer has added already are left out.
  virtual Outcome add(std::span<const LogRow> rows, std::string& cause) = 0;

  // Any thread: what is under way fails soon, and so does all that comes.
  virtual void giveUp() = 0;
};

}  // namespace platform
