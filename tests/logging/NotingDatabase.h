#pragma once
// A database logger that notes its hooks, and when one is called elsewhere than on the logger's queue.
#include <string>
#include <string_view>
#include <vector>

#include "logging/DDAbstractDatabaseLogger.h"

// Records whose text is "no" are rejected; one whose text is "note" is noted too.
class NotingDatabase : public DDAbstractDatabaseLogger {
 public:
  NotingDatabase() : DDAbstractDatabaseLogger("database") {}

  std::vector<std::string> takeNotes() {
    std::vector<std::string> taken;
    loggerQueue()->sync([&] { taken.swap(_notes); });
    return taken;
  }

 protected:
  bool db_log(const DDLogMessage& message) override {
    if (message.logMsg() == "note") note("log");
    return message.logMsg() != "no";
  }
  void db_save() override { note("save"); }
  void db_delete() override { note("delete"); }
  void db_saveAndDelete() override { note("save and delete"); }

 private:
  void note(const std::string& what) {
    const char* label = platform::Dispatch::currentQueueLabel();
    _notes.push_back(label != nullptr && std::string_view(label) == "database" ? what : what + " elsewhere");
  }

  std::vector<std::string> _notes;
};
