// Any URL has items that are well-formed and different; what is built of them has the same items.
#include <set>

#include "foundation/text/UTF8.h"
#include "fuzz/Target.h"
#include "kit/NSURL+Kelto.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace NSURL::Kelto;
  const QueryItems items = queryItems(fuzz::text(data, size));
  std::set<std::string> keys;
  for (const auto& [key, value] : items) {
    fuzz::require(foundation::isValidUTF8(key) && foundation::isValidUTF8(value), "texts are well-formed");
    fuzz::require(keys.insert(key).second, "a key comes once");
  }
  const QueryItems again = queryItems("kelto://?" + queryStringWithDictionary(items));
  // A key of white space other than the blank is not escaped, and is passed over when it is read back.
  fuzz::require(again.size() <= items.size(), "nothing is added");
  for (const auto& [key, value] : again) fuzz::require(items.valueForKey(key) == value, "what is built reads the same");
  return 0;
}
