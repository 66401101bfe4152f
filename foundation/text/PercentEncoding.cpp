#include "foundation/text/PercentEncoding.h"

#include <string_view>

namespace foundation {

bool decodePercentEscapes(std::string& text) {
  std::size_t from = text.find('%');
  if (from == std::string::npos) return true;
  std::size_t to = from;
  for (; from < text.size(); ++from) {
    char byte = text[from];
    if (byte == '%') {
      if (text.size() - from < 3) return false;
      const int high = hexDigitValue(text[from + 1]);
      const int low = hexDigitValue(text[from + 2]);
      if (high < 0 || low < 0) return false;
      byte = static_cast<char>(high << 4 | low);
      from += 2;
    }
    text[to++] = byte;
  }
  text.resize(to);
  return true;
}

void appendPercentEscape(std::string& text, char byte) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  const auto value = static_cast<unsigned char>(byte);
  text += {'%', digits[value >> 4U], digits[value & 0xFU]};
}

}  // namespace foundation
