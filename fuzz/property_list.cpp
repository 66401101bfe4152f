// Any bytes are a property list or are refused with a reason; what is read is written in a form that reads the same.
#include <string>

#include "foundation/plist/PropertyList.h"
#include "fuzz/Target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string reason;
  const auto value = foundation::PropertyList::parse(fuzz::text(data, size), &reason);
  fuzz::require(value.has_value() == reason.empty(), "a refusal has a reason, and nothing else has");
  if (!value) return 0;
  // A string of the binary form may hold what no XML can.
  const std::string written = foundation::PropertyList::serializeXML(*value);
  const auto again = foundation::PropertyList::parse(written);
  if (again) fuzz::require(foundation::PropertyList::serializeXML(*again) == written, "what is written reads the same");
  return 0;
}
