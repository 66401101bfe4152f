#include "foundation/text/UTF16.h"

#include "foundation/text/UTF8.h"

namespace foundation {
namespace {

constexpr bool isLeading(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
constexpr bool isTrailing(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

}  // namespace

std::optional<std::string> utf8FromUTF16(std::string_view bytes, ByteOrder order) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  const auto unitAt = [&](std::size_t place) {
    const char32_t first = static_cast<unsigned char>(bytes[place]);
    const char32_t second = static_cast<unsigned char>(bytes[place + 1]);
    return order == ByteOrder::big ? first << 8 | second : second << 8 | first;
  };
  std::string text;
  text.reserve(bytes.size());
  for (std::size_t place = 0; place < bytes.size(); place += 2) {
    char32_t character = unitAt(place);
    if (isTrailing(character)) return std::nullopt;
    if (isLeading(character)) {
      place += 2;
      if (place >= bytes.size() || !isTrailing(unitAt(place))) return std::nullopt;
      character = 0x10000 + ((character - 0xD800) << 10) + (unitAt(place) - 0xDC00);
    }
    appendUTF8(text, character);
  }
  return text;
}

std::optional<std::string> decodedText(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xFE")) return utf8FromUTF16(bytes.substr(2), ByteOrder::little);
  if (bytes.starts_with("\xFE\xFF")) return utf8FromUTF16(bytes.substr(2), ByteOrder::big);
  if (bytes.starts_with("\xEF\xBB\xBF")) bytes.remove_prefix(3);
  if (!isValidUTF8(bytes)) return std::nullopt;
  return std::string(bytes);
}

}  // namespace foundation
