#include "logging/DDAbstractDatabaseLogger.h"

#include <algorithm>
#include <utility>

#include "logging/LogAttempt.h"

using foundation::Seconds;
using foundation::Dispatch::TimerSource;

namespace {

// Long enough for "never", and short enough for the clock's numbers.
constexpr Seconds longestInterval{1e9};

Seconds interval(double seconds) { return std::min(Seconds(seconds), longestInterval); }

foundation::Uptime after(foundation::Uptime start, double seconds) {
  return start + std::chrono::duration_cast<std::chrono::nanoseconds>(interval(seconds));
}

}  // namespace

DDAbstractDatabaseLogger::~DDAbstractDatabaseLogger() {
  destroySaveTimer();
  destroyDeleteTimer();
}

// Settings.

template <class T>
T DDAbstractDatabaseLogger::onLoggerQueue(const T& field) {
  if (loggerQueue()->isCurrent()) return field;
  T value{};
  loggerQueue()->sync([&] { value = field; });
  return value;
}

void DDAbstractDatabaseLogger::submit(std::function<void()> work) {
  if (loggerQueue()->isCurrent()) {
    work();
    return;
  }
  loggerQueue()->async([self = shared_from_this(), work = std::move(work)] { logging::attempt(work); });
}

template <class T>
void DDAbstractDatabaseLogger::change(T DDAbstractDatabaseLogger::*field, T value,
                                      void (DDAbstractDatabaseLogger::*afterwards)(T oldValue)) {
  submit([this, field, value, afterwards] {
    const T old = std::exchange(this->*field, value);
    if (old != value) (this->*afterwards)(old);
  });
}

std::size_t DDAbstractDatabaseLogger::saveThreshold() { return onLoggerQueue(_saveThreshold); }
double DDAbstractDatabaseLogger::saveInterval() { return onLoggerQueue(_saveInterval); }
double DDAbstractDatabaseLogger::maxAge() { return onLoggerQueue(_maxAge); }
double DDAbstractDatabaseLogger::deleteInterval() { return onLoggerQueue(_deleteInterval); }
bool DDAbstractDatabaseLogger::deleteOnEverySave() { return onLoggerQueue(_deleteOnEverySave); }

void DDAbstractDatabaseLogger::setSaveThreshold(std::size_t threshold) {
  change(&DDAbstractDatabaseLogger::_saveThreshold, threshold, &DDAbstractDatabaseLogger::saveThresholdChanged);
}

void DDAbstractDatabaseLogger::setSaveInterval(double interval) {
  change(&DDAbstractDatabaseLogger::_saveInterval, interval, &DDAbstractDatabaseLogger::saveIntervalChanged);
}

void DDAbstractDatabaseLogger::setMaxAge(double age) {
  change(&DDAbstractDatabaseLogger::_maxAge, age, &DDAbstractDatabaseLogger::maxAgeChanged);
}

void DDAbstractDatabaseLogger::setDeleteInterval(double interval) {
  change(&DDAbstractDatabaseLogger::_deleteInterval, interval, &DDAbstractDatabaseLogger::deleteIntervalChanged);
}

void DDAbstractDatabaseLogger::setDeleteOnEverySave(bool deletes) {
  change(&DDAbstractDatabaseLogger::_deleteOnEverySave, deletes, &DDAbstractDatabaseLogger::deleteOnEverySaveChanged);
}

void DDAbstractDatabaseLogger::saveThresholdChanged(std::size_t /*old*/) {
  if (_saveThreshold > 0 && unsavedCount >= _saveThreshold) performSaveAndSuspendSaveTimer();
}

void DDAbstractDatabaseLogger::saveIntervalChanged(double /*old*/) {
  if (_saveInterval > 0) {
    createSuspendedSaveTimer();
    updateAndResumeSaveTimer();
  } else {
    destroySaveTimer();
  }
}

void DDAbstractDatabaseLogger::maxAgeChanged(double oldAge) {
  const bool isEnabled = _maxAge > 0;
  if (!isEnabled) {
    destroyDeleteTimer();
    return;
  }
  const bool wasLengthened = oldAge > 0 && _maxAge > oldAge;
  if (wasLengthened) return;
  performDelete();
  if (deleteTimer)
    updateDeleteTimer();
  else
    createAndStartDeleteTimer();
}

