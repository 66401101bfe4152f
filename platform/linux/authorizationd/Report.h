#pragma once
// What the broker granted, refused or could not do, and why: a line on standard output and in the system log.
#include <string>
#include <string_view>

namespace platform::Linux::authorizationd {

void report(const std::string& line);

// Text of a caller, made fit for a log: printable, one line, at most 200 characters.
std::string quoted(std::string_view text);

}  // namespace platform::Linux::authorizationd
