#pragma once
// The base of loggers whose store is a database: it decides when a batch is saved and when old entries go; a subclass
// stores, in four hooks.
//
// Everything of it runs on the logger's own queue. A subclass is made shared; its `db_` hooks are never called at once.
#include <functional>
#include <memory>
#include <optional>

#include "foundation/Api.h"
#include "foundation/dispatch/Clock.h"
#include "logging/DDAbstractLogger.h"

class KELTO_API DDAbstractDatabaseLogger : public DDAbstractLogger {
 public:
  explicit DDAbstractDatabaseLogger(std::string name) : DDAbstractLogger(std::move(name)) {}
  ~DDAbstractDatabaseLogger() override;

  // Settings: from any thread. A getter waits for the logger's queue unless it is called on it; a setter takes effect in
  // order with the records there.

  // Save when this many records are unsaved; 0: never for that reason.
  std::size_t saveThreshold();
  void setSaveThreshold(std::size_t threshold);
  // Seconds after the first unsaved record until a save; 0 or less: never for that reason.
  double saveInterval();
  void setSaveInterval(double interval);
  // Seconds that entries are kept; 0 or less: for ever.
  double maxAge();
  void setMaxAge(double age);
  // Seconds between deletions of old entries; 0 or less: none.
  double deleteInterval();
  void setDeleteInterval(double interval);
  // Whether every save deletes, too (`db_saveAndDelete`).
  bool deleteOnEverySave();
  void setDeleteOnEverySave(bool deletes);

  void savePendingLogEntries();
  void deleteOldLogEntries();

  void logMessage(const DDLogMessage& message) override;
  void didAddLogger() override;
  void willRemoveLogger() override;
  void flush() override;
  void didFork() override;

 protected:
  // Stores or buffers the record (copy it to keep it); true when it was accepted. Only accepted records lead to a save.
  virtual bool db_log(const DDLogMessage& /*message*/) { return false; }
  // Commits what is buffered.
  virtual void db_save() {}
  // Deletes entries that are older than `maxAge`.
  virtual void db_delete() {}
  // Commits, then deletes.
  virtual void db_saveAndDelete() {}
  // In a forked child: what is buffered is the parent's to store, and so is an open database, which must be neither used
  // nor closed here. The child opens one of its own when it has something to store.
  virtual void db_didFork() {}

 private:
  using Timer = std::shared_ptr<foundation::Dispatch::TimerSource>;

  template <class T>
  T onLoggerQueue(const T& field);
  void submit(std::function<void()> work);
  template <class T>
  void change(T DDAbstractDatabaseLogger::*field, T value, void (DDAbstractDatabaseLogger::*after)(T oldValue));
  void saveThresholdChanged(std::size_t);
  void saveIntervalChanged(double);
  void maxAgeChanged(double oldAge);
  void deleteIntervalChanged(double);
  void deleteOnEverySaveChanged(bool) {}

  Timer makeTimer(void (DDAbstractDatabaseLogger::*handler)());
  void performSaveAndSuspendSaveTimer();
  void performDelete();
  void createSuspendedSaveTimer();
  void updateAndResumeSaveTimer();
  void destroySaveTimer();
  void createAndStartDeleteTimer();
  void updateDeleteTimer();
  void destroyDeleteTimer();

  std::size_t _saveThreshold = 500;
  double _saveInterval = 60.0;
  double _maxAge = 604800.0;
  double _deleteInterval = 300.0;
  bool _deleteOnEverySave = false;
  std::size_t unsavedCount = 0;
  std::optional<foundation::Uptime> unsavedTime;  // when the first unsaved record was accepted
  Timer saveTimer;
  std::optional<foundation::Uptime> lastDeleteTime;  // nothing: a deletion is due at once
  Timer deleteTimer;
};
