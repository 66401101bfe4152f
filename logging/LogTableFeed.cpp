#include "logging/LogTableFeed.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "foundation/text/Format.h"
#include "logging/LogAttempt.h"

using foundation::Seconds;
using Outcome = platform::LogTable::Outcome;

namespace {

constexpr std::size_t largestBatch = 5000;  // rows
constexpr Seconds firstDelay{0.1};
constexpr Seconds longestDelay{5};

}  // namespace

std::shared_ptr<LogTableFeed> LogTableFeed::make(std::unique_ptr<platform::LogTable> table, platform::SystemLog& systemLog,
                                                 std::string name, std::size_t capacity) {
  return std::shared_ptr<LogTableFeed>(new LogTableFeed(std::move(table), systemLog, std::move(name), capacity));
}

LogTableFeed::LogTableFeed(std::unique_ptr<platform::LogTable> table, platform::SystemLog& systemLog, std::string name,
                           std::size_t capacity)
    : _table(std::move(table)),
      _systemLog(systemLog),
      _name(std::move(name)),
      _capacity(capacity),
      _queue(foundation::Dispatch::SerialQueue::make(_name + " feed")),
      _batchLimit(largestBatch),
      _delay(firstDelay) {}

// Rows that come.

std::size_t LogTableFeed::sizeOf(const platform::LogRow& row) {
  const auto length = [](const std::optional<std::string>& text) { return text ? text->size() : 0; };
  return sizeof row + length(row.queue) + length(row.file) + length(row.function) + row.text.size() + length(row.fields);
}

bool LogTableFeed::reserve(std::size_t bytes) {
  std::unique_lock lock(_mutex);
  if (bytes <= _capacity - _bytes) {
    _bytes += bytes;
    return true;
  }
  const bool isFirst = _dropped++ == 0;
  lock.unlock();
  if (isFirst) _systemLog.log(_name + ": there is no room for more records, and they are dropped");
  return false;
}

void LogTableFeed::add(Rows rows) {
  {
    const std::lock_guard lock(_mutex);
    _rowCount += rows.size();
    std::ranges::move(rows, std::back_inserter(_rows));
  }
  start(false);
}

void LogTableFeed::removeBefore(foundation::Date date) {
  {
    const std::lock_guard lock(_mutex);
    _removalDate = date;
  }
  start(false);
}

void LogTableFeed::start(bool atOnce) {
  _queue->async([self = shared_from_this(), atOnce] { self->work(atOnce); });
}

// Those who wait.

void LogTableFeed::waitUntilStored(Seconds patience, bool endsAtFailure) {
  std::unique_lock lock(_mutex);
  const std::uint64_t before = _attempts;
  lock.unlock();
  start(true);
  lock.lock();
  _hasChanged.wait_for(lock, patience, [&] { return _rowCount == 0 || (endsAtFailure && _failedAttempt > before); });
}

void LogTableFeed::flush(Seconds patience) { waitUntilStored(patience, true); }

void LogTableFeed::finish(Seconds patience) {
  _queue->async([self = shared_from_this()] { self->_delay = firstDelay; });
  waitUntilStored(patience, false);
  _table->giveUp();
  _queue->sync([this] { dropAll(); });
  reportDropped();
}

// The queue's work.

void LogTableFeed::work(bool atOnce) {
  if (_isWaiting && !atOnce) return;
  _isWaiting = false;
  std::string cause;
  if (!storeAll(cause)) return tryLater(cause);
  _isInTrouble = false;
  logging::attempt([this] { removeOld(); });
}

bool LogTableFeed::storeAll(std::string& cause) {
  try {
    while (takeBatch())
      if (!storeBatch(cause)) return false;
    return true;
  } catch (const std::exception& error) {
    cause = error.what();
    return false;
  }
}

bool LogTableFeed::storeBatch(std::string& cause) {
  const Outcome outcome = _table->add(_batch, cause);
  if (outcome == Outcome::stored) endBatch();
  if (outcome == Outcome::refused) divideBatch(cause);
  return outcome != Outcome::failed;
}

bool LogTableFeed::takeBatch() {
  const std::lock_guard lock(_mutex);
  for (; _batch.size() < _batchLimit && !_rows.empty(); _rows.pop_front()) _batch.push_back(std::move(_rows.front()));
  if (!_batch.empty()) ++_attempts;
  return !_batch.empty();
}

void LogTableFeed::endBatch() {
  std::size_t bytes = 0;
  for (const auto& row : _batch) bytes += sizeOf(row);
  {
    const std::lock_guard lock(_mutex);
    _bytes -= bytes;
    _rowCount -= _batch.size();
  }
  _batch.clear();
  _batchLimit = largestBatch;
  _delay = firstDelay;
  _hasChanged.notify_all();
  reportDropped();
}

// One row that the server never takes must not keep the others: halves are tried until it stands alone.
void LogTableFeed::divideBatch(const std::string& cause) {
  if (_batch.size() == 1) {
    _systemLog.log(_name + ": a record was refused: " + cause);
    endBatch();
    return;
  }
  _batchLimit = _batch.size() / 2;
  const std::lock_guard lock(_mutex);
  for (; _batch.size() > _batchLimit; _batch.pop_back()) _rows.push_front(std::move(_batch.back()));
}

// A removal that fails is left to the next one.
void LogTableFeed::removeOld() {
  std::unique_lock lock(_mutex);
  const auto date = std::exchange(_removalDate, std::nullopt);
  lock.unlock();
  std::string cause;
  if (date && !_table->removeBefore(*date, cause)) _systemLog.log(_name + ": old records could not be removed: " + cause);
}

// Without memory for a timer the next rows try again.
void LogTableFeed::tryLater(const std::string& cause) {
  logging::attempt([&] { setTimer(cause); });
  _delay = std::min(_delay * 2, longestDelay);
  {
    const std::lock_guard lock(_mutex);
    _failedAttempt = _attempts;
  }
  _hasChanged.notify_all();
}

void LogTableFeed::setTimer(const std::string& cause) {
  if (!std::exchange(_isInTrouble, true)) _systemLog.log(_name + ": records wait for the server: " + cause);
  if (!_timer)
    _timer = foundation::Dispatch::TimerSource::make(_queue, [weak = weak_from_this()] {
      const auto self = weak.lock();
      if (self) self->work(true);
    });
  const auto delay = std::chrono::duration_cast<std::chrono::nanoseconds>(_delay);
  _timer->set(foundation::Clock::current().uptime() + delay, Seconds(0));
  _timer->resume();
  _isWaiting = true;
}

void LogTableFeed::dropAll() {
  _batch.clear();
  const std::lock_guard lock(_mutex);
  _rows.clear();
  _dropped += std::exchange(_rowCount, 0);
  _bytes = _capacity;  // and there is no room any more
}

void LogTableFeed::reportDropped() {
  std::unique_lock lock(_mutex);
  const std::uint64_t dropped = std::exchange(_dropped, 0);
  lock.unlock();
  if (dropped > 0) _systemLog.log(foundation::formatted("%@: %@ records were dropped", _name, dropped));
}
