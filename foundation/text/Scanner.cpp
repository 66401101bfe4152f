#include "foundation/text/Scanner.h"

#include <algorithm>
#include <limits>

namespace foundation {

std::optional<std::int64_t> scanInteger(std::string_view& text) {
  using Limits = std::numeric_limits<std::int64_t>;
  const bool negative = text.starts_with('-');
  std::string_view rest = text.substr(negative || text.starts_with('+') ? 1 : 0);
  const std::size_t length = std::min(rest.find_first_not_of("0123456789"), rest.size());
  if (length == 0) return std::nullopt;
  std::int64_t value = 0;
  for (const char c : rest.substr(0, length)) {
    const int digit = negative ? '0' - c : c - '0';
    if (__builtin_mul_overflow(value, 10, &value) || __builtin_add_overflow(value, digit, &value)) {
      value = negative ? Limits::min() : Limits::max();
      break;
    }
  }
  text = rest.substr(length);
  return value;
}

}  // namespace foundation
