#include "protocol/Utf8.h"

#include <algorithm>
#include <cstddef>

namespace protocol {
namespace {

// The length of the well-formed sequence at the front of `text` (RFC 3629), or 0.
std::size_t leadingSequence(std::string_view text) {
  const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  const auto isTail = [&](std::size_t i) { return (at(i) & 0xC0U) == 0x80U; };
  const unsigned first = at(0);
  if (first < 0x80) return 1;
  if (first < 0xC2) return 0;
  if (first < 0xE0) return isTail(1) ? 2 : 0;
  if (first < 0xF0) {
    const bool overlong = first == 0xE0 && at(1) < 0xA0;
    const bool surrogate = first == 0xED && at(1) > 0x9F;
    return !overlong && !surrogate && isTail(1) && isTail(2) ? 3 : 0;
  }
  const bool overlong = first == 0xF0 && at(1) < 0x90;
  const bool tooLarge = first > 0xF4 || (first == 0xF4 && at(1) > 0x8F);
  return !overlong && !tooLarge && isTail(1) && isTail(2) && isTail(3) ? 4 : 0;
}

}  // namespace

bool isValidUTF8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = leadingSequence(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

bool isControlCharacter(char character) {
  constexpr char deleteCharacter = 0x7F;
  return static_cast<unsigned char>(character) < ' ' || character == deleteCharacter;
}

bool hasControlCharacter(std::string_view text) { return std::ranges::any_of(text, isControlCharacter); }

}  // namespace protocol
