#include "logging/LogFileFinisher.h"

#include <algorithm>
#include <new>
#include <utility>

#include "foundation/dispatch/Clock.h"
#include "logging/LogAttempt.h"

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
  const Entry entry{std::move(file), path, std::move(finished)};
  try {
    note(path);
    _queue->async([this, entry] { add(entry); });
  } catch (const std::bad_alloc&) {
    finishOne(entry);
  }
}

void LogFileFinisher::note(const std::string& path) {
  const std::lock_guard lock(_mutex);
  _paths.push_back(path);
}

bool LogFileFinisher::isFinishing(const std::string& path) {
  const std::lock_guard lock(_mutex);
  return std::ranges::find(_paths, path) != _paths.end();
}

void LogFileFinisher::finishNow() {
  _queue->sync([this] { finishAll(); });
}

void LogFileFinisher::add(const Entry& entry) {
  finishPruned();
  try {
    setTimer();
    _entries.push_back(entry);
  } catch (const std::bad_alloc&) {
    finishOne(entry);
  }
}

void LogFileFinisher::setTimer() {
  if (_timer) return;
  const auto timer = TimerSource::make(_queue, [this] { finishAll(); });
  timer->set(foundation::Clock::current().uptime() + delay, foundation::Seconds(0));
  timer->resume();
  _timer = timer;
}

// An open file keeps its space on the disk, though it was deleted.
void LogFileFinisher::finishPruned() {
  const auto pruned =
      std::stable_partition(_entries.begin(), _entries.end(), [](const Entry& entry) { return !isPruned(*entry.file); });
  std::for_each(pruned, _entries.end(), [this](const Entry& entry) { finishOne(entry); });
  _entries.erase(pruned, _entries.end());
}

void LogFileFinisher::finishAll() {
  if (_timer) _timer->cancel();
  _timer.reset();
  for (const auto& entry : std::exchange(_entries, {})) finishOne(entry);
}

void LogFileFinisher::finishOne(const Entry& entry) {
  const bool isThere = !isPruned(*entry.file);
  if (isThere) entry.file->synchronize();
  if (entry.finished) logging::attempt([&] { entry.finished(isThere); });
  const std::lock_guard lock(_mutex);
  std::erase(_paths, entry.path);
}

// Where the parent's finisher was at work, its files are in the middle of something, and left as they are.
void LogFileFinisher::didFork() {
  const bool isWhole = _queue->tryEnter();
  _queue->resetAfterFork();
  std::construct_at(&_mutex);
  if (isWhole) {
    _paths.clear();
    _entries.clear();
    _timer.reset();
  } else {
    std::construct_at(&_paths);
    std::construct_at(&_entries);
    std::construct_at(&_timer);
  }
}
