// Any bytes are a string table or are refused with a reason.
#include <string>

#include "foundation/plist/StringsFile.h"
#include "foundation/text/UTF8.h"
#include "fuzz/Target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string reason;
  const auto table = foundation::parseStrings(fuzz::text(data, size), &reason);
  fuzz::require(table.has_value() == reason.empty(), "a refusal has a reason, and nothing else has");
  if (!table) return 0;
  for (const auto& [key, value] : *table)
    fuzz::require(foundation::isValidUTF8(key) && foundation::isValidUTF8(value), "texts are well-formed");
  return 0;
}
