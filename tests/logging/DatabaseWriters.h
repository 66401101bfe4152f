#pragma once
// Processes that log into one table of a PostgreSQL server, in rounds that the test commands.
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <list>
#include <string>

#include "logging/DDPostgreSQLLogger.h"
#include "tests/logging/RealLog.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/PostgreSQLServer.h"
#include "tests/support/SeverableRoute.h"

namespace tests {

// One process. It is ready for the next round when it has made all statements of the last, whatever the server does.
class DatabaseWriter {
 public:
  DatabaseWriter(platform::LogTableAddress address, std::string logs)
      : _address(std::move(address)), _logs(std::move(logs)) {
    if (::pipe(_orders) != 0 || ::pipe(_answers) != 0) throw std::runtime_error("no pipe");
    _process.emplace([this] { work(); });
    ::close(_orders[0]);
    ::close(_answers[1]);
  }
  ~DatabaseWriter() {
    ::close(_orders[1]);
    ::close(_answers[0]);
  }
  DatabaseWriter(const DatabaseWriter&) = delete;
  DatabaseWriter& operator=(const DatabaseWriter&) = delete;

  void begin(int statements) {
    order(statements);
    _counts[0] += statements;
  }
  // A forked child makes that many statements, too, and ends.
  void beginFork(int statements) {
    order(-statements);
    _counts.push_back(statements);
  }
  // False when it is not done within the time.
  bool isDone(std::chrono::seconds time) {
    pollfd answer{_answers[0], POLLIN, 0};
    char letter = 0;
    return ::poll(&answer, 1, static_cast<int>(std::chrono::milliseconds(time).count())) == 1 &&
           ::read(_answers[0], &letter, 1) == 1;
  }
  // Lets it end in order; its exit status.
  int end() {
    order(0);
    return _process->wait();
  }
  // Of its own statements, and of those of each child.
  [[nodiscard]] const std::vector<int>& counts() const { return _counts; }
  [[nodiscard]] const std::string& name() const { return _address.process; }

 private:
  static constexpr double patience = 60;

  void order(int statements) {
    if (::write(_orders[1], &statements, sizeof statements) != sizeof statements) throw std::runtime_error("no writer");
  }

  void work() {
    // Otherwise the end of the test would not be seen.
    ::close(_orders[1]);
    ::close(_answers[0]);
    RealLog log(_address.process, _logs);
    DDLog::removeLogger(log.logger);
    const auto logger = std::make_shared<DDPostgreSQLLogger>(log.fake.platform, _address);
    logger->setSaveThreshold(100);
    logger->setSaveInterval(0.02);
    logger->setPatience(patience);
    DDLog::addLogger(logger);
    int statements = 0;
    while (::read(_orders[0], &statements, sizeof statements) == sizeof statements && statements != 0) {
      if (statements > 0)
        logNumbers(statements);
      else
        forkAndLog(*logger, -statements);
      if (::write(_answers[1], "d", 1) != 1) break;
    }
  }

  // The last one is synchronous.
  void logNumbers(int statements) {
    for (; statements > 0; --statements) RealLog::log(statements > 1, std::to_string(++_count));
  }

  void forkAndLog(DDPostgreSQLLogger& logger, int statements) {
    const pid_t child = ::fork();
    if (child == 0) {
      _count = 0;
      logNumbers(statements);
      DDLog::removeAllLoggers();
      DDLog::loggingQueue().sync([] {});
      logger.loggerQueue()->sync([] {});
      ::_exit(0);
    }
    ::waitpid(child, nullptr, 0);
  }

  const platform::LogTableAddress _address;
  const std::string _logs;
  int _orders[2] = {-1, -1};
  int _answers[2] = {-1, -1};
  std::vector<int> _counts{0};
  int _count = 0;  // in the writer itself
  std::optional<OtherProcess> _process;
};

// Four writers of two machines at one server, half of them by a route that can be cut.
class DatabaseWriters {
 public:
  DatabaseWriters() {
    for (const char* machine : {"one", "two"})
      for (const bool isNear : {true, false})
        _writers.emplace_back(
            platform::LogTableAddress{.server = isNear ? server.address() : PostgreSQLServer::addressAt(route.port()),
                                      .machine = machine,
                                      .process = std::string(machine) + (isNear ? " near" : " far"),
                                      .patience = std::chrono::milliseconds(500)},
            _folder.path(std::to_string(_writers.size())));
  }

  // More statements of every writer; true when all were made within the time.
  void begin(int statements) {
    for (auto& writer : _writers) writer.begin(statements);
  }
  bool areDone() {
    return std::ranges::all_of(_writers, [](auto& writer) { return writer.isDone(std::chrono::seconds(60)); });
  }
  bool fork(int statements) {
    for (auto& writer : _writers) writer.beginFork(statements);
    return areDone();
  }
  bool log(int statements) {
    begin(statements);
    return areDone();
  }

  // At least that many rows are there.
  bool hasRows(int count) {
    return eventually([&] { return std::atoi(server.query("SELECT count(*) FROM logs").c_str()) >= count; },
                      std::chrono::seconds(60));
  }

  bool end() {
    return std::ranges::all_of(_writers, [](auto& writer) { return writer.end() == 0; });
  }

  // The rows of each writer: how many, how many different ones, and how many whose text is not their number.
  std::string found() {
    return server.query(
        "SELECT string_agg(line, ', ' ORDER BY line) FROM (SELECT machine || ': ' || process || ' ' || count(*) || ' ' || "
        "count(DISTINCT message) || ' ' || count(*) FILTER (WHERE message <> number::text) AS line FROM logs "
        "GROUP BY machine, process, source) AS lines");
  }
  std::string expected() const {
    std::vector<std::string> lines;
    for (const auto& writer : _writers)
      for (const int count : writer.counts()) {
        const std::string number = std::to_string(count);
        lines.push_back(writer.name().substr(0, 3) + ": " + writer.name() + " " + number + " " + number + " 0");
      }
    std::ranges::sort(lines);
    std::string all;
    for (const auto& line : lines) all += (all.empty() ? "" : ", ") + line;
    return all;
  }

  PostgreSQLServer server;
  SeverableRoute route{server.socketPath()};

 private:
  const TemporaryFolder _folder;
  std::list<DatabaseWriter> _writers;
};

}  // namespace tests
