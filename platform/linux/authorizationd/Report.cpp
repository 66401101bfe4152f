#include "platform/linux/authorizationd/Report.h"

#include <syslog.h>

#include <cstdio>

namespace platform::Linux::authorizationd {

void report(const std::string& line) {
  std::printf("authorizationd: %s\n", line.c_str());
  std::fflush(stdout);
  ::syslog(LOG_NOTICE, "%s", line.c_str());
}

std::string quoted(std::string_view text) {
  constexpr std::size_t Longest = 200;
  std::string result = "\"";
  for (const char character : text.substr(0, Longest)) {
    result += character >= ' ' && character <= '~' && character != '"' ? character : '?';
  }
  return result + (text.size() > Longest ? "\"..." : "\"");
}

}  // namespace platform::Linux::authorizationd
