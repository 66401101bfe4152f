#include "platform/linux/PostgreSQL.h"

#include <dlfcn.h>
#include <libpq-fe.h>
#include <poll.h>

#include <algorithm>

#include "foundation/runtime/Lasting.h"

namespace platform::Linux::PostgreSQL {
namespace {

// All functions are there, or none.
struct Library {
  void* const handle = ::dlopen("libpq.so.5", RTLD_NOW);

  template <class Function>
  Function* find(const char* name) const {
    return handle == nullptr ? nullptr : reinterpret_cast<Function*>(::dlsym(handle, name));
  }

#define KELTO_OF_LIBPQ(name) decltype(::PQ##name)* const name = find<decltype(::PQ##name)>("PQ" #name)
  KELTO_OF_LIBPQ(connectStart);
  KELTO_OF_LIBPQ(connectPoll);
  KELTO_OF_LIBPQ(finish);
  KELTO_OF_LIBPQ(status);
  KELTO_OF_LIBPQ(socket);
  KELTO_OF_LIBPQ(setnonblocking);
  KELTO_OF_LIBPQ(setNoticeReceiver);
  KELTO_OF_LIBPQ(errorMessage);
  KELTO_OF_LIBPQ(sendQuery);
  KELTO_OF_LIBPQ(flush);
  KELTO_OF_LIBPQ(consumeInput);
  KELTO_OF_LIBPQ(isBusy);
  KELTO_OF_LIBPQ(getResult);
  KELTO_OF_LIBPQ(resultStatus);
  KELTO_OF_LIBPQ(resultErrorField);
  KELTO_OF_LIBPQ(resultErrorMessage);
  KELTO_OF_LIBPQ(ntuples);
  KELTO_OF_LIBPQ(getvalue);
  KELTO_OF_LIBPQ(clear);
  KELTO_OF_LIBPQ(putCopyData);
  KELTO_OF_LIBPQ(putCopyEnd);
#undef KELTO_OF_LIBPQ
};

const Library& library() {
  static constinit foundation::Lasting<Library> one;
  return one.get([] { return std::make_unique<Library>(); });
}

// The longest nap of a connection that waits: how long it takes to notice that it was given up.
constexpr std::chrono::milliseconds nap{100};

std::string oneLine(const char* message) {
  std::string line = message == nullptr ? "" : message;
  while (!line.empty() && line.back() == '\n') line.pop_back();
  std::ranges::replace(line, '\n', ' ');
  return line;
}

std::string textOf(const char* text) { return text == nullptr ? std::string() : text; }

}  // namespace

std::unique_ptr<Connection> Connection::open(const std::string& server, const Limits& limits, std::string& cause) {
  if (library().handle == nullptr) {
    cause = "libpq is not installed";
    return nullptr;
  }
  std::unique_ptr<Connection> made(new Connection(library().connectStart(server.c_str()), limits));
  if (made->establish()) return made;
  cause = made->failure().message;
  return nullptr;
}

Connection::~Connection() { library().finish(_connection); }

bool Connection::establish() {
  if (library().status(_connection) == CONNECTION_BAD) return false;
  library().setNoticeReceiver(
      _connection, [](void*, const PGresult*) {}, nullptr);
  PostgresPollingStatusType state = PGRES_POLLING_WRITING;
  while (state == PGRES_POLLING_READING || state == PGRES_POLLING_WRITING) {
    if (!waitFor(state == PGRES_POLLING_READING ? POLLIN : POLLOUT)) return false;
    state = library().connectPoll(_connection);
  }
  return state == PGRES_POLLING_OK && library().setnonblocking(_connection, 1) == 0;
}

bool Connection::waitFor(short events) {
  const auto end = std::chrono::steady_clock::now() + _limits.patience;
  while (!_limits.hasGivenUp) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd descriptor{library().socket(_connection), events, 0};
    if (::poll(&descriptor, 1, static_cast<int>(std::min(left, nap).count())) > 0) return true;
  }
  return false;
}

bool Connection::sendAll() {
  int rest = 1;
  while ((rest = library().flush(_connection)) == 1)
    if (!waitFor(POLLIN | POLLOUT) || library().consumeInput(_connection) == 0) return false;
  return rest == 0;
}

bool Connection::receive() {
  while (library().isBusy(_connection) == 1)
    if (!waitFor(POLLIN) || library().consumeInput(_connection) == 0) return false;
  return true;
}

PGresult* Connection::nextResult() { return sendAll() && receive() ? library().getResult(_connection) : nullptr; }

// Of a connection that has failed or was silent for too long.
Reply Connection::failure() {
  const std::string message = oneLine(library().errorMessage(_connection));
  return {.message = message.empty() ? "the server does not answer" : message};
}

// A statement is over when there is no further result.
Reply Connection::lastReply() {
  Reply reply = failure();
  while (PGresult* result = nextResult()) {
    const auto status = library().resultStatus(result);
    const bool hasRow = status == PGRES_TUPLES_OK && library().ntuples(result) > 0;
    reply = {.isGood = status == PGRES_TUPLES_OK || status == PGRES_COMMAND_OK,
             .value = hasRow ? library().getvalue(result, 0, 0) : std::string(),
             .code = textOf(library().resultErrorField(result, PG_DIAG_SQLSTATE)),
             .message = oneLine(library().resultErrorMessage(result))};
    library().clear(result);
    if (!reply.isGood) break;
  }
  return reply;
}

Reply Connection::execute(const std::string& statements) {
  return library().sendQuery(_connection, statements.c_str()) == 0 ? failure() : lastReply();
}

bool Connection::sendRows(const std::string& rows) {
  constexpr std::size_t piece = 65536;
  for (std::size_t from = 0; from < rows.size(); from += piece) {
    const int length = static_cast<int>(std::min(piece, rows.size() - from));
    if (library().putCopyData(_connection, rows.data() + from, length) != 1 || !sendAll()) return false;
  }
  return library().putCopyEnd(_connection, nullptr) == 1;
}

Reply Connection::copy(const std::string& statement, const std::string& rows) {
  if (library().sendQuery(_connection, statement.c_str()) == 0) return failure();
  PGresult* const begun = nextResult();
  if (begun == nullptr) return failure();
  const bool isReady = library().resultStatus(begun) == PGRES_COPY_IN;
  Reply refusal{.code = textOf(library().resultErrorField(begun, PG_DIAG_SQLSTATE)),
                .message = oneLine(library().resultErrorMessage(begun))};
  library().clear(begun);
  if (!isReady) return refusal;
  return sendRows(rows) ? lastReply() : failure();
}

}  // namespace platform::Linux::PostgreSQL
