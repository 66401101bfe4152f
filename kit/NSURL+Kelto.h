#pragma once
// The query of a URL as keys and values, and back. Pure; any thread. Text is UTF-8.
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NSURL::Kelto {

// A dictionary of texts that keeps its order: keys stand in the order in which they first came, and a new value for a key
// leaves it in its place. Looking up and changing take time in proportion to the number of keys.
class QueryItems {
 public:
  using Item = std::pair<std::string, std::string>;

  QueryItems() = default;
  // Of several values for one key the last holds.
  QueryItems(std::initializer_list<Item> items);

  // nullptr when there is no such key. Valid until the next change.
  [[nodiscard]] const std::string* valueForKey(std::string_view key) const;
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

// The items of the URL's query, the part between the first question mark and the fragment; none when there is no query.
//
// "&" and "?" part the items; an item that is not exactly one key, one "=" and one value is passed over, and so is one
// whose key is blank before percent-escapes are resolved. "+" stands for a space. The last value of a key holds, and stands
// where the key first came. A value with an invalid percent-escape, or that is no UTF-8 then, removes its key; a key with
// one is passed over.
QueryItems queryItems(std::string_view url);

// "key=value&key=value" in the order of `items`, without a question mark. The 21 characters : / ? # [ ] @ ! $ & ' ( ) * + ,
// ; = " % and space are escaped, and no other.
std::string queryStringWithDictionary(const QueryItems& items);

}  // namespace NSURL::Kelto
