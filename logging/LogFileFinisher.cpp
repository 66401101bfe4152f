#include "logging/LogFileFinisher.h"

#include <algorithm>
#include <utility>

#include "foundation/dispatch/Clock.h"

using foundation::Dispatch::SerialQueue;
using foundation::Dispatch::TimerSource;
using platform::LogFile;

namespace {

constexpr std::chrono::milliseconds delay{200};

bool isPruned(const LogFile& file) { return file.placeOf({}) == LogFile::Place::unlinked; }

}  // namespace

LogFileFinisher::LogFileFinisher() : _queue(SerialQueue::make("cocoa.plamaiskre.fileLogger.finishing")) {}

LogFileFinisher::~LogFileFinisher() { finishNow(); }

void LogFileFinisher::finish(std::unique_ptr<LogFile> file, const std::string& path, Finished finished) {
  if (!file) return;
  file->endUse();
  {
    const std::lock_guard lock(_mutex);
    _paths.push_back(path);
  }
  _queue->async([this, entry = Entry{std::move(file), path, std::move(finished)}] { add(entry); });
}

bool LogFileFinisher::isFinishing(const std::string& path) {
  const std::lock_guard lock(_mutex);
  return std::ranges::find(_paths, path) != _paths.end();
}

void LogFileFinisher::finishNow() {
  _queue->sync([this] { finishAll(); });
}

void LogFileFinisher::add(Entry entry) {
  finishPruned();
  _entries.push_back(std::move(entry));
  if (_timer) return;
  _timer = TimerSource::make(_queue, [this] { finishAll(); });
  _timer->set(foundation::Clock::current().uptime() + delay, foundation::Seconds(0));
  _timer->resume();
}

// An open file keeps its space on the disk, though it was deleted.
void LogFileFinisher::finishPruned() {
  const auto pruned =
      std::stable_partition(_entries.begin(), _entries.end(), [](const Entry& entry) { return !isPruned(*entry.file); });
  const std::vector<Entry> gone(pruned, _entries.end());
  _entries.erase(pruned, _entries.end());
  for (const auto& entry : gone) finishOne(entry);
}

void LogFileFinisher::finishAll() {
  if (_timer) _timer->cancel();
  _timer.reset();
  for (const auto& entry : std::exchange(_entries, {})) finishOne(entry);
}

void LogFileFinisher::finishOne(const Entry& entry) {
  const bool isThere = !isPruned(*entry.file);
  if (isThere) entry.file->synchronize();
  if (entry.finished) entry.finished(isThere);
  const std::lock_guard lock(_mutex);
  _paths.erase(std::ranges::find(_paths, entry.path));
}

void LogFileFinisher::didFork() {
  std::construct_at(&_mutex);
  _paths.clear();
  _queue->resetAfterFork();
  _entries.clear();
  _timer.reset();
}
