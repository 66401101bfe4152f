// Any format may be filled with any arguments. The first byte tells how many there are and of which kinds.
#include <string>
#include <vector>

#include "foundation/text/Format.h"
#include "foundation/text/UTF8.h"
#include "fuzz/Target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const foundation::FormatArgument kinds[] = {"t\u00e9\u20acxt",
                                              233,
                                              std::uint64_t{18446744073709551615U},
                                              -1.5e300,
                                              static_cast<const void*>(nullptr),
                                              static_cast<const char*>(nullptr)};
  std::vector<foundation::FormatArgument> arguments;
  for (unsigned i = 0; i < data[0] % 8U; ++i) arguments.push_back(kinds[(data[0] / 8U + i) % std::size(kinds)]);
  const auto format = fuzz::text(data + 1, size - 1);
  const std::string filled = foundation::format(format, arguments);
  if (format.find('%') == std::string_view::npos) fuzz::require(filled == format, "a text without a percent sign stays");
  if (foundation::isValidUTF8(format)) fuzz::require(foundation::isValidUTF8(filled), "no character is cut in two");

  // The added conversion shows nothing, but has a precision: so the formatter takes the long way for all of them.
  arguments.emplace_back("text");
  std::string longWay = "%" + std::to_string(arguments.size()) + "$.0s";
  longWay += format;
  fuzz::require(foundation::format(longWay, arguments) == foundation::format(format, arguments),
                "bare conversions show the same as among others");
  return 0;
}
