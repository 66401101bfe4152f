#include "foundation/plist/PropertyList.h"

#include <limits>

#include "foundation/plist/PropertyListForms.h"
#include "foundation/text/UTF16.h"

namespace foundation::PropertyList {
namespace {

std::optional<Value> parseAny(std::string_view bytes, std::string& reason) {
  if (bytes.size() > maximumBytes) {
    reason = "the document is larger than " + std::to_string(maximumBytes) + " bytes";
    return std::nullopt;
  }
  if (bytes.starts_with("bplist")) return parseBinary(bytes, reason);
  const auto text = decodedText(bytes);
  if (text) return parseXML(*text, reason);
  reason = "the document is neither a binary property list nor well-formed UTF-8 or UTF-16 text";
  return std::nullopt;
}

}  // namespace

bool Value::operator==(const Value& other) const { return _storage == other._storage; }

std::optional<Value> parse(std::string_view bytes, std::string* reason) {
  std::string why;
  auto value = parseAny(bytes, why);
  if (!value && reason != nullptr) *reason = std::move(why);
  return value;
}

Date dateFromSeconds(std::int64_t seconds, std::chrono::nanoseconds fraction) {
  constexpr std::int64_t end = std::numeric_limits<std::int64_t>::max() / 1'000'000'000 - 1;
  if (seconds > end) return Date::max();
  if (seconds < -end) return Date::min();
  return Date(std::chrono::seconds(seconds)) + fraction;
}

}  // namespace foundation::PropertyList
