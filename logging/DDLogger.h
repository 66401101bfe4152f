#pragma once
// The interfaces of a logger, which the core calls, and of its formatter.
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Api.h"
#include "foundation/dispatch/Dispatch.h"
#include "logging/DDLogMessage.h"

// A buffer that a long text has made larger than this gives its memory back.
inline constexpr std::size_t keptTextCapacity = 65536;

// Turns a record into the text to write. Called on the queue of the logger that has it.
class KELTO_API DDLogFormatter {
 public:
  virtual ~DDLogFormatter() = default;
  // The text, or nothing to drop the record. It is valid as long as the record and `buffer`: either the record's own text
  // as it is, or text made in `buffer`, which comes with anything in it.
  virtual std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) = 0;
};

// A receiver of records. Everything here but the formatter is called on the logger's queue, never on two threads at once.
class KELTO_API DDLogger {
 public:
  virtual ~DDLogger() = default;

  virtual void logMessage(const DDLogMessage& message) = 0;
  // nullptr for none. See DDAbstractLogger for the threads.
  virtual std::shared_ptr<DDLogFormatter> logFormatter() = 0;
  virtual void setLogFormatter(std::shared_ptr<DDLogFormatter> formatter) = 0;

  // The rest is optional.

  // The logger's own queue. With nullptr the core makes one and labels it with the name. Both are asked when it is added.
  virtual std::shared_ptr<foundation::Dispatch::SerialQueue> loggerQueue() { return nullptr; }
  virtual std::optional<std::string> loggerName() const { return std::nullopt; }
  virtual void didAddLogger() {}
  virtual void willRemoveLogger() {}
  // Everything received so far is to be where it belongs when this returns.
  virtual void flush() {}
  // Hands on what was put aside to be written together with more. Called before a synchronous statement returns, when
  // nothing more has come for a while, and when something has lain for 200 microseconds.
  virtual void writePending() {}
  // Nothing more has come for a while.
  virtual void didBecomeIdle() {}
  // The process, or the platform, ends: things that were put off must be done now.
  virtual void willEnd() {}
  // In a forked child, while nothing else of the logger runs: what was put aside is the parent's to write, and open files
  // are shared with it.
  //
  // Forking inside a logger, a formatter or a block of the logging queue is not supported: such a child calls no logger any
  // more, this operation included, and its statements go to the system log only. The same happens to the child of another
  // thread when a logger has been busy for a fifth of a second: a fork waits no longer.
  virtual void didFork() {}
};
