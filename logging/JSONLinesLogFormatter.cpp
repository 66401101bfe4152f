#include "logging/JSONLinesLogFormatter.h"

#include "foundation/text/UTF8.h"

namespace {

void appendEscaped(std::string& line, char character) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character);
  if (character == '"' || character == '\\')
    line.append({'\\', character});
  else if (character == '\n')
    line.append("\\n");
  else if (character == '\t')
    line.append("\\t");
  else if (byte < 0x20)
    line.append({'\\', 'u', '0', '0', digits[byte >> 4U], digits[byte & 15U]});
  else
    line.push_back(character);
}

void appendString(std::string& line, std::string_view text) {
  std::string readable;
  if (!foundation::isValidUTF8(text)) text = readable = foundation::textFromASCII(text);
  line.push_back('"');
  for (const char character : text) appendEscaped(line, character);
  line.push_back('"');
}

// `name` comes with the punctuation around it.
void appendString(std::string& line, std::string_view name, std::string_view text) {
  line.append(name);
  appendString(line, text);
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

void appendFields(std::string& line, LogFieldReader fields) {
  char separator = '{';
  while (const auto field = fields.next()) {
    if (separator == '{') line.append(",\"fields\":");
    line.push_back(separator);
    appendString(line, field->key);
    line.push_back(':');
    if (field->isNumber)
      line.append(field->value);
    else
      appendString(line, field->value);
    separator = ',';
  }
  if (separator == ',') line.push_back('}');
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
  appendFields(buffer, message.fields());
  return buffer.append("}");
}
