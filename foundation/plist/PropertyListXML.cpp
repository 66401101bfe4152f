// Reads the XML form. Only what a property list needs of XML is understood; a document type that declares anything of its
// own is refused, so that there are no entities to expand.
#include <algorithm>
#include <charconv>

#include "foundation/plist/PropertyListForms.h"
#include "foundation/text/UTF16.h"
#include "foundation/text/UTF8.h"

namespace foundation::PropertyList {
namespace {

constexpr std::string_view blanks = " \t\n\r";

bool isBlank(char c) { return blanks.find(c) != std::string_view::npos; }

std::string_view trimmed(std::string_view text) {
  const auto start = text.find_first_not_of(blanks);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(blanks) - start + 1);
}

std::optional<std::int64_t> integerFrom(std::string_view text) {
  bool isNegative = false;
  if (text.starts_with('+') || text.starts_with('-')) {
    isNegative = text.front() == '-';
    text.remove_prefix(1);
  }
  int base = 10;
  if (text.starts_with("0x") || text.starts_with("0X")) {
    base = 16;
    text.remove_prefix(2);
  }
  std::uint64_t magnitude = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  constexpr std::uint64_t limit = std::uint64_t{1} << 63;
  if (magnitude > limit || (magnitude == limit && !isNegative)) return std::nullopt;
  return static_cast<std::int64_t>(isNegative ? 0 - magnitude : magnitude);
}

std::optional<double> realFrom(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  double number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// "2024-02-29T12:34:56Z"
std::optional<Date> dateFrom(std::string_view text) {
  constexpr std::string_view shape = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != shape.size()) return std::nullopt;
  for (std::size_t i = 0; i < shape.size(); ++i)
    if (shape[i] == 'd' ? text[i] < '0' || text[i] > '9' : text[i] != shape[i]) return std::nullopt;
  const auto number = [&](std::size_t place, std::size_t digits) {
    int value = 0;
    for (const char digit : text.substr(place, digits)) value = value * 10 + (digit - '0');
    return value;
  };
  const auto day = std::chrono::year(number(0, 4)) / number(5, 2) / number(8, 2);
  if (!day.ok() || number(11, 2) > 23 || number(14, 2) > 59 || number(17, 2) > 59) return std::nullopt;
  const std::chrono::sys_seconds moment = std::chrono::sys_days(day) + std::chrono::hours(number(11, 2)) +
                                          std::chrono::minutes(number(14, 2)) + std::chrono::seconds(number(17, 2));
  return dateFromSeconds(moment.time_since_epoch().count());
}

std::optional<unsigned> base64Digit(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return std::nullopt;
}

std::optional<Data> dataFrom(std::string_view text) {
  Data data;
  data.reserve(text.size() / 4 * 3);
  unsigned bits = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (isBlank(c)) continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const auto digit = base64Digit(c);
    if (!digit || padding > 0) return std::nullopt;
    bits = bits << 6 | *digit;
    if (++digits % 4 != 1) data.push_back(static_cast<std::byte>(bits >> (6 - 2 * ((digits - 1) % 4)) & 0xFF));
  }
  const std::size_t missing = (4 - digits % 4) % 4;
  if (missing == 3 || padding != missing) return std::nullopt;
  return data;
}

bool isXMLCharacter(std::uint32_t c) {
  if (c < 0x20) return c == '\t' || c == '\n' || c == '\r';
  return c <= 0xD7FF || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

// XML reads every line end as a line feed.
std::string withLineFeeds(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r')
      result += text[i];
    else if (i + 1 == text.size() || text[i + 1] != '\n')
      result += '\n';
  }
  return result;
}

struct Tag {
  std::string_view name;
  bool isEnd = false;
  bool isEmpty = false;  // <name/>
};

class XMLReader {
 public:
  XMLReader(std::string_view text, std::string& reason) : _text(text), _rest(text), _reason(reason) {}

  std::optional<Value> document() {
    for (const char c : _text)
      if (!isXMLCharacter(static_cast<unsigned char>(c))) return refuse("the text holds a control character");
    auto tag = nextTag();
    if (!tag) return std::nullopt;
    const bool isWrapped = tag->name == "plist" && !tag->isEnd && !tag->isEmpty;
    if (isWrapped) tag = nextTag();
    if (!tag) return std::nullopt;
    auto root = value(*tag, 0);
    if (!root || (isWrapped && !expectEnd("plist")) || !skipBetween()) return std::nullopt;
    if (!_rest.empty()) return refuse("something follows the value");
    return root;
  }

