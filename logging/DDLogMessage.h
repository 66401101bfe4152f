#pragma once
// One log event. Immutable; any thread.
//
// The record that a logger receives borrows its text from the core for the duration of the call. A copy owns its text, so
// a logger that keeps a record copies it.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Api.h"
#include "foundation/runtime/Time.h"
#include "logging/LogFields.h"

// The one kind of a statement. A level is the sum of the kinds that a calling site lets through.
inline constexpr std::int32_t DDLogFlagError = 1;
inline constexpr std::int32_t DDLogFlagWarning = 2;
inline constexpr std::int32_t DDLogFlagInfo = 4;

class KELTO_API DDLogMessage {
 public:
  // `logMsg` is the finished text and is copied. `file` and `function` are constant text, never copied; `function` may be
  // nullptr. Takes the time, the calling thread's number and the label of its current queue.
  DDLogMessage(std::string_view logMsg, std::int32_t level, std::int32_t flag, std::int32_t context, const char* file,
               const char* function, std::int32_t line);
  DDLogMessage(const DDLogMessage& other);
  DDLogMessage& operator=(const DDLogMessage& other) = delete;
  ~DDLogMessage() = default;

  [[nodiscard]] std::int32_t logLevel() const { return _facts.level; }
  [[nodiscard]] std::int32_t logFlag() const { return _facts.flag; }
  [[nodiscard]] std::int32_t logContext() const { return _facts.context; }
  [[nodiscard]] std::string_view logMsg() const { return _text; }
  [[nodiscard]] foundation::Date timestamp() const { return _facts.timestamp; }
  [[nodiscard]] const char* file() const { return _facts.file; }
  [[nodiscard]] const char* function() const { return _facts.function; }
  [[nodiscard]] std::int32_t lineNumber() const { return _facts.line; }
  // The kernel's number of the creating thread.
  [[nodiscard]] std::uint32_t machThreadID() const { return _facts.thread; }
  // The label of the queue that was current at creation, when it had one.
  [[nodiscard]] std::optional<std::string_view> queueLabel() const {
    return _label.data() == nullptr ? std::nullopt : std::optional(_label);
  }

  // The fields of the statement.
  [[nodiscard]] LogFieldReader fields() const { return LogFieldReader(_fields); }

  // `machThreadID` as lower-case hexadecimal.
  [[nodiscard]] std::string threadID() const;
  // `file` without folders and without extension.
  [[nodiscard]] std::string_view fileName() const;
  [[nodiscard]] std::optional<std::string_view> methodName() const;

 private:
  friend class DDLog;
  friend class LogCore;
  friend struct LogSlot;

  // All but the texts, as it lies in the ring.
  struct Facts {
    foundation::Date timestamp;
    const char* file = nullptr;
    const char* function = nullptr;
    std::int32_t level = 0;
    std::int32_t flag = 0;
    std::int32_t context = 0;
    std::int32_t line = 0;
    std::uint32_t thread = 0;
  };

  // Borrows the texts. `label` may be nullptr: the record then has no label.
  DDLogMessage(const Facts& facts, std::string_view text, std::string_view label, std::string_view fields)
      : _facts(facts), _text(text), _label(label), _fields(fields) {}
  void own(std::string_view text, std::string_view label, std::string_view fields);

  Facts _facts;
  std::string_view _text;
  std::string_view _label;
  std::string_view _fields;
  std::string _storage;  // of a record that owns its texts
};
