#include "logging/DDPostgreSQLLogger.h"

#include <utility>

#include "logging/JSONText.h"
#include "logging/LogTableFeed.h"

namespace {

platform::LogTableAddress withProcess(platform::LogTableAddress address, platform::LoggingHost* host) {
  if (address.process.empty() && host != nullptr) address.process = host->process.processName();
  return address;
}

std::optional<std::string> owned(std::optional<std::string_view> text) {
  return text ? std::optional<std::string>(*text) : std::nullopt;
}

}  // namespace

DDPostgreSQLLogger::DDPostgreSQLLogger(platform::LoggingPlatform& platform, platform::LogTableAddress address,
                                       std::size_t capacity)
    : DDAbstractDatabaseLogger("cocoa.plamaiskre.postgreSQLLogger"),
      _host(platform.loggingHost),
      _systemLog(platform.systemLog),
      _address(withProcess(std::move(address), platform.loggingHost)),
      _capacity(capacity) {}

DDPostgreSQLLogger::~DDPostgreSQLLogger() = default;

bool DDPostgreSQLLogger::makeFeed() {
  if (_feed) return true;
  if (_hasEnded || _host == nullptr || !_host->openLogTable) return false;
  _feed = LogTableFeed::make(_host->openLogTable(_address), _systemLog, "DDPostgreSQLLogger", _capacity);
  return true;
}

platform::LogRow DDPostgreSQLLogger::rowOf(const DDLogMessage& message, std::string_view text) {
  platform::LogRow row{.number = _number,
                       .time = message.timestamp(),
                       .level = message.logLevel(),
                       .flag = message.logFlag(),
                       .context = message.logContext(),
                       .thread = message.machThreadID(),
                       .queue = owned(message.queueLabel()),
                       .function = owned(message.methodName()),
                       .line = message.lineNumber(),
                       .text = std::string(text)};
  if (message.file() != nullptr && message.file()[0] != '\0') row.file = message.file();
  if (std::string fields; appendJSONObject(fields, message.fields())) row.fields = std::move(fields);
  return row;
}

bool DDPostgreSQLLogger::db_log(const DDLogMessage& message) {
  const auto text = textOf(message);
  if (!text || !makeFeed()) return false;
  ++_number;
  auto row = rowOf(message, *text);
  if (!_feed->reserve(LogTableFeed::sizeOf(row))) return false;
  _batch.push_back(std::move(row));
  return true;
}

void DDPostgreSQLLogger::db_save() {
  if (_feed) _feed->add(std::exchange(_batch, {}));
}

void DDPostgreSQLLogger::db_delete() {
  if (makeFeed())
    _feed->removeBefore(foundation::dateByAdding(foundation::Clock::current().now(), foundation::Seconds(-maxAge())));
}

void DDPostgreSQLLogger::db_saveAndDelete() {
  db_save();
  if (maxAge() > 0) db_delete();
}

void DDPostgreSQLLogger::flush() {
  DDAbstractDatabaseLogger::flush();
  if (_feed) _feed->flush(foundation::Seconds(_patience));
}

void DDPostgreSQLLogger::endFeed() {
  if (_feed) _feed->finish(foundation::Seconds(_patience));
  _feed.reset();
}

void DDPostgreSQLLogger::willRemoveLogger() {
  DDAbstractDatabaseLogger::willRemoveLogger();
  endFeed();
}

void DDPostgreSQLLogger::willEnd() {
  _hasEnded = true;
  endFeed();
}

// The rows are the parent's to store, and the connection must be neither used nor closed here.
void DDPostgreSQLLogger::db_didFork() {
  _batch.clear();
  _number = 0;
  if (_feed) new std::shared_ptr<LogTableFeed>(std::exchange(_feed, nullptr));
}
