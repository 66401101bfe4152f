#pragma once
// Dates as text in local time. Any thread.
#include <cstdint>
#include <string>
#include <string_view>

#include "foundation/runtime/Time.h"

namespace foundation {

class DateFormatter {
 public:
  // Understood are yyyy, MM, dd, HH, mm, ss and SSS (milliseconds); everything else stands for itself. SSS may occur once.
  explicit DateFormatter(std::string_view pattern);

  // Appends to `text`. Cheap for dates within one second of the last: only then is the C library asked, which knows the
  // time zone and its changes.
  void appendString(Date date, std::string& text) const;
  [[nodiscard]] std::string stringFromDate(Date date) const;

 private:
  struct Second;
  void format(Second& second, std::int64_t seconds) const;

  const std::uint64_t _number;
  const std::string _pattern;
};

}  // namespace foundation
