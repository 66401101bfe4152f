#pragma once
// The query of a URL as keys and values, and back. Pure; any thread. Text is UTF-8.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NSURL::Kelto {

// A dictionary of texts that keeps the order in which the keys first came; a new value leaves its key in place. Looking up
// and changing take time in proportion to the number of keys.
class QueryItems {
 public:
  using Item = std::pair<std::string, std::string>;

  QueryItems() = default;
  // The last value of a key wins.
  QueryItems(std::initializer_list<Item> items);

  [[nodiscard]] std::optional<std::string> valueForKey(std::string_view key) const;
  void setValue(std::string_view key, std::string value);
  void removeValue(std::string_view key);

  [[nodiscard]] std::size_t size() const { return _items.size(); }
  [[nodiscard]] bool empty() const { return _items.empty(); }
  [[nodiscard]] auto begin() const { return _items.begin(); }
  [[nodiscard]] auto end() const { return _items.end(); }

 private:
  friend QueryItems queryItems(std::string_view url);
  std::vector<Item> _items;
};

// The items of the URL's query, the part between the first question mark and the fragment; empty without a query.
//
// "&" and "?" separate the items. An item is ignored unless it is exactly one key, one "=" and one value, and its key is
// not blank before percent-escapes are resolved. "+" stands for a space. The last value of a key wins, at the place where
// the key first came. A value whose percent-escapes are malformed or do not give UTF-8 removes its key; an item with such a
// key is ignored.
QueryItems queryItems(std::string_view url);

// "key=value&key=value" in the order of `items`, without a question mark. The 21 characters : / ? # [ ] @ ! $ & ' ( ) * + ,
// ; = " % and space are escaped, and no others.
std::string queryStringWithDictionary(const QueryItems& items);

}  // namespace NSURL::Kelto
