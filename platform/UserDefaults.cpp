#include "platform/UserDefaults.h"

#include <cmath>
#include <limits>

#include "foundation/text/Format.h"
#include "foundation/text/Scanner.h"

namespace platform {
namespace {

std::string_view withoutLeading(std::string_view text, std::string_view unwanted) {
  const auto start = text.find_first_not_of(unwanted);
  return start == std::string_view::npos ? std::string_view{} : text.substr(start);
}

bool boolFromText(std::string_view text) {
  text = withoutLeading(text, " \t\n\r\v\f");
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  text = withoutLeading(text, "0");
  return !text.empty() && std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

std::int64_t integerFromText(std::string_view text) {
  text = withoutLeading(text, " \t\n\r\v\f");
  return foundation::scanInteger(text).value_or(0);
}

std::int64_t integerFromDouble(double number) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (std::isnan(number)) return 0;
  if (number >= limit) return std::numeric_limits<std::int64_t>::max();
  if (number < -limit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number);
}

}  // namespace

std::optional<std::string> UserDefaults::stringForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  if (!value) return std::nullopt;
  if (const auto* text = value->as<std::string>()) return *text;
  if (const auto* flag = value->as<bool>()) return *flag ? "1" : "0";
  if (const auto* number = value->as<std::int64_t>()) return std::to_string(*number);
  if (const auto* number = value->as<double>()) return foundation::formatted("%g", *number);
  return std::nullopt;
}

bool UserDefaults::boolForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  if (!value) return false;
  if (const auto* text = value->as<std::string>()) return boolFromText(*text);
  if (const auto* flag = value->as<bool>()) return *flag;
  if (const auto* number = value->as<std::int64_t>()) return *number != 0;
  if (const auto* number = value->as<double>()) return *number != 0;
  return false;
}

std::int64_t UserDefaults::integerForKey(std::string_view key) const {
  const auto value = objectForKey(key);
  if (!value) return 0;
  if (const auto* text = value->as<std::string>()) return integerFromText(*text);
  if (const auto* flag = value->as<bool>()) return *flag ? 1 : 0;
  if (const auto* number = value->as<std::int64_t>()) return *number;
  if (const auto* number = value->as<double>()) return integerFromDouble(*number);
  return 0;
}

}  // namespace platform
