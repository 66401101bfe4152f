#include "logging/JSONLinesLogFormatter.h"

#include "logging/JSONText.h"

namespace {

// `name` comes with the punctuation around it.
void appendString(std::string& line, std::string_view name, std::string_view text) {
  line.append(name);
  appendJSONString(line, text);
}

void appendNumber(std::string& line, std::string_view name, std::int64_t number) {
  line.append(name).append(std::to_string(number));
}

void appendLevel(std::string& line, std::int32_t flag) {
  constexpr std::string_view name = ",\"level\":";
  if (flag == DDLogFlagError)
    appendString(line, name, "error");
  else if (flag == DDLogFlagWarning)
    appendString(line, name, "warning");
  else if (flag == DDLogFlagInfo)
    appendString(line, name, "info");
  else
    appendNumber(line, name, flag);
}

void appendPlace(std::string& line, const DDLogMessage& message) {
  const std::string_view file = message.file() == nullptr ? "" : message.file();
  if (!file.empty()) {
    appendString(line, ",\"file\":", file);
    appendNumber(line, ",\"line\":", message.lineNumber());
  }
  if (const auto method = message.methodName()) appendString(line, ",\"function\":", *method);
}

}  // namespace

std::optional<std::string_view> JSONLinesLogFormatter::formatLogMessage(const DDLogMessage& message, std::string& buffer) {
  buffer.assign("{\"time\":\"");
  _dateFormatter.appendString(message.timestamp(), buffer);
  buffer.push_back('"');
  appendLevel(buffer, message.logFlag());
  appendString(buffer, ",\"thread\":", message.threadID());
  if (const auto label = message.queueLabel()) appendString(buffer, ",\"queue\":", *label);
  appendPlace(buffer, message);
  if (message.logContext() != 0) appendNumber(buffer, ",\"context\":", message.logContext());
  appendString(buffer, ",\"text\":", message.logMsg());
  const std::size_t length = buffer.size();
  buffer.append(",\"fields\":");
  if (!appendJSONObject(buffer, message.fields())) buffer.resize(length);
  return buffer.append("}");
}
