#include "foundation/plist/StringsFile.h"

#include <algorithm>

#include "foundation/plist/PropertyList.h"
#include "foundation/text/PercentEncoding.h"
#include "foundation/text/UTF16.h"
#include "foundation/text/UTF8.h"

namespace foundation {
namespace {

bool isWordCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("_$/:.-").find(c) != std::string_view::npos;
}

class StringsReader {
 public:
  explicit StringsReader(std::string_view text) : _text(text), _rest(text) {}

  std::optional<StringTable> table() {
    StringTable table;
    while (skipBetween() && !_rest.empty())
      if (!entry(table)) return std::nullopt;
    return _reason.empty() ? std::optional(std::move(table)) : std::nullopt;
  }

  [[nodiscard]] const std::string& reason() const { return _reason; }

 private:
  std::nullopt_t refuse(std::string_view why) {
    if (!_reason.empty()) return std::nullopt;
    const auto read = _text.substr(0, _text.size() - _rest.size());
    _reason = "line " + std::to_string(std::ranges::count(read, '\n') + 1) + ": " + std::string(why);
    return std::nullopt;
  }

  bool consume(std::string_view expected) {
    if (!_rest.starts_with(expected)) return false;
    _rest.remove_prefix(expected.size());
    return true;
  }

  // Skips blanks and comments; false when a comment has no end.
  bool skipBetween() {
    for (;;) {
      _rest.remove_prefix(std::min(_rest.find_first_not_of(" \t\r\n\f\v"), _rest.size()));
      if (_rest.starts_with("//")) {
        _rest.remove_prefix(std::min(_rest.find('\n'), _rest.size()));
      } else if (_rest.starts_with("/*")) {
        const auto end = _rest.find("*/", 2);
        if (end == std::string_view::npos) return refuse("a comment has no end"), false;
        _rest.remove_prefix(end + 2);
      } else {
        return true;
      }
    }
  }

  bool entry(StringTable& table) {
    auto key = word("a key should stand here");
    if (!key || !skipBetween()) return false;
    std::string value = *key;
    if (consume("=")) {
      if (!skipBetween()) return false;
      auto given = word("a value should stand here");
      if (!given || !skipBetween()) return false;
      value = std::move(*given);
    }
    if (!consume(";")) return refuse("a semicolon is missing"), false;
    table.insert_or_assign(std::move(*key), std::move(value));
    return true;
  }

  std::optional<std::string> word(std::string_view otherwise) {
    if (consume("\"")) return quoted('"');
    if (consume("'")) return quoted('\'');
    const auto end = std::ranges::find_if_not(_rest, isWordCharacter);
    std::string word(_rest.begin(), end);
    if (word.empty()) return refuse(otherwise);
    _rest.remove_prefix(word.size());
    return word;
  }

  std::optional<std::string> quoted(char quote) {
    const auto start = _rest;
    const char ends[] = {quote, '\\'};
    std::string text;
    for (;;) {
      const auto plain = _rest.substr(0, _rest.find_first_of(std::string_view(ends, 2)));
      text += plain;
      _rest.remove_prefix(plain.size());
      if (_rest.size() < 2 && !_rest.starts_with(quote)) {
        _rest = start;
        return refuse("a quotation has no end");
      }
      const bool isEnd = _rest.front() == quote;
      _rest.remove_prefix(1);
      if (isEnd) return text;
      if (!appendEscaped(text)) return std::nullopt;
    }
  }

  // The character behind a backslash; one that means nothing special stands for itself.
  bool appendEscaped(std::string& text) {
    constexpr std::string_view letters = "ntrabfv";
    constexpr std::string_view meanings = "\n\t\r\a\b\f\v";
    const char c = _rest.front();
    _rest.remove_prefix(1);
    if (c == 'U' || c == 'u') return appendNumbered(text);
    const auto place = letters.find(c);
    text += place == std::string_view::npos ? c : meanings[place];
    return true;
  }

  // Up to four hexadecimal digits, a UTF-16 unit; a pair of surrogates is written as two escapes.
  bool appendNumbered(std::string& text) {
    auto character = unit();
    if (character && *character >= 0xD800 && *character <= 0xDBFF) {
      const auto trailing = consume("\\U") || consume("\\u") ? unit() : std::nullopt;
      const bool isPair = trailing && *trailing >= 0xDC00 && *trailing <= 0xDFFF;
      if (isPair) character = 0x10000 + ((*character - 0xD800) << 10) + (*trailing - 0xDC00);
    }
    if (!character || (*character >= 0xD800 && *character <= 0xDFFF)) return refuse("an escape names no character"), false;
    appendUTF8(text, *character);
    return true;
  }

  std::optional<char32_t> unit() {
    char32_t unit = 0;
    std::size_t digits = 0;
    for (; digits < 4 && digits < _rest.size(); ++digits) {
      const int digit = hexDigitValue(_rest[digits]);
      if (digit < 0) break;
      unit = unit << 4 | static_cast<char32_t>(digit);
    }
    _rest.remove_prefix(digits);
    return digits == 0 ? std::nullopt : std::optional(unit);
  }

  std::string_view _text;
  std::string_view _rest;
  std::string _reason;
};

bool looksLikePropertyList(std::string_view bytes, std::string_view text) {
  if (bytes.starts_with("bplist")) return true;
  text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
  return text.starts_with("<?xml") || text.starts_with("<!DOCTYPE") || text.starts_with("<plist");
}

std::optional<StringTable> fromPropertyList(std::string_view bytes, std::string& reason) {
  const auto value = PropertyList::parse(bytes, &reason);
  if (!value) return std::nullopt;
  const auto* dictionary = value->as<PropertyList::Dictionary>();
  if (dictionary == nullptr) reason = "the property list is not a dictionary";
  if (dictionary == nullptr) return std::nullopt;
  StringTable table;
  for (const auto& [key, element] : *dictionary) {
    const auto* text = element.as<std::string>();
    if (text == nullptr) reason = "the value of \"" + key + "\" is not a string";
    if (text == nullptr) return std::nullopt;
    table.emplace(key, *text);
  }
  return table;
}

std::optional<StringTable> parseAny(std::string_view bytes, std::string& reason) {
  if (bytes.size() > PropertyList::maximumBytes) {
    reason = "the table is larger than " + std::to_string(PropertyList::maximumBytes) + " bytes";
    return std::nullopt;
  }
  const auto text = bytes.starts_with("bplist") ? std::string() : decodedText(bytes);
  if (text && looksLikePropertyList(bytes, *text)) return fromPropertyList(bytes, reason);
  if (!text) reason = "the table is not well-formed UTF-8 or UTF-16 text";
  if (!text) return std::nullopt;
  StringsReader reader(*text);
  auto table = reader.table();
  reason = reader.reason();
  return table;
}

}  // namespace

std::optional<StringTable> parseStrings(std::string_view bytes, std::string* reason) {
  std::string why;
  auto table = parseAny(bytes, why);
  if (!table && reason != nullptr) *reason = std::move(why);
  return table;
}

}  // namespace foundation
