#include "foundation/text/DateFormatter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <limits>

namespace foundation {
namespace {

std::atomic<std::uint64_t> formatters{0};

constexpr std::uint64_t nanosecondsOfASecond = 1'000'000'000;
constexpr std::uint64_t nanosecondsOfAMillisecond = 1'000'000;
constexpr std::size_t longest = 56;
constexpr std::size_t noPlace = std::numeric_limits<std::size_t>::max();

void putDigits(char* place, int count, int value) {
  for (int i = count - 1; i >= 0; --i, value /= 10) place[i] = static_cast<char>('0' + value % 10);
}

// As in "+01:00".
void putZone(char* place, const std::tm& parts) {
  char zone[8] = {};
  if (std::strftime(zone, sizeof zone, "%z", &parts) != 5) return;
  std::copy_n(zone, 3, place);
  place[3] = ':';
  std::copy_n(zone + 3, 2, place + 4);
}

}  // namespace

// One formatted second; only the milliseconds differ between its dates.
struct DateFormatter::Second {
  // The nanoseconds from its beginning to `date`, or more than a second has if `date` is not in it.
  [[nodiscard]] std::uint64_t nanosecondsTo(Date date) const {
    return static_cast<std::uint64_t>(date.time_since_epoch().count()) - static_cast<std::uint64_t>(beginning);
  }

  std::uint64_t formatter = 0;
  std::int64_t beginning = 0;  // in nanoseconds
  std::size_t length = 0;
  std::size_t milliseconds = noPlace;  // their place in the text
  std::uint64_t shownMilliseconds = nanosecondsOfASecond;
  char text[longest];
};

DateFormatter::DateFormatter(std::string_view pattern)
    : _number(formatters.fetch_add(1) + 1), _pattern(pattern.substr(0, longest)) {}

void DateFormatter::format(Second& second, std::chrono::sys_seconds date) const {
  struct Field {
    std::string_view letters;
    int value;
  };
  const std::time_t time = std::chrono::system_clock::to_time_t(date);
  std::tm parts{};
  localtime_r(&time, &parts);
  const Field fields[] = {{"yyyy", parts.tm_year + 1900}, {"MM", parts.tm_mon + 1}, {"dd", parts.tm_mday},
                          {"HH", parts.tm_hour},          {"mm", parts.tm_min},     {"ss", parts.tm_sec}};
  second.formatter = _number;
  second.beginning = Date(date).time_since_epoch().count();
  second.shownMilliseconds = nanosecondsOfASecond;
  second.length = _pattern.size();
  second.milliseconds = _pattern.find("SSS");
  _pattern.copy(second.text, longest);
  for (const auto& field : fields)
    for (auto place = _pattern.find(field.letters); place != std::string::npos;
         place = _pattern.find(field.letters, place + field.letters.size()))
      putDigits(second.text + place, static_cast<int>(field.letters.size()), field.value);
  const auto zone = _pattern.find("ZZZZZZ");
  if (zone != std::string::npos) putZone(second.text + zone, parts);
}

void DateFormatter::appendString(Date date, std::string& text) const {
  // A thread uses a few formatters in turn, so each keeps a slot for its last second.
  thread_local std::array<Second, 8> cache;
  Second& second = cache[_number % cache.size()];
  if (second.formatter != _number || second.nanosecondsTo(date) >= nanosecondsOfASecond)
    format(second, std::chrono::floor<std::chrono::seconds>(date));
  const std::uint64_t milliseconds = second.nanosecondsTo(date) / nanosecondsOfAMillisecond;
  if (second.milliseconds != noPlace && second.shownMilliseconds != milliseconds) {
    putDigits(second.text + second.milliseconds, 3, static_cast<int>(milliseconds));
    second.shownMilliseconds = milliseconds;
  }
  text.append(second.text, second.length);
}

std::string DateFormatter::stringFromDate(Date date) const {
  std::string text;
  appendString(date, text);
  return text;
}

}  // namespace foundation
