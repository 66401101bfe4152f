#pragma once
// The time, the name of the queue or thread that logged in a column of fixed width, and the message. Any thread.
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Api.h"
#include "foundation/text/DateFormatter.h"
#include "logging/DDLogger.h"
#include "logging/SpinLock.h"

class KELTO_API DispatchQueueLogFormatter : public DDLogFormatter {
 public:
  // The column's width in characters, 4 to 35; other values are brought into these bounds.
  std::int32_t queueLength();
  void setQueueLength(std::int32_t length);
  // Whether names are filled up and cut off on the left instead of the right.
  bool rightAlign();
  void setRightAlign(bool rightAlign);
  // The text shown instead of a label; nullopt removes it.
  std::optional<std::string> replacementStringForQueueLabel(std::string_view label);
  void setReplacementString_forQueueLabel(std::optional<std::string> name, std::string_view label);

  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override;

 private:
  struct Column {
    std::string name;
    std::size_t width;
    bool rightAlign;
  };
  Column columnOf(const DDLogMessage& message);

  const foundation::DateFormatter dateFormatter{"yyyy-MM-dd HH:mm:ss:SSS"};
  SpinLock lock;
  std::int32_t _queueLength = 6;
  bool _rightAlign = false;
  std::map<std::string, std::string, std::less<>> _replacements{{"com.apple.main-thread", "main"}};
};
