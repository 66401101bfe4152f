#pragma once
// A connection with a PostgreSQL server, on which nothing waits for longer than it was told. libpq is loaded at the first
// one. One thread at a time.
#include <atomic>
#include <chrono>
#include <memory>
#include <string>

struct pg_conn;
struct pg_result;

namespace platform::Linux::PostgreSQL {

// How long a connection waits, and whether it may wait at all.
struct Limits {
  std::chrono::milliseconds patience;  // without any progress
  std::atomic<bool> hasGivenUp{false};
};

struct Reply {
  bool isGood = false;
  std::string value{};  // the first of the first row
  std::string code{};   // SQLSTATE of a failure that the server reports
  std::string message{};
};

class Connection {
 public:
  // nullptr, and `cause`, when it cannot be made in time.
  static std::unique_ptr<Connection> open(const std::string& server, const Limits& limits, std::string& cause);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  // One transaction, which is over when this returns a good reply.
  Reply execute(const std::string& statements);
  // The same. `rows` is text as COPY reads it.
  Reply copy(const std::string& statement, const std::string& rows);

 private:
  Connection(pg_conn* connection, const Limits& limits) : _connection(connection), _limits(limits) {}
  bool establish();
  bool waitFor(short events);
  bool sendAll();
  bool receive();
  bool sendRows(const std::string& rows);
  pg_result* nextResult();
  Reply lastReply();
  Reply failure();

  pg_conn* const _connection;
  const Limits& _limits;
};

}  // namespace platform::Linux::PostgreSQL