 private:
  std::nullopt_t refuse(std::string_view why) {
    if (!_reason.empty()) return std::nullopt;
    const auto read = _text.substr(0, _text.size() - _rest.size());
    _reason = "line " + std::to_string(std::ranges::count(read, '\n') + 1) + ": " + std::string(why);
    return std::nullopt;
  }

  // Skips to behind `end`; false when it does not come.
  bool skipPast(std::string_view end) {
    const auto place = _rest.find(end);
    if (place == std::string_view::npos) {
      refuse("'" + std::string(end) + "' is missing");
      return false;
    }
    _rest.remove_prefix(place + end.size());
    return true;
  }

  bool consume(std::string_view expected) {
    if (!_rest.starts_with(expected)) return false;
    _rest.remove_prefix(expected.size());
    return true;
  }

  bool skipDocumentType() {
    while (!_rest.empty() && _rest.front() != '>') {
      const char c = _rest.front();
      if (c == '[') {
        refuse("a document type with declarations of its own is not read");
        return false;
      }
      _rest.remove_prefix(1);
      if ((c == '"' || c == '\'') && !skipPast(std::string_view(&c, 1))) return false;
    }
    return skipPast(">");
  }

  // Skips the text that may stand between elements: blanks, comments, processing instructions and the document type.
  bool skipBetween() {
    for (;;) {
      _rest.remove_prefix(std::min(_rest.find_first_not_of(blanks), _rest.size()));
      if (consume("<!--")) {
        if (!skipPast("-->")) return false;
      } else if (consume("<?")) {
        if (!skipPast("?>")) return false;
      } else if (!_hasRoot && consume("<!DOCTYPE")) {
        if (!skipDocumentType()) return false;
      } else {
        return true;
      }
    }
  }

  std::optional<Tag> nextTag() {
    if (!skipBetween()) return std::nullopt;
    if (_rest.empty()) return refuse("the document ends early");
    if (!consume("<")) return refuse("text stands where an element should begin");
    return tag();
  }

  // The tag behind its "<". Attributes are skipped.
  std::optional<Tag> tag() {
    _hasRoot = true;
    Tag tag;
    tag.isEnd = consume("/");
    const auto length = std::min(_rest.find_first_of(" \t\n\r/><\"'&="), _rest.size());
    tag.name = _rest.substr(0, length);
    _rest.remove_prefix(length);
    if (tag.name.empty()) return refuse("a tag has no name");
    while (!_rest.empty() && _rest.front() != '>') {
      const char c = _rest.front();
      if (c == '<') return refuse("a tag is not closed");
      _rest.remove_prefix(1);
      if ((c == '"' || c == '\'') && !skipPast(std::string_view(&c, 1))) return std::nullopt;
      tag.isEmpty = c == '/';
    }
    if (!skipPast(">")) return std::nullopt;
    if (tag.isEnd && tag.isEmpty) return refuse("a tag both begins and ends with a slash");
    return tag;
  }

  bool expectEnd(std::string_view name) {
    const auto end = nextTag();
    if (end && end->isEnd && end->name == name) return true;
    refuse("</" + std::string(name) + "> is missing");
    return false;
  }

  std::optional<Value> value(const Tag& tag, std::size_t depth) {
    if (tag.isEnd) return refuse("</" + std::string(tag.name) + "> stands where a value should begin");
    if (++_values > maximumValues) return refuse("more than " + std::to_string(maximumValues) + " values");
    if (tag.name == "array" || tag.name == "dict") {
      if (depth >= maximumDepth) return refuse("containers lie more than " + std::to_string(maximumDepth) + " deep");
      return tag.name == "array" ? array(tag, depth) : dictionary(tag, depth);
    }
    auto text = characters(tag);
    if (!text) return std::nullopt;
    if (tag.name == "string") return Value(std::move(*text));
    return scalar(tag.name, trimmed(*text));
  }

