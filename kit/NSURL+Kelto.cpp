#include "kit/NSURL+Kelto.h"

#include <algorithm>
#include <functional>
#include <optional>
#include <unordered_map>

#include "foundation/text/PercentEncoding.h"
#include "foundation/text/UTF8.h"
#include "kit/NSString+Kelto.h"

namespace NSURL::Kelto {
namespace {

constexpr std::string_view escapedCharacters = ":/?#[]@!$&'()*+,;=\"% ";

// The query with its percent-escapes in place.
std::string_view queryOf(std::string_view url) {
  url = url.substr(0, url.find('#'));
  const auto mark = url.find('?');
  return mark == std::string_view::npos ? std::string_view{} : url.substr(mark + 1);
}

bool isBlank(std::string_view key) {
  const auto other = std::ranges::find_if_not(key, [](char c) { return c == ' ' || c == '\t' || c == '+'; });
  if (other == key.end()) return true;
  if (static_cast<unsigned char>(*other) < 0x80) return false;
  std::string text(key);
  std::ranges::replace(text, '+', ' ');
  return NSString::Kelto::stringByTrimmingLeadingAndTrailingWhitespace(platform::Unicode::utf16(text)).empty();
}

// "+" as a space and percent-escapes resolved; nullopt if an escape is malformed or the bytes are not UTF-8.
std::optional<std::string> decoded(std::string_view text) {
  std::string result(text);
  std::ranges::replace(result, '+', ' ');
  if (!foundation::decodePercentEscapes(result) || !foundation::isValidUTF8(result)) return std::nullopt;
  return result;
}

// Collects items by key. A query may be hostile: beyond a few keys an index finds them instead of a linear search.
class Collector {
 public:
  explicit Collector(std::string_view query) {
    _slots.reserve(std::min<std::size_t>(fewKeys, static_cast<std::size_t>(std::ranges::count(query, '='))));
  }

  void add(std::string_view component) {
    const auto equals = component.find('=');
    if (equals == std::string_view::npos || component.find('=', equals + 1) != std::string_view::npos) return;
    const std::string_view rawKey = component.substr(0, equals);
    if (isBlank(rawKey)) return;
    if (auto key = decoded(rawKey)) slotFor(std::move(*key)).value = decoded(component.substr(equals + 1));
  }

  [[nodiscard]] std::vector<QueryItems::Item> items() && {
    std::vector<QueryItems::Item> items;
    items.reserve(_slots.size());
    for (auto& slot : _slots)
      if (slot.value) items.emplace_back(std::move(slot.key), std::move(*slot.value));
    return items;
  }

 private:
  struct Slot {
    std::size_t hash;
    std::string key;
    std::optional<std::string> value;
  };
  static constexpr std::size_t fewKeys = 32;

  Slot& slotFor(std::string key) {
    const std::size_t hash = std::hash<std::string>()(key);
    const std::size_t place = placeOf(hash, key);
    if (place < _slots.size()) return _slots[place];
    _slots.push_back({hash, std::move(key), std::nullopt});
    while (_slots.size() > fewKeys && _index.size() < _slots.size())
      _index.emplace(_slots[_index.size()].key, _index.size());
    return _slots.back();
  }

  // The index of the key's slot, or the number of slots.
  [[nodiscard]] std::size_t placeOf(std::size_t hash, const std::string& key) const {
    if (!_index.empty()) {
      const auto found = _index.find(key);
      return found == _index.end() ? _slots.size() : found->second;
    }
    const auto isSame = [&](const Slot& slot) { return slot.hash == hash && slot.key == key; };
    return static_cast<std::size_t>(std::ranges::find_if(_slots, isSame) - _slots.begin());
  }

  std::vector<Slot> _slots;
  std::unordered_map<std::string, std::size_t> _index;
};

void appendEscaped(std::string& text, std::string_view part) {
  for (const char c : part) {
    if (escapedCharacters.find(c) == std::string_view::npos)
      text += c;
    else
      foundation::appendPercentEscape(text, c);
  }
}

}  // namespace

QueryItems::QueryItems(std::initializer_list<Item> items) {
  for (const auto& [key, value] : items) setValue(key, value);
}

std::optional<std::string> QueryItems::valueForKey(std::string_view key) const {
  const auto place = std::ranges::find(_items, key, &Item::first);
  return place == _items.end() ? std::nullopt : std::optional(place->second);
}

void QueryItems::setValue(std::string_view key, std::string value) {
  const auto place = std::ranges::find(_items, key, &Item::first);
  if (place == _items.end())
    _items.emplace_back(key, std::move(value));
  else
    place->second = std::move(value);
}

void QueryItems::removeValue(std::string_view key) {
  std::erase_if(_items, [key](const Item& item) { return item.first == key; });
}

QueryItems queryItems(std::string_view url) {
  std::string_view rest = queryOf(url);
  Collector collector(rest);
  while (!rest.empty()) {
    const auto end = std::ranges::find_if(rest, [](char c) { return c == '&' || c == '?'; });
    collector.add({rest.begin(), end});
    rest = {end == rest.end() ? end : end + 1, rest.end()};
  }
  QueryItems result;
  result._items = std::move(collector).items();
  return result;
}

std::string queryStringWithDictionary(const QueryItems& items) {
  std::string query;
  for (const auto& [key, value] : items) {
    if (!query.empty()) query += '&';
    appendEscaped(query, key);
    query += '=';
    appendEscaped(query, value);
  }
  return query;
}

}  // namespace NSURL::Kelto
