// The log table on this system, held to the contract; every test makes a database of its own, which takes its time.
#include "platform/linux/LogTable.h"
#include "tests/platform/contracts/LogTableContract.h"
#include "tests/support/PostgreSQLServer.h"

using namespace tests::contracts;

namespace {

class RealDatabase {
 public:
  std::unique_ptr<platform::LogTable> table() { return platform::Linux::LogTable::open({.server = _server.address()}); }
  [[nodiscard]] std::vector<std::string> texts() const {
    std::vector<std::string> all;
    if (_server.query("SELECT to_regclass('logs') IS NULL") == "t") return all;
    const std::string list = _server.query("SELECT string_agg(message || ';', '' ORDER BY number) FROM logs");
    for (std::size_t from = 0, end = 0; (end = list.find(';', from)) != std::string::npos; from = end + 1)
      all.push_back(list.substr(from, end - from));
    return all;
  }
  void disappear() { _server.kill(); }
  void appear() { _server.start(); }

 private:
  tests::PostgreSQLServer _server;
};

}  // namespace

INSTANTIATE_TYPED_TEST_SUITE_P(Linux, LogTableContract, RealDatabase);
