#include "platform/linux/LogTable.h"

#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <random>
#include <string_view>

#include "foundation/text/UTF8.h"

namespace platform::Linux {
namespace {

constexpr std::string_view columns =
    "source uuid NOT NULL, number bigint NOT NULL, time timestamptz NOT NULL, machine text NOT NULL, process text NOT NULL,"
    " pid integer NOT NULL, level integer NOT NULL, flag integer NOT NULL, context integer NOT NULL, thread bigint NOT "
    "NULL,"
    " queue text, file text, function text, line integer NOT NULL, message text NOT NULL, fields json,"
    " PRIMARY KEY (source, number)";

// One writer of a table makes it. Any number does, as long as all writers have the same.
constexpr std::string_view oneMaker = "SELECT pg_advisory_xact_lock(7205514116983)";

constexpr std::string_view uniqueViolation = "23505";

std::string inMarks(std::string_view text, char mark) {
  std::string result(1, mark);
  for (const char character : text) result.append(character == mark ? 2 : 1, character);
  return result.append(1, mark);
}

// A random number in the shape of a UUID.
std::string newSource() {
  std::random_device random;
  std::string source;
  constexpr std::string_view digits = "0123456789abcdef";
  for (int i = 0; i < 32; ++i) source.push_back(digits[random() % digits.size()]);
  return source;
}

std::string machineName() {
  std::array<char, 256> name{};
  ::gethostname(name.data(), name.size() - 1);
  return name.data();
}

void appendEscaped(std::string& row, char character) {
  if (character == '\0')
    row.append("\xEF\xBF\xBD");  // the server knows no zeros in texts
  else if (character == '\\')
    row.append("\\\\");
  else if (character == '\n')
    row.append("\\n");
  else if (character == '\r')
    row.append("\\r");
  else if (character == '\t')
    row.append("\\t");
  else
    row.push_back(character);
}

// Every column begins with the tab that parts it from the one before.
void appendText(std::string& row, std::string_view text) {
  std::string readable;
  if (!foundation::isValidUTF8(text)) text = readable = foundation::textFromASCII(text);
  row.push_back('\t');
  for (const char character : text) appendEscaped(row, character);
}

void appendText(std::string& row, const std::optional<std::string>& text) {
  if (text)
    appendText(row, std::string_view(*text));
  else
    row.append("\t\\N");
}

void appendNumbers(std::string& row, std::initializer_list<std::int64_t> numbers) {
  for (const std::int64_t number : numbers) row.append(1, '\t').append(std::to_string(number));
}

std::string timeText(foundation::Date date) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(date);
  const auto microseconds = std::chrono::floor<std::chrono::microseconds>(date - seconds).count();
  const time_t time = std::chrono::system_clock::to_time_t(seconds);
  tm parts{};
  ::gmtime_r(&time, &parts);
  std::array<char, 32> text{};
  ::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts);
  const std::string fraction = std::to_string(1'000'000 + microseconds).substr(1);
  return std::string(text.data()) + "." + fraction + "+00";
}

void appendRow(std::string& rows, const LogRow& row, std::string_view source, std::string_view origin) {
  rows.append(source);
  appendNumbers(rows, {row.number});
  appendText(rows, std::string_view(timeText(row.time)));
  rows.append(origin);
  appendNumbers(rows, {row.level, row.flag, row.context, row.thread});
  for (const auto* text : {&row.queue, &row.file, &row.function}) appendText(rows, *text);
  appendNumbers(rows, {row.line});
  appendText(rows, std::string_view(row.text));
  appendText(rows, row.fields);
  rows.push_back('\n');
}

std::string originOf(const LogTableAddress& address) {
  std::string origin;
  appendText(origin, std::string_view(address.machine.empty() ? machineName() : address.machine));
  appendText(origin, std::string_view(address.process));
  appendNumbers(origin, {::getpid()});
  return origin;
}

// Whether the server objects to the rows themselves: a value that it cannot take, or one that is too large.
bool isAboutRows(std::string_view code) {
  return code != uniqueViolation && (code.starts_with("22") || code.starts_with("23") || code.starts_with("54"));
}

}  // namespace

LogTable::LogTable(const LogTableAddress& address)
    : _server(address.server),
      _name(inMarks(address.table, '"')),
      _index(inMarks(address.table + "_by_time", '"')),
      _source(newSource()),
      _origin(originOf(address)),
      _limits{.patience = address.patience} {}

bool LogTable::connect(std::string& cause) {
  if (_connection) return true;
  _connection = PostgreSQL::Connection::open(_server, _limits, cause);
  if (_connection && prepareTable(cause)) return true;
  _connection.reset();
  return false;
}

bool LogTable::prepareTable(std::string& cause) {
  auto reply = _connection->execute("SET client_encoding = 'UTF8'");
  if (reply.isGood) reply = _connection->execute("SELECT to_regclass(" + inMarks(_name, '\'') + ") IS NOT NULL");
  if (reply.isGood && reply.value == "f")
    reply =
        _connection->execute(std::string(oneMaker) + "; CREATE TABLE IF NOT EXISTS " + _name + " (" + std::string(columns) +
                             "); CREATE INDEX IF NOT EXISTS " + _index + " ON " + _name + " (time)");
  cause = reply.message;
  return reply.isGood;
}

bool LogTable::askForLastNumber(std::string& cause) {
  if (!_isUncertain) return true;
  const auto reply =
      _connection->execute("SELECT coalesce(max(number), 0) FROM " + _name + " WHERE source = '" + _source + "'");
  if (reply.isGood) _lastNumber = std::max<std::int64_t>(_lastNumber, ::strtoll(reply.value.c_str(), nullptr, 10));
  _isUncertain = !reply.isGood;
  cause = reply.message;
  if (_isUncertain) _connection.reset();
  return reply.isGood;
}

LogTable::Outcome LogTable::add(std::span<const LogRow> rows, std::string& cause) {
  if (!connect(cause) || !askForLastNumber(cause)) return Outcome::failed;
  std::string text;
  for (const auto& row : rows)
    if (row.number > _lastNumber) appendRow(text, row, _source, _origin);
  if (text.empty()) return Outcome::stored;
  const Outcome outcome = ended(_connection->copy("COPY " + _name + " FROM STDIN", text), cause);
  if (outcome == Outcome::stored) _lastNumber = rows.back().number;
  return outcome;
}

LogTable::Outcome LogTable::ended(const PostgreSQL::Reply& reply, std::string& cause) {
  if (reply.isGood) return Outcome::stored;
  cause = reply.message;
  _isUncertain = true;
  _connection.reset();
  return isAboutRows(reply.code) ? Outcome::refused : Outcome::failed;
}

bool LogTable::removeBefore(foundation::Date date, std::string& cause) {
  if (!connect(cause)) return false;
  const auto reply = _connection->execute("DELETE FROM " + _name + " WHERE time < '" + timeText(date) + "'");
  cause = reply.message;
  if (!reply.isGood) _connection.reset();
  return reply.isGood;
}

}  // namespace platform::Linux
