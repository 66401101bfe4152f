#pragma once
// A PostgreSQL server of the test's own, as an ordinary account, with all that belongs to it in one folder.
#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/PostgreSQL.h"
#include "tests/support/Eventually.h"
#include "tests/support/OtherProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace tests {

class PostgreSQLServer {
 public:
  static bool isInstalled() { return !program("postgres").empty(); }

  PostgreSQLServer() {
    // The server refuses to be root's.
    if (::getuid() == 0 && ::chown(_folder.path().c_str(), account, account) != 0) throw std::runtime_error("no account");
    OtherProcess maker([&] {
      run({program("initdb"), "-D", data(), "-A", "trust", "-U", "kelto", "-E", "UTF8", "--no-locale", "--no-sync"});
    });
    if (maker.wait() != 0) throw std::runtime_error("initdb: " + readFile(_folder.path("log")));
    start();
  }
  ~PostgreSQLServer() { kill(); }
  PostgreSQLServer(const PostgreSQLServer&) = delete;
  PostgreSQLServer& operator=(const PostgreSQLServer&) = delete;

  // For libpq, by the socket in the folder.
  [[nodiscard]] std::string address() const { return "host=" + _folder.path() + " port=5432" + credentials; }
  // By a port of this machine's loopback.
  [[nodiscard]] static std::string addressAt(int port) {
    return "host=127.0.0.1 port=" + std::to_string(port) + credentials;
  }
  [[nodiscard]] std::string socketPath() const { return _folder.path(".s.PGSQL.5432"); }

  // Starts it, and returns when it takes statements. The remains of a killed one may be in its way for a moment.
  void start() {
    const bool isThere = eventually([&] {
      if (!_server || ::kill(_server->number(), 0) != 0 || hasEnded()) launch();
      return query("SELECT 1") == "1";
    });
    if (!isThere) throw std::runtime_error("the server does not start: " + readFile(_folder.path("log")));
  }

  // All of its processes end at once, in whatever they were doing.
  void kill() {
    if (!_server) return;
    const auto workers = children();
    ::kill(_server->number(), SIGKILL);
    for (const pid_t worker : workers) ::kill(worker, SIGKILL);
    _server->wait();
    _server.reset();
    eventually([&] { return std::ranges::none_of(workers, [](pid_t worker) { return ::kill(worker, 0) == 0; }); });
  }

  // The first value of the result; the server's message if there is none.
  std::string query(const std::string& statement) const {
    using platform::Linux::PostgreSQL::Connection;
    const platform::Linux::PostgreSQL::Limits limits{.patience = std::chrono::seconds(20)};
    std::string cause;
    const auto connection = Connection::open(address(), limits, cause);
    if (!connection) return cause;
    const auto reply = connection->execute(statement);
    return reply.isGood ? reply.value : reply.message;
  }

 private:
  static constexpr uid_t account = 65534;
  static constexpr const char* credentials = " dbname=postgres user=kelto";

  // Debian keeps the server's programs in a folder with its version.
  static std::string program(const std::string& name) {
    std::error_code none;
    for (const auto& version : std::filesystem::directory_iterator("/usr/lib/postgresql", none))
      if (::access((version.path() / "bin" / name).c_str(), X_OK) == 0) return version.path() / "bin" / name;
    return "";
  }

  [[nodiscard]] std::string data() const { return _folder.path("data"); }

  // Does not return.
  void run(const std::vector<std::string>& command) const {
    const int log = ::open(_folder.path("log").c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::dup2(log, stream);
    if (::getuid() == 0) becomeAccount(account);
    if (::chdir(_folder.path().c_str()) != 0) ::_exit(125);
    std::vector<char*> arguments;
    for (const auto& argument : command) arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
  }

  void launch() {
    _server.emplace([&] {
      run({program("postgres"), "-D", data(), "-k", _folder.path(), "-c", "listen_addresses=", "-c", "fsync=off", "-c",
           "shared_buffers=16MB", "-c", "autovacuum=off", "-c", "max_connections=40"});
    });
  }

  [[nodiscard]] bool hasEnded() const {
    const std::string state = readFile("/proc/" + std::to_string(_server->number()) + "/stat");
    return state.find(") Z ") != std::string::npos;
  }

  [[nodiscard]] std::vector<pid_t> children() const {
    const std::string number = std::to_string(_server->number());
    std::ifstream list("/proc/" + number + "/task/" + number + "/children");
    std::vector<pid_t> found;
    for (pid_t child = 0; list >> child;) found.push_back(child);
    return found;
  }

  const TemporaryFolder _folder;
  std::optional<OtherProcess> _server;
};

}  // namespace tests
