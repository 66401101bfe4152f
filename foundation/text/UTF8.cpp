#include "foundation/text/UTF8.h"

#include <algorithm>
#include <cstring>

namespace foundation {
namespace {

// The length of the well-formed sequence at the start of `bytes`, 0 if it begins with a malformed one.
std::size_t sequenceLength(std::string_view bytes) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char lead = byte(0);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (bytes.size() < length) return 0;
  // The second byte's range depends on the first, so that overlong forms, surrogates and what is above U+10FFFF have none.
  const unsigned char low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned char high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < low || byte(1) > high) return 0;
  for (std::size_t i = 2; i < length; ++i)
    if (byte(i) < 0x80 || byte(i) > 0xBF) return 0;
  return length;
}

constexpr bool isASCII(char byte) { return static_cast<unsigned char>(byte) < 0x80; }
constexpr bool beginsCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) != 0x80; }

// How many bytes at the start are ASCII. Most text is nothing else, so whole words are looked at first.
std::size_t leadingASCII(std::string_view bytes) {
  constexpr std::uint64_t topBits = 0x8080808080808080;
  std::size_t count = 0;
  for (std::uint64_t word = 0; bytes.size() - count >= sizeof word; count += sizeof word) {
    std::memcpy(&word, bytes.data() + count, sizeof word);
    if ((word & topBits) != 0) break;
  }
  while (count < bytes.size() && isASCII(bytes[count])) ++count;
  return count;
}

}  // namespace

bool isValidUTF8(std::string_view bytes) {
  for (;;) {
    bytes.remove_prefix(leadingASCII(bytes));
    if (bytes.empty()) return true;
    const std::size_t length = sequenceLength(bytes);
    if (length == 0) return false;
    bytes.remove_prefix(length);
  }
}

std::string textFromASCII(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) {
    if (isASCII(c))
      text += c;
    else
      text += "\xEF\xBF\xBD";
  }
  return text;
}

std::size_t characterCount(std::string_view text) {
  return static_cast<std::size_t>(std::ranges::count_if(text, beginsCharacter));
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  const auto isBeyond = [&count](char byte) { return beginsCharacter(byte) && count-- == 0; };
  return {text.begin(), std::ranges::find_if(text, isBeyond)};
}

void appendUTF8(std::string& text, char32_t character) {
  const auto append = [&](char32_t byte) { text += static_cast<char>(byte); };
  const auto appendRest = [&](int shift) { append(0x80 | (character >> shift & 0x3F)); };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xC0 | character >> 6);
    appendRest(0);
  } else if (character < 0x10000) {
    append(0xE0 | character >> 12);
    appendRest(6);
    appendRest(0);
  } else {
    append(0xF0 | character >> 18);
    appendRest(12);
    appendRest(6);
    appendRest(0);
  }
}

}  // namespace foundation
