#pragma once
// The hub of logging: every statement becomes one record, and every record goes to every logger.
//
// Records, and what is submitted to the logging queue, take effect in the order of submission; no logger gets a record
// before all have had the one before. At most 1000 records wait: the next caller waits with them. Any thread, with one
// exception: what waits (a synchronous statement, flushLog) must not be called from the logging queue or a logger's queue.
//
// The state belongs to the installed platform and is made at the first use; without a platform nothing here does anything,
// and the first statement says so on standard error. It ends, after a last flush, with the platform or the process,
// whichever is first; from the end of `main` on every statement is synchronous. Other threads may go on logging while the
// platform ends: it waits for the calls that have begun, and later ones find none.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Api.h"
#include "foundation/dispatch/Dispatch.h"
#include "foundation/runtime/ClassRegistry.h"
#include "logging/DDLogger.h"
#include "logging/FormatString.h"

class LogCore;

class KELTO_API DDLog {
 public:
  DDLog() = delete;

  // Made by the first use of anything here: also the flush at the application's end is arranged for. Again: nothing.
  static void initialize();
  // The serial queue "cocoa.plamaiskre" on which the loggers are managed. It is there as long as the platform.
  static foundation::Dispatch::Queue& loggingQueue();

  // The core shares the logger. A logger that is added twice is there twice; nullptr does nothing.
  static void addLogger(std::shared_ptr<DDLogger> logger);
  // Takes the logger's first entry away; one that is not there does nothing.
  static void removeLogger(std::shared_ptr<DDLogger> logger);
  static void removeAllLoggers();

  // Synchronous: returns when every logger has handled the record.
  static void queueLogMessage_asynchronously(const DDLogMessage& message, bool asynchronously);
  // A format of nothing (nullptr) does nothing at all. `file` and `function` are constant text.
  template <class... Arguments>
  static void log_level_flag_context_file_function_line_format(
      bool asynchronous, std::int32_t level, std::int32_t flag, std::int32_t context, const char* file,
      const char* function, std::int32_t line, std::type_identity_t<logging::FormatString<Arguments...>> format,
      const Arguments&... arguments) {
    if (format.isAbsent()) return;
    const Statement statement{asynchronous, level, flag, context, file, function, line};
    logging::withArguments([&](auto list) { log(statement, format.text(), list); }, arguments...);
  }
  // Returns when every logger has flushed.
  static void flushLog();

  // From now on, if the process crashes by a signal, what waits is written before it ends, as far as that is possible
  // within a second. The next process recovers the rest in any case.
  static void writeOnCrash();

  // Class levels: of classes that have both class operations `ddLogLevel` (std::int32_t()) and `ddSetLogLevel:`
  // (void(std::int32_t)). nullptr stands for no class.
  static bool isRegisteredClass(const foundation::Class* aClass);
  static std::vector<foundation::Class*> registeredClasses();
  static std::vector<std::string> registeredClassNames();
  // -1 when the class is not registered.
  static std::int32_t logLevelForClass(const foundation::Class* aClass);
  static std::int32_t logLevelForClassWithName(std::string_view name);
  static void setLogLevel_forClass(std::int32_t level, const foundation::Class* aClass);
  static void setLogLevel_forClassWithName(std::int32_t level, std::string_view name);

  // The fields of one statement, in the order of the operation above.
  struct Statement {
    bool asynchronous;
    std::int32_t level;
    std::int32_t flag;
    std::int32_t context;
    const char* file;
    const char* function;
    std::int32_t line;
  };
  // `fields` may be nullptr.
  static void log(const Statement& statement, std::string_view format,
                  std::span<const foundation::FormatArgument> arguments, const LogFields* fields = nullptr);
  // The same with a text that is formatted already, which is copied. For callers that echo to the system log: where
  // statements go there only, this does nothing.
  static void logText(const Statement& statement, std::string_view text);

 private:
  static void record(LogCore& core, const Statement& statement, foundation::Date timestamp, std::string_view text,
                     std::string_view fields);
};
