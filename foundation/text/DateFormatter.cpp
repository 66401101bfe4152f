#include "foundation/text/DateFormatter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <ctime>
#include <limits>

namespace foundation {
namespace {

std::atomic<std::uint64_t> formatters{0};

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
  std::uint64_t formatter = 0;
  std::int64_t seconds = 0;
  std::size_t length = 0;
  std::size_t milliseconds = noPlace;  // their place in the text
  char text[longest];
};

DateFormatter::DateFormatter(std::string_view pattern)
    : _number(formatters.fetch_add(1) + 1), _pattern(pattern.substr(0, longest)) {}

void DateFormatter::format(Second& second, std::int64_t seconds) const {
  struct Field {
    std::string_view letters;
    int value;
  };
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  localtime_r(&time, &parts);
  const Field fields[] = {{"yyyy", parts.tm_year + 1900}, {"MM", parts.tm_mon + 1}, {"dd", parts.tm_mday},
                          {"HH", parts.tm_hour},          {"mm", parts.tm_min},     {"ss", parts.tm_sec}};
  second.formatter = _number;
  second.seconds = seconds;
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
  const auto whole = std::chrono::floor<std::chrono::seconds>(date);
  Second& second = cache[_number % cache.size()];
  if (second.formatter != _number || second.seconds != whole.time_since_epoch().count())
    format(second, whole.time_since_epoch().count());
  if (second.milliseconds != noPlace) {
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(date - whole);
    putDigits(second.text + second.milliseconds, 3, static_cast<int>(rest.count()));
  }
  text.append(second.text, second.length);
}

std::string DateFormatter::stringFromDate(Date date) const {
  std::string text;
  appendString(date, text);
  return text;
}

}  // namespace foundation
