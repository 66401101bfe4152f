#include "logging/LogFileFinisher.h"

#include <utility>

#include "foundation/dispatch/Clock.h"

using foundation::Dispatch::SerialQueue;
using foundation::Dispatch::TimerSource;
using platform::LogFile;

namespace {

constexpr std::chrono::milliseconds delay{200};

bool isPruned(const std::shared_ptr<LogFile>& file) { return file->placeOf({}) == LogFile::Place::unlinked; }

}  // namespace

LogFileFinisher::LogFileFinisher() : _queue(SerialQueue::make("cocoa.plamaiskre.fileLogger.finishing")) {}

LogFileFinisher::~LogFileFinisher() {
  _queue->sync([this] { synchronizeAll(); });
}

void LogFileFinisher::finish(std::unique_ptr<LogFile> file) {
  if (!file) return;
  file->endUse();
  _queue->async([this, file = std::shared_ptr<LogFile>(std::move(file))] { add(file); });
}

void LogFileFinisher::add(std::shared_ptr<LogFile> file) {
  std::erase_if(_files, isPruned);
  _files.push_back(std::move(file));
  if (_timer) return;
  _timer = TimerSource::make(_queue, [this] { synchronizeAll(); });
  _timer->set(foundation::Clock::current().uptime() + delay, foundation::Seconds(0));
  _timer->resume();
}

void LogFileFinisher::synchronizeAll() {
  if (_timer) _timer->cancel();
  _timer.reset();
  for (const auto& file : std::exchange(_files, {}))
    if (!isPruned(file)) file->synchronize();
}

void LogFileFinisher::didFork() {
  _queue->resetAfterFork();
  _files.clear();
  _timer.reset();
}
