// Every accepted archive is a dictionary within its limits, which reads the same when it is written again.
#include <set>

#include "foundation/text/UTF8.h"
#include "fuzz/Target.h"
#include "protocol/InstructionArchive.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace InstructionArchive;
  std::string reason;
  const auto read = unarchived(fuzz::text(data, size), &reason);
  fuzz::require(read.has_value() == reason.empty(), "a refusal has a reason, and only a refusal");
  if (!read) return 0;

  std::size_t length = 0;
  std::set<std::string_view> keys;
  for (const auto& [key, value] : *read) {
    fuzz::require(keys.insert(key).second, "a key comes once");
    for (const std::string_view text : {std::string_view(key), std::string_view(value)}) {
      fuzz::require(text.find('\0') == std::string_view::npos, "no text holds a NUL character");
      fuzz::require(foundation::isValidUTF8(text), "texts are well-formed");
      length += text.size();
    }
  }
  fuzz::require(read->size() <= maximumPairs && length <= maximumBytes, "the limits hold");
  const auto written = archivedData(*read);
  if (written.size() <= maximumBytes) fuzz::require(unarchived(written) == read, "what is written reads the same");
  return 0;
}
