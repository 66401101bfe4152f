#pragma once
// A database logger that notes its hooks, and when one is called elsewhere than on the logger's queue; and what tests of it
// have in common.
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "logging/DDAbstractDatabaseLogger.h"
#include "logging/DDLog.h"
#include "platform/fake/FakePlatform.h"

namespace tests {

// Records whose text is "no" are rejected; one whose text is "note" is noted too.
class NotingDatabase : public DDAbstractDatabaseLogger {
 public:
  NotingDatabase() : DDAbstractDatabaseLogger("database") {}

  // Set on the logger's queue.
  bool throws = false;

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
    if (throws) throw std::runtime_error("no " + what);
    _notes.push_back(foundation::Dispatch::currentQueueLabel() == "database" ? what : what + " elsewhere");
  }

  std::vector<std::string> _notes;
};

class DatabaseTest : public testing::Test {
 protected:
  DatabaseTest() { add(); }

  // Added, and its first deletion, due at once, is over.
  void add() {
    DDLog::addLogger(logger);
    pass(0);
    logger->takeNotes();
  }

  void log(int count = 1, std::string_view text = "yes") {
    for (int i = 0; i < count; ++i)
      DDLog::log_level_flag_context_file_function_line_format(true, 3, 1, 0, "f.mm", "f", 1, "%@", text);
    DDLog::loggingQueue().sync([] {});
  }

  void pass(double seconds) {
    DDLog::loggingQueue().sync([] {});
    logger->loggerQueue()->sync([] {});
    fake.clock.advance(foundation::Seconds(seconds));
    logger->loggerQueue()->sync([] {});
  }

  platform::fake::FakePlatform fake;
  std::shared_ptr<NotingDatabase> logger = std::make_shared<NotingDatabase>();
};

}  // namespace tests
