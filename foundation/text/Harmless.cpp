#include "foundation/text/Harmless.h"

#include "foundation/text/UTF8.h"

namespace foundation {
namespace {

// A terminal obeys the bytes below 32, 127, and the characters U+0080 to U+009F, which begin with 0xC2 in UTF-8.
std::size_t lengthOfControl(std::string_view text) {
  const auto byte = static_cast<unsigned char>(text[0]);
  if (byte < 0x20 || byte == 0x7F) return 1;
  const bool isSecondSet = byte == 0xC2 && text.size() > 1 && static_cast<unsigned char>(text[1]) < 0xA0;
  return isSecondSet ? 2 : 0;
}

void appendEscaped(std::string& line, std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  for (const unsigned char byte : bytes) line.append({'\\', 'x', digits[byte >> 4U], digits[byte & 15U]});
}

}  // namespace

std::string harmless(std::string_view text, std::string_view kept) {
  const bool isText = isValidUTF8(text);
  std::string line;
  while (!text.empty()) {
    const bool isForeign = !isText && static_cast<unsigned char>(text[0]) >= 0x80;
    const bool isKept = kept.find(text[0]) != std::string_view::npos;
    const std::size_t control = isForeign ? 1 : isKept ? 0 : lengthOfControl(text);
    if (control > 0)
      appendEscaped(line, text.substr(0, control));
    else
      line += text[0];
    text.remove_prefix(control > 0 ? control : 1);
  }
  return line;
}

bool isHarmful(std::string_view text, std::string_view kept) {
  for (std::size_t place = 0; place < text.size(); ++place)
    if (lengthOfControl(text.substr(place)) > 0 && kept.find(text[place]) == std::string_view::npos) return true;
  return !isValidUTF8(text);
}

}  // namespace foundation