  std::optional<Value> scalar(std::string_view name, std::string_view text) {
    if (name == "true" || name == "false")
      return text.empty() ? std::optional(Value(name == "true")) : refuse("a boolean has a text");
    if (name == "integer") return checked(integerFrom(text), "not a valid integer of 64 bits");
    if (name == "real") return checked(realFrom(text), "not a valid real number");
    if (name == "date") return checked(dateFrom(text), "not a valid date");
    if (name == "data") return checked(dataFrom(text), "the data is not in base 64");
    return refuse("<" + std::string(name) + "> is not a kind of value");
  }

  template <class T>
  std::optional<Value> checked(std::optional<T> parsed, std::string_view why) {
    if (!parsed) return refuse(why);
    return Value(std::move(*parsed));
  }

  std::optional<Value> array(const Tag& start, std::size_t depth) {
    Array array;
    while (!start.isEmpty) {
      const auto tag = nextTag();
      if (!tag) return std::nullopt;
      if (tag->isEnd && tag->name == "array") break;
      auto element = value(*tag, depth + 1);
      if (!element) return std::nullopt;
      array.push_back(std::move(*element));
    }
    return Value(std::move(array));
  }

  std::optional<Value> dictionary(const Tag& start, std::size_t depth) {
    Dictionary dictionary;
    while (!start.isEmpty) {
      const auto tag = nextTag();
      if (!tag) return std::nullopt;
      if (tag->isEnd && tag->name == "dict") break;
      if (tag->isEnd || tag->name != "key") return refuse("a dictionary has a value without a key");
      auto key = characters(*tag);
      if (!key) return std::nullopt;
      const auto next = nextTag();
      if (!next) return std::nullopt;
      auto element = value(*next, depth + 1);
      if (!element) return std::nullopt;
      dictionary.insert_or_assign(dictionary.end(), std::move(*key), std::move(*element));
    }
    return Value(std::move(dictionary));
  }

  // The text of an element that holds no other element, up to and with its end tag.
  std::optional<std::string> characters(const Tag& start) {
    std::string text;
    if (start.isEmpty) return text;
    for (;;) {
      const auto plain = _rest.substr(0, _rest.find_first_of("<&"));
      text += plain;
      _rest.remove_prefix(plain.size());
      if (_rest.empty()) return refuse("</" + std::string(start.name) + "> is missing");
      if (consume("&")) {
        if (!appendReference(text)) return std::nullopt;
      } else if (consume("<![CDATA[")) {
        const auto begin = _rest;
        if (!skipPast("]]>")) return std::nullopt;
        text += begin.substr(0, begin.size() - _rest.size() - 3);
      } else if (consume("<!--")) {
        if (!skipPast("-->")) return std::nullopt;
      } else if (consume("<?")) {
        if (!skipPast("?>")) return std::nullopt;
      } else {
        if (!expectEnd(start.name)) return std::nullopt;
        return text;
      }
    }
  }

  // The character that stands behind an ampersand: one of the five that XML names, or a number.
  bool appendReference(std::string& text) {
    constexpr std::pair<std::string_view, char> names[] = {
        {"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"quot;", '"'}, {"apos;", '\''}};
    for (const auto& [name, character] : names) {
      if (!consume(name)) continue;
      text += character;
      return true;
    }
    const auto character = consume("#") ? numberedCharacter() : std::nullopt;
    if (!character) refuse("an entity is not one of the five that XML has by itself, nor the number of a character");
    if (character) appendUTF8(text, *character);
    return character.has_value();
  }

  std::optional<char32_t> numberedCharacter() {
    const int base = consume("x") ? 16 : 10;
    const auto digits = _rest.substr(0, std::min<std::size_t>(_rest.find(';'), 16));
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    if (error != std::errc{} || end != digits.data() + digits.size() || !isXMLCharacter(number)) return std::nullopt;
    _rest.remove_prefix(digits.size());
    return consume(";") ? std::optional<char32_t>(number) : std::nullopt;
  }

  std::string_view _text;
  std::string_view _rest;
  std::string& _reason;
  bool _hasRoot = false;
  std::size_t _values = 0;
};

}  // namespace

std::optional<Value> parseXML(std::string_view text, std::string& reason) {
  if (text.find('\r') == std::string_view::npos) return XMLReader(text, reason).document();
  const std::string normalized = withLineFeeds(text);
  return XMLReader(normalized, reason).document();
}

}  // namespace foundation::PropertyList
