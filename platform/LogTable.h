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

// One record. Texts that are not UTF-8 are stored with U+FFFD for each byte that is not ASCII.
struct LogRow {
  std::int64_t number = 0;  // grows from row to row, from 1; a gap is a record that was dropped
  foundation::Date time;    // stored to the microsecond
  std::int32_t level = 0;   // the next three as the statement gave them
  std::int32_t flag = 0;
  std::int32_t context = 0;
  std::uint32_t thread = 0;            // the system's number of it
  std::optional<std::string> queue{};  // the label of the queue that logged; without a label, nothing
  std::optional<std::string> file{};   // the source file, and the line in it
  std::optional<std::string> function{};
  std::int32_t line = 0;
  std::string text{};
  std::optional<std::string> fields{};  // an object of JSON
};

// One writer of a table, owned by whoever opened it. Connects when it is first needed, and again after a failure. Its calls
// wait for the server, each answer for at most the patience of its address. One thread at a time, but for `giveUp`.
class LogTable {
 public:
  // Ends the connection.
  virtual ~LogTable() = default;

  // Removes every writer's rows that are older. False, with the server's or the network's words in `cause`, when it did not
  // succeed or when that is not known; it can be repeated.
  virtual bool removeBefore(foundation::Date date, std::string& cause) = 0;

  enum class Outcome {
    stored,
    failed,   // nothing is known: the same rows, in the same order, can be added again, and none will be there twice
    refused,  // nothing was stored, because of what is in the rows
  };
  // Adds all rows or none, and makes the table where it is missing. The rows are in the order of their numbers; those that
  // this writer has added already are left out. `cause` is set unless they were stored.
  virtual Outcome add(std::span<const LogRow> rows, std::string& cause) = 0;

  // Any thread: what is under way fails soon, and so does all that comes.
  virtual void giveUp() = 0;
};

}  // namespace platform
