#pragma once
// Bytes of a URL written as a percent sign and two hexadecimal digits. Pure; any thread.
#include <string>

namespace foundation {

// The value of a hexadecimal digit, in upper or lower case; -1 for any other character.
constexpr int hexDigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

// Replaces every escape in `text` by its byte. Returns false, and leaves `text` in an unspecified state, if a percent sign
// is not followed by two digits.
bool decodePercentEscapes(std::string& text);

// Appends the escape of one byte, its digits in upper case.
void appendPercentEscape(std::string& text, char byte);

}  // namespace foundation
