#pragma once
// Dates as text in local time. Any thread; one formatter may serve several at once.
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/Api.h"
#include "foundation/runtime/Time.h"

namespace foundation {

class KELTO_API DateFormatter {
 public:
  // Fields are yyyy, MM, dd, HH, mm, ss, SSS (milliseconds, rounded down) and ZZZZZZ (the zone as "+01:00"); all other text
  // is copied. SSS and ZZZZZZ may occur once. The first 56 bytes of the pattern count, the rest is left out.
  explicit DateFormatter(std::string_view pattern);

  // Appends to `text`. Cheap for a date in the same second as the last: a new second asks the C library, which knows the
  // time zone and its changes.
  void appendString(Date date, std::string& text) const;
  [[nodiscard]] std::string stringFromDate(Date date) const;

 private:
  struct Second;
  void format(Second& second, std::chrono::sys_seconds date) const;

  const std::uint64_t _number;
  const std::string _pattern;
};

}  // namespace foundation
