#include "platform/linux/defaults/Description.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace platform::Linux {
namespace {

bool isPlain(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::string_view("_$/:.").find(c) != std::string_view::npos;
}

std::string quoted(std::string_view text) {
  if (!text.empty() && std::ranges::all_of(text, isPlain)) return std::string(text);
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    if (c == '\n')
      result += "\\n";
    else
      result += c;
  }
  return result + '"';
}

std::string describedDate(foundation::Date date) {
  const std::string text = foundation::PropertyList::dateText(date);
  return text.substr(0, 10) + " " + text.substr(11, 8) + " +0000";
}

class Describer {
 public:
  std::string text;

  void describe(const foundation::PropertyList::Value& value, std::size_t depth) {
    std::visit([&](const auto& held) { add(held, depth); }, value.storage());
  }

 private:
  void line(std::size_t depth) { text.append("\n").append(4 * depth, ' '); }

  void add(const std::string& held, std::size_t /*depth*/) { text += quoted(held); }
  void add(bool held, std::size_t /*depth*/) { text += held ? '1' : '0'; }
  void add(std::int64_t held, std::size_t /*depth*/) { text += std::to_string(held); }
  void add(foundation::Date held, std::size_t /*depth*/) { text += quoted(describedDate(held)); }

  void add(double held, std::size_t /*depth*/) {
    char digits[32];
    text.append(digits, std::to_chars(std::begin(digits), std::end(digits), held).ptr);
  }

  void add(const foundation::PropertyList::Data& held, std::size_t /*depth*/) {
    constexpr char digits[] = "0123456789abcdef";
    text += '<';
    for (const auto byte : held) {
      text += digits[std::to_integer<unsigned>(byte) >> 4];
      text += digits[std::to_integer<unsigned>(byte) & 0xF];
    }
    text += '>';
  }

  void add(const foundation::PropertyList::Array& held, std::size_t depth) {
    text += '(';
    for (std::size_t i = 0; i < held.size(); ++i) {
      if (i > 0) text += ',';
      line(depth + 1);
      describe(held[i], depth + 1);
    }
    line(depth);
    text += ')';
  }

  void add(const foundation::PropertyList::Dictionary& held, std::size_t depth) {
    text += '{';
    for (const auto& [key, value] : held) {
      line(depth + 1);
      text.append(quoted(key)).append(" = ");
      describe(value, depth + 1);
      text += ';';
    }
    line(depth);
    text += '}';
  }
};

}  // namespace

std::string description(const foundation::PropertyList::Value& value) {
  if (const auto* plain = value.as<std::string>()) return *plain;
  Describer describer;
  describer.describe(value, 0);
  return describer.text;
}

}  // namespace platform::Linux
