#pragma once
// Every record as a JSON object on a line of its own, for programs that collect logs. Any thread.
//
//   {"time":"2026-03-29T01:59:59.120+01:00","level":"warning","thread":"1f03","queue":"saving","file":"Save.cpp",
//    "line":12,"function":"save","context":3,"text":"the disk is full","fields":{"bytes":4096}}
//
// Without a queue, file, function, context other than 0, or fields, these are missing. A kind of statement that has no name
// is a number. The text is UTF-8; where it was not, every byte above 127 is shown as U+FFFD.
#include "foundation/Api.h"
#include "foundation/text/DateFormatter.h"
#include "logging/DDLogger.h"

class KELTO_API JSONLinesLogFormatter : public DDLogFormatter {
 public:
  std::optional<std::string_view> formatLogMessage(const DDLogMessage& message, std::string& buffer) override;

 private:
  const foundation::DateFormatter _dateFormatter{"yyyy-MM-ddTHH:mm:ss.SSSZZZZZZ"};
};