void DDAbstractDatabaseLogger::deleteIntervalChanged(double /*old*/) {
  if (_deleteInterval <= 0)
    destroyDeleteTimer();
  else if (deleteTimer)
    updateDeleteTimer();
  else
    createAndStartDeleteTimer();
}

void DDAbstractDatabaseLogger::savePendingLogEntries() {
  submit([this] { performSaveAndSuspendSaveTimer(); });
}

void DDAbstractDatabaseLogger::deleteOldLogEntries() {
  submit([this] { performDelete(); });
}

// The logger.

void DDAbstractDatabaseLogger::logMessage(const DDLogMessage& message) {
  if (!db_log(message)) return;
  ++unsavedCount;
  if (_saveThreshold > 0 && unsavedCount >= _saveThreshold) {
    performSaveAndSuspendSaveTimer();
  } else if (unsavedCount == 1) {
    // A forked child has none yet.
    createSuspendedSaveTimer();
    createAndStartDeleteTimer();
    unsavedTime = foundation::Clock::current().uptime();
    updateAndResumeSaveTimer();
  }
}

void DDAbstractDatabaseLogger::didAddLogger() {
  createSuspendedSaveTimer();
  createAndStartDeleteTimer();
}

void DDAbstractDatabaseLogger::willRemoveLogger() {
  performSaveAndSuspendSaveTimer();
  destroySaveTimer();
  destroyDeleteTimer();
}

void DDAbstractDatabaseLogger::flush() { performSaveAndSuspendSaveTimer(); }

void DDAbstractDatabaseLogger::didFork() {
  unsavedCount = 0;
  unsavedTime.reset();
  saveTimer.reset();
  deleteTimer.reset();
  db_didFork();
}

// Saving.

void DDAbstractDatabaseLogger::performSaveAndSuspendSaveTimer() {
  if (unsavedCount > 0 && _deleteOnEverySave) db_saveAndDelete();
  if (unsavedCount > 0 && !_deleteOnEverySave) db_save();
  unsavedCount = 0;
  unsavedTime.reset();
  if (saveTimer) saveTimer->suspend();
}

DDAbstractDatabaseLogger::Timer DDAbstractDatabaseLogger::makeTimer(void (DDAbstractDatabaseLogger::*handler)()) {
  return TimerSource::make(loggerQueue(), [weak = weak_from_this(), handler] {
    const auto self = weak.lock();
    if (self) logging::attempt([&] { (static_cast<DDAbstractDatabaseLogger&>(*self).*handler)(); });
  });
}

void DDAbstractDatabaseLogger::createSuspendedSaveTimer() {
  if (saveTimer || _saveInterval <= 0) return;
  saveTimer = makeTimer(&DDAbstractDatabaseLogger::performSaveAndSuspendSaveTimer);
}

void DDAbstractDatabaseLogger::updateAndResumeSaveTimer() {
  if (!saveTimer || _saveInterval <= 0 || !unsavedTime) return;
  saveTimer->set(after(*unsavedTime, _saveInterval), interval(_saveInterval));
  saveTimer->resume();
}

void DDAbstractDatabaseLogger::destroySaveTimer() {
  if (saveTimer) saveTimer->cancel();
  saveTimer.reset();
}

// Deleting.

void DDAbstractDatabaseLogger::performDelete() {
  if (_maxAge <= 0) return;
  db_delete();
  lastDeleteTime = foundation::Clock::current().uptime();
}

void DDAbstractDatabaseLogger::createAndStartDeleteTimer() {
  if (deleteTimer || _deleteInterval <= 0 || _maxAge <= 0) return;
  deleteTimer = makeTimer(&DDAbstractDatabaseLogger::performDelete);
  updateDeleteTimer();
  deleteTimer->resume();
}

void DDAbstractDatabaseLogger::updateDeleteTimer() {
  if (!deleteTimer || _deleteInterval <= 0 || _maxAge <= 0) return;
  const auto start = lastDeleteTime ? after(*lastDeleteTime, _deleteInterval) : foundation::Clock::current().uptime();
  deleteTimer->set(start, interval(_deleteInterval));
}

void DDAbstractDatabaseLogger::destroyDeleteTimer() {
  if (deleteTimer) deleteTimer->cancel();
  deleteTimer.reset();
}
