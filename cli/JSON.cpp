#include "cli/JSON.h"

#include <array>
#include <charconv>
#include <cmath>
#include <string_view>
#include <variant>

#include "foundation/text/UTF8.h"
#include "protocol/Utf8.h"

namespace cli {
namespace {

namespace PropertyList = foundation::PropertyList;

std::string escaped(char character) {
  constexpr std::string_view digits = "0123456789abcdef";
  const auto number = static_cast<unsigned char>(character);
  return std::string("\\u00") + digits[number >> 4U] + digits[number & 15U];
}

std::string quoted(const std::string& text) {
  if (!foundation::isValidUTF8(text)) return quoted(foundation::textFromASCII(text));
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') result += '\\';
    protocol::isControlCharacter(character) ? result += escaped(character) : result += character;
  }
  return result + "\"";
}

struct Writer {
  std::string operator()(const std::string& text) const { return quoted(text); }
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::int64_t number) const { return std::to_string(number); }
  std::string operator()(double number) const {
    if (!std::isfinite(number)) return "null";
    std::array<char, 32> text{};
    const auto [end, error] = std::to_chars(text.begin(), text.end(), number);
    return error == std::errc() ? std::string(text.begin(), end) : "null";
  }
  std::string operator()(foundation::Date date) const { return quoted(PropertyList::dateText(date)); }
  std::string operator()(const PropertyList::Data& /*data*/) const { return "null"; }
  std::string operator()(const PropertyList::Array& values) const {
    std::string text;
    for (const auto& value : values) text += (text.empty() ? "" : ", ") + jsonOf(value);
    return "[" + text + "]";
  }
  std::string operator()(const PropertyList::Dictionary& values) const {
    std::string text;
    for (const auto& [key, value] : values) text += (text.empty() ? "" : ", ") + quoted(key) + ": " + jsonOf(value);
    return "{" + text + "}";
  }
};

}  // namespace

std::string jsonOf(const PropertyList::Value& value) { return std::visit(Writer(), value.storage()); }

}  // namespace cli
