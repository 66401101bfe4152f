#include "logging/JSONText.h"

#include "foundation/text/UTF8.h"

namespace {

void appendEscaped(std::string& json, char character) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(character);
  if (character == '"' || character == '\\')
    json.append({'\\', character});
  else if (character == '\n')
    json.append("\\n");
  else if (character == '\t')
    json.append("\\t");
  else if (byte < 0x20)
    json.append({'\\', 'u', '0', '0', digits[byte >> 4U], digits[byte & 15U]});
  else
    json.push_back(character);
}

}  // namespace

void appendJSONString(std::string& json, std::string_view text) {
  std::string readable;
  if (!foundation::isValidUTF8(text)) text = readable = foundation::textFromASCII(text);
  json.push_back('"');
  for (const char character : text) appendEscaped(json, character);
  json.push_back('"');
}

bool appendJSONObject(std::string& json, LogFieldReader fields) {
  char separator = '{';
  while (const auto field = fields.next()) {
    json.push_back(separator);
    appendJSONString(json, field->key);
    json.push_back(':');
    if (field->isNumber)
      json.append(field->value);
    else
      appendJSONString(json, field->value);
    separator = ',';
  }
  if (separator == ',') json.push_back('}');
  return separator == ',';
}
